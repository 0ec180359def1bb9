"""The codes that records carry, by name. Written by scripts/update-python.

A number without a name is carried, too: ``ProcessID(99)`` is a `ProcessID` whose name is ``Code_99``.
"""
from __future__ import annotations

from ._code import Code

__all__ = [
    "AlloyID", "GasID", "PSCommandType", "PSFeedbackValue", "PSWeldFlag", "ProcessID", "ProgramCommand",
    "UIMenuStatusString", "WireSize", "WireType",
]


class ProcessID(Code):
    """Weld processes."""

    MIG = 0
    """Gas metal arc, constant voltage."""
    MIGSynergic = 1
    """Gas metal arc, voltage coupled to the wire-feed speed."""
    MIGPulse = 2
    """Gas metal arc, pulsed current."""
    MIGDoublePulse = 3
    """Gas metal arc, pulse groups of alternating energy."""
    MIGShortArc = 4
    """Gas metal arc, short-circuit transfer."""
    MIGSpray = 5
    """Gas metal arc, spray transfer."""
    MIGAC = 6
    """Gas metal arc, alternating polarity."""
    MIGACPulse = 7
    """Gas metal arc, pulsed with alternating polarity."""
    MetalCore = 8
    """Gas-shielded metal-cored wire."""
    FluxCore = 9
    """Gas-shielded flux-cored wire."""
    FluxCoreSelfShielded = 10
    """Flux-cored wire without gas."""
    Stick = 11
    """Shielded metal arc with covered electrodes, direct current."""
    StickAC = 12
    """Covered electrodes, alternating current."""
    StickPulse = 13
    """Covered electrodes, pulsed current."""
    CarbonArc = 14
    """Gouging with a carbon electrode and compressed air."""
    TIG = 15
    """Gas tungsten arc, direct current."""
    TIGLiftStart = 16
    """Gas tungsten arc, struck by touching and lifting."""
    TIGHFStart = 17
    """Gas tungsten arc, struck by high frequency."""
    TIGPulse = 18
    """Gas tungsten arc, pulsed current."""
    TIGAC = 19
    """Gas tungsten arc, alternating current."""
    TIGACPulse = 20
    """Gas tungsten arc, pulsed alternating current."""
    LoadBank = 21
    """Test into a load bank, without an arc."""
    DemoMIG = 22
    """Demonstration of gas metal arc, without an arc."""
    DemoTIG = 23
    """Demonstration of gas tungsten arc, without an arc."""
    Unknown = 255
    """Unknown."""


class WireType(Code):
    """Wire types. The codes 4 and 7 are not assigned."""

    Steel = 0
    """Steel."""
    Stainless = 1
    """Stainless steel."""
    MetalCore = 2
    """Metal-cored."""
    Aluminum = 3
    """Aluminium."""
    Inconel = 5
    """Nickel-chromium alloy."""
    FluxCore = 6
    """Flux-cored."""
    SiliconBronze = 8
    """Silicon bronze."""
    LoadbankCV = 9
    """Load bank, constant voltage; not a wire."""
    LoadbankCC = 10
    """Load bank, constant current; not a wire."""
    EXX10 = 11
    """Covered electrode, EXX10 class."""
    EXX18 = 12
    """Covered electrode, EXX18 class."""
    Ti = 13
    """Titanium."""
    Ni = 14
    """Nickel."""
    Cu = 15
    """Copper."""
    Unknown = 255
    """Unknown."""


class WireSize(Code):
    """Wire sizes, by nominal diameter. The codes 11 to 13 are not assigned."""

    Inch_0_023 = 0
    """0.023 in."""
    Inch_0_030 = 1
    """0.030 in."""
    Inch_0_035 = 2
    """0.035 in."""
    Inch_0_040 = 3
    """0.040 in."""
    Inch_0_045 = 4
    """0.045 in."""
    Fraction_3_64 = 5
    """3/64 in."""
    Inch_0_052 = 6
    """0.052 in."""
    Inch_0_062 = 7
    """0.062 in."""
    Fraction_1_16 = 8
    """1/16 in."""
    Fraction_5_64 = 9
    """5/64 in."""
    Fraction_1_8 = 10
    """1/8 in."""
    Inch_0_024 = 14
    """0.024 in."""
    Metric_0_8 = 15
    """0.8 mm."""
    Metric_0_9 = 16
    """0.9 mm."""
    Metric_1_0 = 17
    """1.0 mm."""
    Metric_1_2 = 18
    """1.2 mm."""
    Metric_1_4 = 19
    """1.4 mm."""
    Fraction_3_32 = 20
    """3/32 in."""
    Metric_1_6 = 21
    """1.6 mm."""
    Inch_0_063 = 22
    """0.063 in."""
    Metric_1_8 = 23
    """1.8 mm."""
    Fraction_5_32 = 24
    """5/32 in."""
    Metric_2_0 = 25
    """2.0 mm."""
    Metric_2_5 = 26
    """2.5 mm."""
    Fraction_7_64 = 27
    """7/64 in."""
    Metric_3_0 = 28
    """3.0 mm."""
    Unknown = 255
    """Unknown."""


