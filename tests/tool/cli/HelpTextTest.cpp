#include "common/cli/HelpText.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

OptionText argument(const std::string& name, bool required, bool repeated = false)
{
    OptionText option;
    option.names = {name};
    option.argument = true;
    option.required = required;
    option.repeated = repeated;
    option.what = "What " + name + " is";
    return option;
}

OptionText option(const std::vector<std::string>& names, const std::string& value, const std::string& what,
                  const std::string& group = "Options")
{
    OptionText option;
    option.names = names;
    option.value = value;
    option.what = what;
    option.group = group;
    return option;
}

TEST(HelpOfCommand, TellsWhatItTakesAndEndsWithExamples)
{
    OptionText count = option({"-n", "--count"}, "NUMBER", "How many");
    count.defaultText = "1";
    count.remarks = {"with --all"};
    OptionText where = option({"--where"}, "PLACE", "Where to");
    where.required = true;
    const CommandText command = {"fetch",
                                 "Fetch things",
                                 {option({"-h", "--help"}, "", "Help"), argument("PATH", true),
                                  argument("THING", false, true), count, where,
                                  option({"--late"}, "", "Later", "Other")},
                                 "# two\ntelvane fetch a b\n"};
    EXPECT_EQ(helpOfCommand(command), "Fetch things\n"
                                      "\n"
                                      "Usage: telvane fetch [OPTION]... PATH [THING...]\n"
                                      "\n"
                                      "Arguments:\n"
                                      "  PATH      What PATH is\n"
                                      "  THING...  What THING is\n"
                                      "\n"
                                      "Options:\n"
                                      "  -h, --help          Help\n"
                                      "  -n, --count NUMBER  How many (with --all; default: 1)\n"
                                      "  --where PLACE       Where to (required)\n"
                                      "\n"
                                      "Other:\n"
                                      "  --late  Later\n"
                                      "\n"
                                      "Examples:\n"
                                      "  # two\n"
                                      "  telvane fetch a b\n");
}

TEST(HelpOfCommand, StaysWithinEightyColumns)
{
    std::string what;
    for (int i = 0; i < 60; ++i) {
        what += "word ";
    }
    what += "end";
    const std::string help = helpOfCommand(
        {"fetch",
         what,
         {option({"--short"}, "", what), option({"--a-name-that-takes-much-room"}, "DIRECTORY", what)},
         ""});
    for (std::size_t begin = 0; begin < help.size();) {
        const std::size_t end = help.find('\n', begin);
        EXPECT_LE(end - begin, 80U) << help.substr(begin, end - begin);
        begin = end + 1;
    }
    EXPECT_NE(help.find("  --short  word"), std::string::npos) << help;
    EXPECT_NE(help.find("  --a-name-that-takes-much-room DIRECTORY\n           word"), std::string::npos)
        << help;
}

TEST(HelpOfTool, ListsTheCommands)
{
    const std::vector<CommandText> commands = {{"", "Does it", {option({"--version"}, "", "Which")}, ""},
                                               {"fetch", "Fetch things", {}, ""},
                                               {"put", "Put them back", {}, ""}};
    EXPECT_EQ(helpOfTool(commands, "The end."), "Does it\n"
                                                "\n"
                                                "Usage: telvane COMMAND [OPTION]... [ARGUMENT]...\n"
                                                "\n"
                                                "Commands:\n"
                                                "  fetch  Fetch things\n"
                                                "  put    Put them back\n"
                                                "\n"
                                                "Options:\n"
                                                "  --version  Which\n"
                                                "\n"
                                                "The end.\n");
}

} // namespace
} // namespace TelvaneTool
