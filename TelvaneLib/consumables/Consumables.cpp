// The tables are arrays that applications may index. The functions check the bounds, because codes come from
// messages and may be any number.

#include <Telvane/Consumables.h>

#include <cstddef>

namespace Telvane
{

const std::string ProcessIDStrings[kProcessIDCount] = {
    "MIG",                     // 0
    "MIG Synergic",            // 1
    "MIG Pulse",               // 2
    "MIG Double Pulse",        // 3
    "MIG Short Arc",           // 4
    "MIG Spray",               // 5
    "MIG AC",                  // 6
    "MIG AC Pulse",            // 7
    "Metal Core",              // 8
    "Flux Core",               // 9
    "Flux Core Self-Shielded", // 10
    "Stick",                   // 11
    "Stick AC",                // 12
    "Stick Pulse",             // 13
    "Carbon Arc",              // 14
    "TIG",                     // 15
    "TIG Lift Start",          // 16
    "TIG HF Start",            // 17
    "TIG Pulse",               // 18
    "TIG AC",                  // 19
    "TIG AC Pulse",            // 20
    "Load Bank",               // 21
    "Demo MIG",                // 22
    "Demo TIG",                // 23
};

const std::string WireTypeStrings[kWireTypeCount] = {
    "Steel",         // 0
    "Stainless",     // 1
    "MetalCore",     // 2
    "Aluminum",      // 3
    "NA",            // 4
    "Inconel",       // 5
    "FluxCore",      // 6
    "NA",            // 7
    "SiliconBronze", // 8
    "LoadbankCV",    // 9
    "LoadbancCC",    // 10
    "EXX10",         // 11
    "EXX18",         // 12
    "Ti",            // 13
    "Ni",            // 14
    "Cu",            // 15
};

const std::string WireSizeStrings[kWireSizeCount] = {
    "0.023",          // 0
    "0.030",          // 1
    "0.035",          // 2
    "0.040",          // 3
    "0.045",          // 4
    "0.047 (3/64)",   // 5
    "0.052",          // 6
    "0.062",          // 7
    "0.0625 (1/16)",  // 8
    "0.0781 (5/64)",  // 9
    "0.125 (1/8)",    // 10
    "NA",             // 11
    "NA",             // 12
    "NA",             // 13
    "0.024",          // 14
    "0.0315 (0.8mm)", // 15
    "0.0354 (0.9mm)", // 16
    "0.0394 (1.0mm)", // 17
    "0.0472 (1.2mm)", // 18
    "0.0551 (1.4mm)", // 19
    "0.0938 (3/32)",  // 20
    "0.063 (1.6mm)",  // 21
    "0.063",          // 22
    "0.0709 (1.8mm)", // 23
    "0.156 (5/32)",   // 24
    "0.0787 (2.0mm)", // 25
    "0.0984 (2.5mm)", // 26
    "0.109 (7/64)",   // 27
    "0.118 (3.0mm)",  // 28
};

const std::string GasIDStrings[kGasIDCount] = {
    "CO2",             // 0
    "AR",              // 1
    "AR75_CO225",      // 2
    "AR80_CO220",      // 3
    "AR85_CO215",      // 4
    "AR90_CO210",      // 5
    "AR92_CO208",      // 6
    "AR95_CO205",      // 7
    "AR98_CO202",      // 8
    "MIX",             // 9
    "AR95_OX05",       // 10
    "AR98_OX02",       // 11
    "AR07_HE90_CO202", // 12
    "AR25_HE75",       // 13
    "AR42_HE55_CO202", // 14
    "AR50_HE50",       // 15
    "AR75_HE25",       // 16
    "AR81_HE18_CO201", // 17
    "NA",              // 18
    "NA",              // 19
    "NA",              // 20
};

const std::string AlloyIDStrings[kAlloyIDCount] = {
    "UNKNOWN",   // 0
    "STL_E70",   // 1
    "STL_E80",   // 2
    "STL_E100",  // 3
    "STL_E120",  // 4
    "AL_4XXX",   // 5
    "AL_5XXX",   // 6
    "AL_5554",   // 7
    "SS_ER308",  // 8
    "SS_ER309",  // 9
    "SS_ER312",  // 10
    "SS_ER316",  // 11
    "SS_ER410",  // 12
    "SS_EC409",  // 13
    "SS_EC439",  // 14
    "MC_E70C",   // 15
    "MC_3XX",    // 16
    "MC_409",    // 17
    "MC_439",    // 18
    "MC_E100C",  // 19
    "NA",        // 20
    "NA1",       // 21
    "SIBR",      // 22
    "INC_622",   // 23
    "INC_625",   // 24
    "ALBR",      // 25
    "STL_EXX",   // 26
    "SS_3XX",    // 27
    "MC_XXC",    // 28
    "MC_4XX",    // 29
    "MC_MATRIX", // 30
    "NA2",       // 31
    "NA3",       // 32
    "NA4",       // 33
    "NA5",       // 34
    "MC_VANT",   // 35
    "FLUX_CORE", // 36
    "TI",        // 37
    "NI",        // 38
    "CU",        // 39
};

namespace
{

template <std::size_t N>
std::string nameOf(int code, const std::string (&names)[N])
{
    const auto index = static_cast<unsigned>(code);
    return index < N ? names[index] : "unknown";
}

} // namespace

std::string GetProcessIDString(_ProcessID_e code)
{
    return nameOf(code, ProcessIDStrings);
}

std::string GetWireTypeString(_WireType_e code)
{
    return nameOf(code, WireTypeStrings);
}

std::string GetWireSizeString(_WireSize_e code)
{
    return nameOf(code, WireSizeStrings);
}

std::string GetGasIDString(_GasID_e code)
{
    return nameOf(code, GasIDStrings);
}

std::string GetAlloyIDString(_AlloyID_e code)
{
    return nameOf(code, AlloyIDStrings);
}

std::string GetCompleteWireDescriptor(_WireType_e /*type*/, _AlloyID_e alloy)
{
    return GetAlloyIDString(alloy);
}

} // namespace Telvane
