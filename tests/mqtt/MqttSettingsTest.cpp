#include "telvane-mqtt/settings/Settings.h"

#include "helpers/TestFiles.h"

#include <gtest/gtest.h>

namespace TelvaneTool::Mqtt
{
namespace
{

using Telvane::Testing::TemporaryDirectory;

TEST(MqttSettings, AllowASpoolOfMoreThanFourGiB)
{
    for (const char* const size : {"8589934592", "\"8G\""}) {
        const TemporaryDirectory directory;
        const std::string path = directory.write("bridge.toml", std::string("spool-bytes = ") + size + "\n");
        Settings settings;
        const auto given = [](const char*) {
            return false;
        };
        EXPECT_EQ(readConfigFile(path, given, settings), "");
        EXPECT_EQ(settings.spoolBytes, std::uint64_t{8} << 30) << size;
    }
}

} // namespace
} // namespace TelvaneTool::Mqtt
