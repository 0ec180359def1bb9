#include "common/cli/Completion.h"

#include "catalogue/CompletionValues.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

OptionInfo argument(const std::string& name, bool repeated = false)
{
    OptionInfo option;
    option.names = {name};
    option.argument = true;
    option.repeated = repeated;
    return option;
}

OptionInfo option(const std::vector<std::string>& names, const std::string& value = "", bool repeated = false)
{
    OptionInfo option;
    option.names = names;
    option.value = value;
    option.repeated = repeated;
    return option;
}

const std::vector<CommandInfo> kCommands = {
    {"", "all of it", {option({"-h", "--help"}), option({"--version"})}},
    {"listen",
     "hears",
     {argument("PATH"), argument("CHANNEL", true), option({"--as"}, "CLASS"), option({"--pretty"}),
      option({"-o", "--output"}, "FILE"), option({"--count"}, "NUMBER"), option({"--set"}, "TEXT", true),
      option({"--gas-type"}, "CODE")}},
    {"consumables", "shows", {argument("TABLE"), argument("CODE")}},
    {"link", "ties", {}},
};

Completion completionOf(const std::vector<std::string>& words)
{
    return complete(kCommands, words, completionValues([](const std::string& path) {
                        return path == "bus" ? std::vector<std::string>{"Zeta", "WeldMetrics"}
                                             : std::vector<std::string>();
                    }));
}

std::vector<std::string> offered(const std::vector<std::string>& words)
{
    std::vector<std::string> texts;
    for (const Candidate& candidate : completionOf(words).candidates) {
        texts.push_back(candidate.text);
    }
    return texts;
}

TEST(Completion, OffersCommandsFirst)
{
    EXPECT_THAT(offered({}), ElementsAre("listen", "consumables", "link"));
    EXPECT_THAT(offered({"li"}), ElementsAre("listen", "link"));
    EXPECT_EQ(completionOf({"li"}).candidates.front().what, "hears");
}

TEST(Completion, OffersTheToolsOwnOptionsInPlaceOfACommand)
{
    EXPECT_THAT(offered({"-"}), ElementsAre("--help", "--version"));
}

TEST(Completion, OffersNothingForACommandThatIsNone)
{
    EXPECT_THAT(offered({"lissen", ""}), IsEmpty());
}

TEST(Completion, OffersTheOptionsOfACommandOnceEach)
{
    EXPECT_THAT(offered({"listen", "--p"}), ElementsAre("--pretty"));
    EXPECT_THAT(offered({"listen", "--pretty", "-"}), Not(Contains("--pretty")));
    EXPECT_THAT(offered({"listen", "--set", "a=1", "-"}), Contains("--set"));
    EXPECT_THAT(offered({"listen", "-o", "x", "-"}), Not(Contains("--output")));
}

TEST(Completion, LeavesPathsAndFilesToTheShell)
{
    EXPECT_TRUE(completionOf({"listen", ""}).files);
    EXPECT_TRUE(completionOf({"listen", "--output", ""}).files);
    EXPECT_FALSE(completionOf({"listen", "bus", ""}).files);
}

TEST(Completion, OffersTheChannelsOfTheServerThatIsNamed)
{
    EXPECT_THAT(offered({"listen", "bus", "Z"}), ElementsAre("Zeta"));
    EXPECT_THAT(offered({"listen", "--pretty", "bus", "Other", "Z"}), ElementsAre("Zeta"));
    EXPECT_THAT(offered({"listen", "elsewhere", "Z"}), IsEmpty());
}

TEST(Completion, OffersChannelsThatAreNamedLikeARecordOnce)
{
    EXPECT_THAT(offered({"listen", "bus", "WeldM"}), ElementsAre("WeldMetrics"));
    EXPECT_THAT(offered({"listen", "elsewhere", "WeldM"}), ElementsAre("WeldMetrics"));
}

TEST(Completion, OffersRecordClassesWhereOneIsWanted)
{
    EXPECT_THAT(offered({"listen", "--as", "HALI"}), ElementsAre("HALInfo"));
    EXPECT_THAT(offered({"listen", "bus", "--as", "HALI"}), ElementsAre("HALInfo"));
}

TEST(Completion, OffersValuesInTheSameWordAsTheirOption)
{
    EXPECT_THAT(offered({"listen", "--as=HALI"}), ElementsAre("--as=HALInfo"));
    EXPECT_THAT(offered({"listen", "--as", "=", "HALI"}), ElementsAre("HALInfo"));
    EXPECT_THAT(offered({"listen", "--as=HALInfo", "bus", "Z"}), ElementsAre("Zeta"));
}

TEST(Completion, OffersConsumablesByTheirTable)
{
    EXPECT_THAT(offered({"consumables", "wire"}), ElementsAre("wire-type", "wire-size"));
    EXPECT_THAT(offered({"consumables", "gas", "CO"}), ElementsAre("CO2"));
    EXPECT_THAT(offered({"listen", "--gas-type", "CO"}), ElementsAre("CO2"));
}

TEST(Completion, OffersNothingForWhatNobodyCanGuess)
{
    EXPECT_THAT(offered({"listen", "--count", ""}), IsEmpty());
    EXPECT_THAT(offered({"link", ""}), IsEmpty());
    EXPECT_THAT(offered({"consumables", "gas", "CO2", ""}), IsEmpty());
}

TEST(Completion, TakesWhatFollowsTwoDashesForArguments)
{
    EXPECT_THAT(offered({"listen", "--", "bus", "-"}), IsEmpty());
    EXPECT_THAT(offered({"listen", "--", "bus", "Z"}), ElementsAre("Zeta"));
}

} // namespace
} // namespace TelvaneTool
