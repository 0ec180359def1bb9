#include <Telvane/Consumables.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace Telvane
{
namespace
{

const std::vector<std::string> kProcesses = {"MIG",
                                             "MIG Synergic",
                                             "MIG Pulse",
                                             "MIG Double Pulse",
                                             "MIG Short Arc",
                                             "MIG Spray",
                                             "MIG AC",
                                             "MIG AC Pulse",
                                             "Metal Core",
                                             "Flux Core",
                                             "Flux Core Self-Shielded",
                                             "Stick",
                                             "Stick AC",
                                             "Stick Pulse",
                                             "Carbon Arc",
                                             "TIG",
                                             "TIG Lift Start",
                                             "TIG HF Start",
                                             "TIG Pulse",
                                             "TIG AC",
                                             "TIG AC Pulse",
                                             "Load Bank",
                                             "Demo MIG",
                                             "Demo TIG"};

const std::vector<std::string> kWireTypes = {
    "Steel",         "Stainless",  "MetalCore",  "Aluminum", "NA",    "Inconel", "FluxCore", "NA",
    "SiliconBronze", "LoadbankCV", "LoadbancCC", "EXX10",    "EXX18", "Ti",      "Ni",       "Cu"};

const std::vector<std::string> kWireSizes = {"0.023",
                                             "0.030",
                                             "0.035",
                                             "0.040",
                                             "0.045",
                                             "0.047 (3/64)",
                                             "0.052",
                                             "0.062",
                                             "0.0625 (1/16)",
                                             "0.0781 (5/64)",
                                             "0.125 (1/8)",
                                             "NA",
                                             "NA",
                                             "NA",
                                             "0.024",
                                             "0.0315 (0.8mm)",
                                             "0.0354 (0.9mm)",
                                             "0.0394 (1.0mm)",
                                             "0.0472 (1.2mm)",
                                             "0.0551 (1.4mm)",
                                             "0.0938 (3/32)",
                                             "0.063 (1.6mm)",
                                             "0.063",
                                             "0.0709 (1.8mm)",
                                             "0.156 (5/32)",
                                             "0.0787 (2.0mm)",
                                             "0.0984 (2.5mm)",
                                             "0.109 (7/64)",
                                             "0.118 (3.0mm)"};

const std::vector<std::string> kGases = {
    "CO2",        "AR",         "AR75_CO225",      "AR80_CO220", "AR85_CO215",
    "AR90_CO210", "AR92_CO208", "AR95_CO205",      "AR98_CO202", "MIX",
    "AR95_OX05",  "AR98_OX02",  "AR07_HE90_CO202", "AR25_HE75",  "AR42_HE55_CO202",
    "AR50_HE50",  "AR75_HE25",  "AR81_HE18_CO201", "NA",         "NA",
    "NA"};

const std::vector<std::string> kAlloys = {
    "UNKNOWN",  "STL_E70",  "STL_E80",  "STL_E100", "STL_E120",  "AL_4XXX",  "AL_5XXX",   "AL_5554",
    "SS_ER308", "SS_ER309", "SS_ER312", "SS_ER316", "SS_ER410",  "SS_EC409", "SS_EC439",  "MC_E70C",
    "MC_3XX",   "MC_409",   "MC_439",   "MC_E100C", "NA",        "NA1",      "SIBR",      "INC_622",
    "INC_625",  "ALBR",     "STL_EXX",  "SS_3XX",   "MC_XXC",    "MC_4XX",   "MC_MATRIX", "NA2",
    "NA3",      "NA4",      "NA5",      "MC_VANT",  "FLUX_CORE", "TI",       "NI",        "CU"};

/// Looks a name up before main, as a static object of an application may.
const std::string kNameBeforeMain = GetAlloyIDString(AlloyID_SS_ER308);

template <class Code, std::size_t N>
void expectNames(const std::vector<std::string>& names, const std::string (&table)[N],
                 std::string (*lookup)(Code))
{
    ASSERT_EQ(names.size(), N);
    for (std::size_t code = 0; code < N; ++code) {
        EXPECT_EQ(table[code], names[code]) << code;
        EXPECT_EQ(lookup(Code(code)), names[code]) << code;
    }
    const int count = N;
    for (const int code :
         {count, 254, 255, 256, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(lookup(Code(code)), "unknown") << code;
    }
}

TEST(Consumables, NameTwentyFourProcesses)
{
    EXPECT_EQ(kProcesses.size(), 24U);
    expectNames(kProcesses, ProcessIDStrings, GetProcessIDString);
    EXPECT_EQ(std::set<std::string>(kProcesses.begin(), kProcesses.end()).size(), 24U);
}

TEST(Consumables, NameSixteenWireTypes)
{
    EXPECT_EQ(kWireTypes.size(), 16U);
    expectNames(kWireTypes, WireTypeStrings, GetWireTypeString);
}

TEST(Consumables, NameTwentyNineWireSizes)
{
    EXPECT_EQ(kWireSizes.size(), 29U);
    expectNames(kWireSizes, WireSizeStrings, GetWireSizeString);
}

TEST(Consumables, NameTwentyOneGases)
{
    EXPECT_EQ(kGases.size(), 21U);
    expectNames(kGases, GasIDStrings, GetGasIDString);
}

TEST(Consumables, NameFortyAlloys)
{
    EXPECT_EQ(kAlloys.size(), 40U);
    expectNames(kAlloys, AlloyIDStrings, GetAlloyIDString);
}

TEST(Consumables, HaveTheNamesOfTheirEnumerators)
{
    EXPECT_EQ(GetProcessIDString(ProcessID_MIG), "MIG");
    EXPECT_EQ(GetProcessIDString(ProcessID_CarbonArc), "Carbon Arc");
    EXPECT_EQ(GetProcessIDString(ProcessID_LoadBank), "Load Bank");
    EXPECT_EQ(GetProcessIDString(ProcessID_DemoTIG), "Demo TIG");
    EXPECT_EQ(GetWireTypeString(WireType_LoadbankCC), "LoadbancCC");
    EXPECT_EQ(GetWireTypeString(WireType_Cu), "Cu");
    EXPECT_EQ(GetWireSizeString(WireSize_Inch_0_063), "0.063");
    EXPECT_EQ(GetWireSizeString(WireSize_Metric_1_6), "0.063 (1.6mm)");
    EXPECT_EQ(GetWireSizeString(WireSize_Fraction_7_64), "0.109 (7/64)");
    EXPECT_EQ(GetGasIDString(GasID_CO2), "CO2");
    EXPECT_EQ(GetGasIDString(GasID_AR81_HE18_CO201), "AR81_HE18_CO201");
    EXPECT_EQ(GetAlloyIDString(AlloyID_Unspecified), "UNKNOWN");
    EXPECT_EQ(GetAlloyIDString(AlloyID_CU), "CU");
}

TEST(Consumables, HaveTheSameUnknownCodeEverywhere)
{
    EXPECT_EQ(ProcessID_Unknown, 255);
    EXPECT_EQ(WireType_Unknown, 255);
    EXPECT_EQ(WireSize_Unknown, 255);
    EXPECT_EQ(GasID_Unknown, 255);
    EXPECT_EQ(AlloyID_Unknown, 255);
}

TEST(Consumables, AreNamedBeforeMainAlready)
{
    EXPECT_EQ(kNameBeforeMain, "SS_ER308");
}

TEST(CompleteWireDescriptor, IsTheAlloysNameForAnyWireType)
{
    for (const int type : {0, 4, 15, 16, 255, -1}) {
        EXPECT_EQ(GetCompleteWireDescriptor(_WireType_e(type), AlloyID_SS_ER308), "SS_ER308");
        EXPECT_EQ(GetCompleteWireDescriptor(_WireType_e(type), AlloyID_Unspecified), "UNKNOWN");
        EXPECT_EQ(GetCompleteWireDescriptor(_WireType_e(type), AlloyID_Unknown), "unknown");
        EXPECT_EQ(GetCompleteWireDescriptor(_WireType_e(type), _AlloyID_e(40)), "unknown");
    }
}

} // namespace
} // namespace Telvane