class GasID(Code):
    """Shielding gases, with nominal volume fractions. The codes 18 to 20 are not assigned."""

    CO2 = 0
    """Carbon dioxide."""
    AR = 1
    """Argon."""
    AR75_CO225 = 2
    """75 % argon, 25 % carbon dioxide."""
    AR80_CO220 = 3
    """80 % argon, 20 % carbon dioxide."""
    AR85_CO215 = 4
    """85 % argon, 15 % carbon dioxide."""
    AR90_CO210 = 5
    """90 % argon, 10 % carbon dioxide."""
    AR92_CO208 = 6
    """92 % argon, 8 % carbon dioxide."""
    AR95_CO205 = 7
    """95 % argon, 5 % carbon dioxide."""
    AR98_CO202 = 8
    """98 % argon, 2 % carbon dioxide."""
    MIX = 9
    """A mixture."""
    AR95_OX05 = 10
    """95 % argon, 5 % oxygen."""
    AR98_OX02 = 11
    """98 % argon, 2 % oxygen."""
    AR07_HE90_CO202 = 12
    """7 % argon, 90 % helium, 2 % carbon dioxide."""
    AR25_HE75 = 13
    """25 % argon, 75 % helium."""
    AR42_HE55_CO202 = 14
    """42 % argon, 55 % helium, 2 % carbon dioxide."""
    AR50_HE50 = 15
    """50 % argon, 50 % helium."""
    AR75_HE25 = 16
    """75 % argon, 25 % helium."""
    AR81_HE18_CO201 = 17
    """81 % argon, 18 % helium, 1 % carbon dioxide."""
    Unknown = 255
    """Unknown."""


class AlloyID(Code):
    """Wire alloys, by the classes of the filler-metal standards. The codes 20, 21 and 31 to 34 are not assigned."""

    Unspecified = 0
    """Not specified; its name is "UNKNOWN"."""
    STL_E70 = 1
    """Steel, E70 class."""
    STL_E80 = 2
    """Steel, E80 class."""
    STL_E100 = 3
    """Steel, E100 class."""
    STL_E120 = 4
    """Steel, E120 class."""
    AL_4XXX = 5
    """Aluminium, 4xxx series."""
    AL_5XXX = 6
    """Aluminium, 5xxx series."""
    AL_5554 = 7
    """Aluminium 5554."""
    SS_ER308 = 8
    """Stainless steel, ER308."""
    SS_ER309 = 9
    """Stainless steel, ER309."""
    SS_ER312 = 10
    """Stainless steel, ER312."""
    SS_ER316 = 11
    """Stainless steel, ER316."""
    SS_ER410 = 12
    """Stainless steel, ER410."""
    SS_EC409 = 13
    """Stainless steel, EC409."""
    SS_EC439 = 14
    """Stainless steel, EC439."""
    MC_E70C = 15
    """Metal-cored, E70C class."""
    MC_3XX = 16
    """Metal-cored, 3xx series."""
    MC_409 = 17
    """Metal-cored, 409."""
    MC_439 = 18
    """Metal-cored, 439."""
    MC_E100C = 19
    """Metal-cored, E100C class."""
    SIBR = 22
    """Silicon bronze."""
    INC_622 = 23
    """Nickel alloy 622."""
    INC_625 = 24
    """Nickel alloy 625."""
    ALBR = 25
    """Aluminium bronze."""
    STL_EXX = 26
    """Steel, EXX class."""
    SS_3XX = 27
    """Stainless steel, 3xx series."""
    MC_XXC = 28
    """Metal-cored, XXC class."""
    MC_4XX = 29
    """Metal-cored, 4xx series."""
    MC_MATRIX = 30
    """Metal-cored, called MATRIX."""
    MC_VANT = 35
    """Metal-cored, called VANT."""
    FLUX_CORE = 36
    """Flux-cored."""
    TI = 37
    """Titanium."""
    NI = 38
    """Nickel."""
    CU = 39
    """Copper."""
    Unknown = 255
    """Unknown."""


