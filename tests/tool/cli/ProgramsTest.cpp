#include "common/cli/Programs.h"
#include "helpers/TestFiles.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using Telvane::Testing::TemporaryDirectory;

void makeProgram(const TemporaryDirectory& directory, const std::string& name)
{
    std::filesystem::permissions(directory.write(name, "#!/bin/sh\n"), std::filesystem::perms::owner_all);
}

TEST(Programs, AreFoundInTheFirstDirectoryThatContainsThem)
{
    const TemporaryDirectory first;
    const TemporaryDirectory second;
    makeProgram(first, "telvane-mqtt");
    makeProgram(second, "telvane-mqtt");
    makeProgram(second, "telvane-web");
    const std::vector<std::string> directories = {first.path(""), second.path("")};
    EXPECT_EQ(findProgram("mqtt", directories), first.path("") + "/telvane-mqtt");
    EXPECT_EQ(findProgram("web", directories), second.path("") + "/telvane-web");
    EXPECT_EQ(findProgram("archive", directories), "");
}

TEST(Programs, MustBeExecutableFiles)
{
    const TemporaryDirectory directory;
    directory.write("telvane-mqtt", "no program");
    std::filesystem::permissions(directory.path("telvane-mqtt"), std::filesystem::perms::owner_read);
    std::filesystem::create_directory(directory.path("telvane-web"));
    EXPECT_EQ(findProgram("mqtt", {directory.path("")}), "");
    EXPECT_EQ(findProgram("web", {directory.path("")}), "");
}

TEST(Programs, HaveNamesThatCannotLeaveTheDirectory)
{
    const TemporaryDirectory directory;
    std::filesystem::create_directory(directory.path("telvane-a"));
    makeProgram(directory, "b");
    EXPECT_EQ(findProgram("a/../b", {directory.path("")}), "");
    EXPECT_EQ(findProgram("", {directory.path("")}), "");
    EXPECT_EQ(findProgram("-x", {directory.path("")}), "");
}

TEST(Programs, AreListedInTheHelpIfTheyAreInstalled)
{
    const TemporaryDirectory directory;
    EXPECT_EQ(programHelp(installedPrograms({directory.path("")})), "");
    makeProgram(directory, "telvane-welds");
    makeProgram(directory, "telvane-mqtt");
    makeProgram(directory, "telvane-unknown");
    EXPECT_EQ(programHelp(installedPrograms({directory.path("")})),
              "Programs:\n"
              "  mqtt         Connect a bus to an MQTT broker\n"
              "  welds        Query archived welds\n");
}

} // namespace
} // namespace TelvaneTool
