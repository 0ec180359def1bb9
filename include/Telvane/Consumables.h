/// \file
/// Codes and names of weld processes and consumables.
///
/// The power source defines the numbers, which records contain and which never change. The library defines the
/// names. Numbers without an enumerator are not assigned. 255 means "unknown" in each enumeration.
/// Everything here may be used from any thread.
#pragma once

#include <Telvane/detail/Export.h>

#include <string>

namespace Telvane
{

/// \name Lengths of the name tables
/// Codes range from 0 to the length - 1, and 255.
/// @{
constexpr unsigned kProcessIDCount = 24; ///< length of ProcessIDStrings
constexpr unsigned kWireTypeCount = 16;  ///< length of WireTypeStrings
constexpr unsigned kWireSizeCount = 29;  ///< length of WireSizeStrings
constexpr unsigned kGasIDCount = 21;     ///< length of GasIDStrings
constexpr unsigned kAlloyIDCount = 40;   ///< length of AlloyIDStrings
/// @}

/// Weld processes.
enum _ProcessID_e : int
{
    ProcessID_MIG = 0,                   ///< gas metal arc, constant voltage
    ProcessID_MIGSynergic = 1,           ///< gas metal arc, voltage coupled to the wire-feed speed
    ProcessID_MIGPulse = 2,              ///< gas metal arc, pulsed current
    ProcessID_MIGDoublePulse = 3,        ///< gas metal arc, pulse groups of alternating energy
    ProcessID_MIGShortArc = 4,           ///< gas metal arc, short-circuit transfer
    ProcessID_MIGSpray = 5,              ///< gas metal arc, spray transfer
    ProcessID_MIGAC = 6,                 ///< gas metal arc, alternating polarity
    ProcessID_MIGACPulse = 7,            ///< gas metal arc, pulsed with alternating polarity
    ProcessID_MetalCore = 8,             ///< gas-shielded metal-cored wire
    ProcessID_FluxCore = 9,              ///< gas-shielded flux-cored wire
    ProcessID_FluxCoreSelfShielded = 10, ///< flux-cored wire without gas
    ProcessID_Stick = 11,                ///< shielded metal arc with covered electrodes, direct current
    ProcessID_StickAC = 12,              ///< covered electrodes, alternating current
    ProcessID_StickPulse = 13,           ///< covered electrodes, pulsed current
    ProcessID_CarbonArc = 14,            ///< gouging with a carbon electrode and compressed air
    ProcessID_TIG = 15,                  ///< gas tungsten arc, direct current
    ProcessID_TIGLiftStart = 16,         ///< gas tungsten arc, struck by touching and lifting
    ProcessID_TIGHFStart = 17,           ///< gas tungsten arc, struck by high frequency
    ProcessID_TIGPulse = 18,             ///< gas tungsten arc, pulsed current
    ProcessID_TIGAC = 19,                ///< gas tungsten arc, alternating current
    ProcessID_TIGACPulse = 20,           ///< gas tungsten arc, pulsed alternating current
    ProcessID_LoadBank = 21,             ///< test into a load bank, without an arc
    ProcessID_DemoMIG = 22,              ///< demonstration of gas metal arc, without an arc
    ProcessID_DemoTIG = 23,              ///< demonstration of gas tungsten arc, without an arc
    ProcessID_Unknown = 255,             ///< unknown
};

/// Wire types. The codes 4 and 7 are not assigned.
enum _WireType_e : int
{
    WireType_Steel = 0,         ///< steel
    WireType_Stainless = 1,     ///< stainless steel
    WireType_MetalCore = 2,     ///< metal-cored
    WireType_Aluminum = 3,      ///< aluminium
    WireType_Inconel = 5,       ///< nickel-chromium alloy
    WireType_FluxCore = 6,      ///< flux-cored
    WireType_SiliconBronze = 8, ///< silicon bronze
    WireType_LoadbankCV = 9,    ///< load bank, constant voltage; not a wire
    WireType_LoadbankCC = 10,   ///< load bank, constant current; not a wire
    WireType_EXX10 = 11,        ///< covered electrode, EXX10 class
    WireType_EXX18 = 12,        ///< covered electrode, EXX18 class
    WireType_Ti = 13,           ///< titanium
    WireType_Ni = 14,           ///< nickel
    WireType_Cu = 15,           ///< copper
    WireType_Unknown = 255,     ///< unknown
};

/// Wire sizes, by nominal diameter. The codes 11 to 13 are not assigned.
enum _WireSize_e : int
{
    WireSize_Inch_0_023 = 0,     ///< 0.023 in
    WireSize_Inch_0_030 = 1,     ///< 0.030 in
    WireSize_Inch_0_035 = 2,     ///< 0.035 in
    WireSize_Inch_0_040 = 3,     ///< 0.040 in
    WireSize_Inch_0_045 = 4,     ///< 0.045 in
    WireSize_Fraction_3_64 = 5,  ///< 3/64 in
    WireSize_Inch_0_052 = 6,     ///< 0.052 in
    WireSize_Inch_0_062 = 7,     ///< 0.062 in
    WireSize_Fraction_1_16 = 8,  ///< 1/16 in
    WireSize_Fraction_5_64 = 9,  ///< 5/64 in
    WireSize_Fraction_1_8 = 10,  ///< 1/8 in
    WireSize_Inch_0_024 = 14,    ///< 0.024 in
    WireSize_Metric_0_8 = 15,    ///< 0.8 mm
    WireSize_Metric_0_9 = 16,    ///< 0.9 mm
    WireSize_Metric_1_0 = 17,    ///< 1.0 mm
    WireSize_Metric_1_2 = 18,    ///< 1.2 mm
    WireSize_Metric_1_4 = 19,    ///< 1.4 mm
    WireSize_Fraction_3_32 = 20, ///< 3/32 in
    WireSize_Metric_1_6 = 21,    ///< 1.6 mm
    WireSize_Inch_0_063 = 22,    ///< 0.063 in
    WireSize_Metric_1_8 = 23,    ///< 1.8 mm
    WireSize_Fraction_5_32 = 24, ///< 5/32 in
    WireSize_Metric_2_0 = 25,    ///< 2.0 mm
    WireSize_Metric_2_5 = 26,    ///< 2.5 mm
    WireSize_Fraction_7_64 = 27, ///< 7/64 in
    WireSize_Metric_3_0 = 28,    ///< 3.0 mm
    WireSize_Unknown = 255,      ///< unknown
};

/// Shielding gases, with nominal volume fractions. The codes 18 to 20 are not assigned.
enum _GasID_e : int
{
    GasID_CO2 = 0,              ///< carbon dioxide
    GasID_AR = 1,               ///< argon
    GasID_AR75_CO225 = 2,       ///< 75 % argon, 25 % carbon dioxide
    GasID_AR80_CO220 = 3,       ///< 80 % argon, 20 % carbon dioxide
    GasID_AR85_CO215 = 4,       ///< 85 % argon, 15 % carbon dioxide
    GasID_AR90_CO210 = 5,       ///< 90 % argon, 10 % carbon dioxide
    GasID_AR92_CO208 = 6,       ///< 92 % argon, 8 % carbon dioxide
    GasID_AR95_CO205 = 7,       ///< 95 % argon, 5 % carbon dioxide
    GasID_AR98_CO202 = 8,       ///< 98 % argon, 2 % carbon dioxide
    GasID_MIX = 9,              ///< a mixture
    GasID_AR95_OX05 = 10,       ///< 95 % argon, 5 % oxygen
    GasID_AR98_OX02 = 11,       ///< 98 % argon, 2 % oxygen
    GasID_AR07_HE90_CO202 = 12, ///< 7 % argon, 90 % helium, 2 % carbon dioxide
    GasID_AR25_HE75 = 13,       ///< 25 % argon, 75 % helium
    GasID_AR42_HE55_CO202 = 14, ///< 42 % argon, 55 % helium, 2 % carbon dioxide
    GasID_AR50_HE50 = 15,       ///< 50 % argon, 50 % helium
    GasID_AR75_HE25 = 16,       ///< 75 % argon, 25 % helium
    GasID_AR81_HE18_CO201 = 17, ///< 81 % argon, 18 % helium, 1 % carbon dioxide
    GasID_Unknown = 255,        ///< unknown
};

/// Wire alloys, by the classes of the filler-metal standards. The codes 20, 21 and 31 to 34 are not assigned.
enum _AlloyID_e : int
{
    AlloyID_Unspecified = 0, ///< not specified; its name is "UNKNOWN"
    AlloyID_STL_E70 = 1,     ///< steel, E70 class
    AlloyID_STL_E80 = 2,     ///< steel, E80 class
    AlloyID_STL_E100 = 3,    ///< steel, E100 class
    AlloyID_STL_E120 = 4,    ///< steel, E120 class
    AlloyID_AL_4XXX = 5,     ///< aluminium, 4xxx series
    AlloyID_AL_5XXX = 6,     ///< aluminium, 5xxx series
    AlloyID_AL_5554 = 7,     ///< aluminium 5554
    AlloyID_SS_ER308 = 8,    ///< stainless steel, ER308
    AlloyID_SS_ER309 = 9,    ///< stainless steel, ER309
    AlloyID_SS_ER312 = 10,   ///< stainless steel, ER312
    AlloyID_SS_ER316 = 11,   ///< stainless steel, ER316
    AlloyID_SS_ER410 = 12,   ///< stainless steel, ER410
    AlloyID_SS_EC409 = 13,   ///< stainless steel, EC409
    AlloyID_SS_EC439 = 14,   ///< stainless steel, EC439
    AlloyID_MC_E70C = 15,    ///< metal-cored, E70C class
    AlloyID_MC_3XX = 16,     ///< metal-cored, 3xx series
    AlloyID_MC_409 = 17,     ///< metal-cored, 409
    AlloyID_MC_439 = 18,     ///< metal-cored, 439
    AlloyID_MC_E100C = 19,   ///< metal-cored, E100C class
    AlloyID_SIBR = 22,       ///< silicon bronze
    AlloyID_INC_622 = 23,    ///< nickel alloy 622
    AlloyID_INC_625 = 24,    ///< nickel alloy 625
    AlloyID_ALBR = 25,       ///< aluminium bronze
    AlloyID_STL_EXX = 26,    ///< steel, EXX class
    AlloyID_SS_3XX = 27,     ///< stainless steel, 3xx series
    AlloyID_MC_XXC = 28,     ///< metal-cored, XXC class
    AlloyID_MC_4XX = 29,     ///< metal-cored, 4xx series
    AlloyID_MC_MATRIX = 30,  ///< metal-cored, called MATRIX
    AlloyID_MC_VANT = 35,    ///< metal-cored, called VANT
    AlloyID_FLUX_CORE = 36,  ///< flux-cored
    AlloyID_TI = 37,         ///< titanium
    AlloyID_NI = 38,         ///< nickel
    AlloyID_CU = 39,         ///< copper
    AlloyID_Unknown = 255,   ///< unknown
};

/// \name Name tables
///
/// The name of each code, indexed by the code. Codes that are not assigned have names that begin with "NA".
/// The misspelling of wire type 10, "LoadbancCC", is part of the interface. The tables are filled when the
/// library is loaded.
/// @{

/// The names of one enumeration.
extern TELVANE_EXPORT const std::string ProcessIDStrings[kProcessIDCount];
extern TELVANE_EXPORT const std::string WireTypeStrings[kWireTypeCount];
extern TELVANE_EXPORT const std::string WireSizeStrings[kWireSizeCount];
extern TELVANE_EXPORT const std::string GasIDStrings[kGasIDCount];
extern TELVANE_EXPORT const std::string AlloyIDStrings[kAlloyIDCount];
/// @}

/// \name Names of codes
/// \return the name of the code; "unknown" for 255 and for any other number outside the table
/// @{

/// Returns the name of a code.
TELVANE_EXPORT std::string GetProcessIDString(_ProcessID_e code);
TELVANE_EXPORT std::string GetWireTypeString(_WireType_e code);
TELVANE_EXPORT std::string GetWireSizeString(_WireSize_e code);
TELVANE_EXPORT std::string GetGasIDString(_GasID_e code);
TELVANE_EXPORT std::string GetAlloyIDString(_AlloyID_e code);
/// @}

/// Returns the name of \p alloy, which includes the wire type.
/// \param type  ignored
/// \param alloy the alloy
/// \return GetAlloyIDString(\p alloy)
TELVANE_EXPORT std::string GetCompleteWireDescriptor(_WireType_e type, _AlloyID_e alloy);

} // namespace Telvane