class PSCommandType(Code):
    """Kinds of commands."""

    Weld = 0
    """A PSWeldCommand."""
    General = 3
    """A PSCommand."""
    Program = 4
    """A PSProgramCommand."""
    OutOfRange = 7
    """Returned by GetCommandType() for each number from 7."""


class ProgramCommand(Code):
    """Entries of a PSProgramCommand, in the order of the members of ProgramType."""

    Process = 0
    """Weld process."""
    WireType = 1
    """Wire type."""
    WireSize = 2
    """Wire size."""
    GasType = 3
    """Shielding gas."""


class PSFeedbackValue(Code):
    """Indices of the feedback values. The power source defines the quantity and the unit of each."""

    Value0 = 0
    """Feedback value 0."""
    Value1 = 1
    """Feedback value 1."""
    Value2 = 2
    """Feedback value 2."""
    Value3 = 3
    """Feedback value 3."""
    Value4 = 4
    """Feedback value 4."""
    Value5 = 5
    """Feedback value 5."""
    Value6 = 6
    """Feedback value 6."""
    Value7 = 7
    """Feedback value 7."""
    Value8 = 8
    """Feedback value 8."""
    Value9 = 9
    """Feedback value 9."""
    Value10 = 10
    """Feedback value 10."""
    Value11 = 11
    """Feedback value 11."""
    Value12 = 12
    """Feedback value 12."""
    Value13 = 13
    """Feedback value 13."""
    Value14 = 14
    """Feedback value 14."""
    Value15 = 15
    """Feedback value 15."""
    Value16 = 16
    """Feedback value 16."""
    Value17 = 17
    """Feedback value 17."""
    Value18 = 18
    """Feedback value 18."""
    Value19 = 19
    """Feedback value 19."""
    Value20 = 20
    """Feedback value 20."""
    Value21 = 21
    """Feedback value 21."""
    Value22 = 22
    """Feedback value 22."""
    Value23 = 23
    """Feedback value 23."""


class PSWeldFlag(Code):
    """Indices of the weld flags of PSWeldCommand and PSFeedback. The power source defines the function of each."""

    Flag0 = 0
    """The first weld flag."""
    Flag1 = 1
    """The second weld flag."""
    Flag2 = 2
    """The third weld flag."""
    Flag3 = 3
    """The fourth weld flag."""


class UIMenuStatusString(Code):
    """Status lines of the menu. UIMenuStatus::statusType contains the numbers, which never change."""

    Unknown = 0
    """An unknown line."""
    EthernetIP = 1
    """Address of the wired link."""
    EthernetSubMask = 2
    """Subnet mask of the wired link."""
    EthernetDefaultGateway = 3
    """Default gateway of the wired link."""
    EthernetMAC = 4
    """Hardware address of the wired link; its name is "EtherneMAC"."""
    WifiSSID = 5
    """Name of the wireless network."""
    WifiIP = 6
    """Address of the wireless link."""
    WifiSubMask = 7
    """Subnet mask of the wireless link."""
    WifiDefaultGateway = 8
    """Default gateway of the wireless link."""
    WifiMAC = 9
    """Hardware address of the wireless link."""
    WifiFCCID = 10
    """Radio approval (FCC) number."""
    WifiStrength = 11
    """Signal strength of the wireless link."""
    OperatorIdCount = 12
    """Number of operators known."""
    OperatorName = 13
    """Name of the operator."""
    OperatorStatusLine = 14
    """Status of the operator."""
    AdditionalLine01 = 15
    """First additional line."""
    AdditionalLine02 = 16
    """Second additional line."""
    AdditionalLine03 = 17
    """Third additional line."""
    AdditionalLine04 = 18
    """Fourth additional line."""
    AdditionalLine05 = 19
    """Fifth additional line."""
    None_ = 255
    """No line."""
