#include "common/cli/CommandLine.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

class HelpTest : public testing::Test
{
protected:
    static std::string help(CommandLine& line, const std::vector<const char*>& arguments)
    {
        testing::internal::CaptureStdout();
        EXPECT_EQ(line.run(static_cast<int>(arguments.size()), arguments.data()), 0);
        return testing::internal::GetCapturedStdout();
    }

    CommandLine m_line{"Do things", "1.2.3", "The end."};
    std::string m_text;
    std::vector<std::string> m_texts;
    int m_number = 1;
    bool m_flag = false;
};

TEST_F(HelpTest, ShowsArgumentsOptionsAndExamplesOfACommand)
{
    Command command(m_line, "fetch", "Fetch things");
    command.option("PATH", m_text, "Where PATH is").required();
    command.option("THING", m_texts, "What THING is");
    command.flag("--all", m_flag, "All");
    command.option("-n,--count", m_number, "How many").needs("--all").showDefault();
    command.option("--where", m_text, "Where to").typeName("PLACE").required();
    command.option("--set", m_texts, "Set it").repeatable().excludes("--all").group("Other");
    command.examples("# two\ntelvane fetch a b\n");
    EXPECT_EQ(help(m_line, {"telvane", "fetch", "--help"}),
              "Fetch things\n"
              "\n"
              "Usage: telvane fetch [OPTION]... PATH [THING...]\n"
              "\n"
              "Arguments:\n"
              "  PATH                      Where PATH is\n"
              "  THING...                  What THING is\n"
              "\n"
              "Options:\n"
              "  -h, --help                Print this help and exit\n"
              "  --all                     All (not with --set)\n"
              "  -n, --count NUMBER        How many (requires --all; default: 1)\n"
              "  --where PLACE             Where to (required)\n"
              "\n"
              "Other:\n"
              "  --set TEXT...             Set it (may be repeated; not with --all)\n"
              "\n"
              "Examples:\n"
              "  # two\n"
              "  telvane fetch a b\n");
}

TEST_F(HelpTest, StaysWithinEightyColumns)
{
    std::string what;
    for (int i = 0; i < 60; ++i) {
        what += "word ";
    }
    what += "end";
    Command command(m_line, "fetch", what.c_str());
    command.flag("--short", m_flag, what);
    command.option("--a-name-that-takes-much-room", m_text, what).typeName("DIRECTORY");
    for (const std::vector<const char*>& arguments :
         {std::vector<const char*>{"telvane", "--help"}, {"telvane", "fetch", "--help"}}) {
        const std::string text = help(m_line, arguments);
        for (std::size_t begin = 0; begin < text.size();) {
            const std::size_t end = text.find('\n', begin);
            EXPECT_LE(end - begin, 80U) << text.substr(begin, end - begin);
            begin = end + 1;
        }
    }
    const std::string text = help(m_line, {"telvane", "fetch", "--help"});
    EXPECT_NE(text.find("  --short                   word"), std::string::npos) << text;
    EXPECT_NE(text.find("  --a-name-that-takes-much-room DIRECTORY\n" + std::string(28, ' ') + "word word"),
              std::string::npos)
        << text;
}

TEST_F(HelpTest, ListsTheCommandsThatAreNotHidden)
{
    Command fetch(m_line, "fetch", "Fetch things");
    Command put(m_line, "put", "Put them back");
    Command secret(m_line, "secret", "Hidden");
    secret.hide();
    EXPECT_EQ(help(m_line, {"telvane", "--help"}), "Do things\n"
                                                   "\n"
                                                   "Usage: telvane COMMAND [OPTION]... [ARGUMENT]...\n"
                                                   "\n"
                                                   "Commands:\n"
                                                   "  fetch        Fetch things\n"
                                                   "  put          Put them back\n"
                                                   "\n"
                                                   "Options:\n"
                                                   "  --version                 Print the version and exit\n"
                                                   "  -h, --help                Print this help and exit\n"
                                                   "\n"
                                                   "The end.\n");
}

TEST_F(HelpTest, ShowsAProgramWithoutSubcommands)
{
    CommandLine line("Do one thing", "1.2.3", "The end.", "doer");
    Command program(line);
    program.option("--where", m_text, "Where to").typeName("PLACE");
    program.examples("doer --where here\n");
    EXPECT_EQ(help(line, {"doer", "--help"}), "Do one thing\n"
                                              "\n"
                                              "Usage: doer [OPTION]...\n"
                                              "\n"
                                              "Options:\n"
                                              "  --version                 Print the version and exit\n"
                                              "  -h, --help                Print this help and exit\n"
                                              "  --where PLACE             Where to\n"
                                              "\n"
                                              "Examples:\n"
                                              "  doer --where here\n"
                                              "\n"
                                              "The end.\n");
}

TEST_F(HelpTest, AProgramWithoutSubcommandsTakesArguments)
{
    CommandLine line("Do one thing", "1.2.3", "The end.", "doer");
    Command program(line);
    program.option("PLACE", m_text, "Where to");
    program.run([] { return 7; });
    const std::vector<const char*> arguments = {"doer", "here"};
    EXPECT_EQ(line.run(2, arguments.data()), 7);
    EXPECT_EQ(m_text, "here");
}

} // namespace
} // namespace TelvaneTool
