/// \file
/// Weld settings in the memory slots of the power source, and requests and replies for them.
///
/// All settings are whole numbers. The power source defines their units and resolutions ("device units"
/// below) and their codes. The library does not check them.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// Request to write the library of weld processes to a JSON file.
class TELVANE_EXPORT WeldProcessLibraryRequest : public TelvaneDataTypeBase
{
public:
    std::string JsonFilePath;   ///< path of the file to write
    std::string LibraryJsonKey; ///< JSON key of the library

    TELVANE_RECORD(WeldProcessLibraryRequest, JsonFilePath, LibraryJsonKey)
};

/// Reply to a WeldProcessLibraryRequest.
class TELVANE_EXPORT WeldProcessLibraryReport : public TelvaneDataTypeBase
{
public:
    bool IsJsonReportReady = false; ///< true once the file is written

    TELVANE_RECORD(WeldProcessLibraryReport, IsJsonReportReady)
};

/// Request for the settings of memory slots.
class TELVANE_EXPORT GetMemorySlotSettingsRequest : public TelvaneDataTypeBase
{
public:
    bool All = false; ///< true to request the settings of all slots

    TELVANE_RECORD(GetMemorySlotSettingsRequest, All)
};

/// Notice that settings of slots are going to be downloaded.
class TELVANE_EXPORT MemorySlotDownloadSummary : public TelvaneDataTypeBase
{
public:
    int NumberOfIncomingSlots = 0; ///< count of MemorySlotFleetManagementDownloadSettings records that follow

    TELVANE_RECORD(MemorySlotDownloadSummary, NumberOfIncomingSlots)
};

/// Complete settings of one slot, downloaded from fleet management. Numbers are in device units.
class TELVANE_EXPORT MemorySlotFleetManagementDownloadSettings : public TelvaneDataTypeBase
{
public:
    int Id = 0;                    ///< number of the slot
    int ControlByte = 0;           ///< control byte, which the power source defines
    int presetArcControl = 0;      ///< preset of the arc control
    int limitArcControlHigh = 0;   ///< upper limit of the arc control
    int limitArcControlLow = 0;    ///< lower limit of the arc control
    int presetArcLength = 0;       ///< preset of the arc length
    int limitArcLengthHigh = 0;    ///< upper limit of the arc length
    int limitArcLengthLow = 0;     ///< lower limit of the arc length
    int presetCurrent = 0;         ///< preset of the current
    int limitCurrentHigh = 0;      ///< upper limit of the current
    int limitCurrentLow = 0;       ///< lower limit of the current
    int presetWireFeedSpeed = 0;   ///< preset of the wire-feed speed
    int limitWfsHigh = 0;          ///< upper limit of the wire-feed speed
    int limitWfsLow = 0;           ///< lower limit of the wire-feed speed
    int presetVoltage = 0;         ///< preset of the arc voltage
    int limitVoltHigh = 0;         ///< upper limit of the arc voltage
    int limitVoltLow = 0;          ///< lower limit of the arc voltage
    int presetSequenceType = 0;    ///< sequence type, a code
    int triggerSelect = 0;         ///< trigger selection, a code
    int triggerSelectMemory = 0;   ///< selection of memory slots by the trigger, a code
    int triggerTackTime = 0;       ///< tack time with the trigger
    int presetWireCleanTime = 0;   ///< wire cleaning time
    int presetPreflow = 0;         ///< preflow: shielding gas before the arc
    int presetPreflowTime = 0;     ///< preflow time
    int presetAutoJogDistance = 0; ///< length of wire that is jogged (fed without an arc) automatically
    int presetAutoPurgeTime = 0;   ///< time of the automatic gas purge
    int presetRunInMode = 0;     ///< run-in mode, a code; run-in is the feeding of wire until the arc ignites
    int presetRunInSpeed = 0;    ///< wire-feed speed until the arc ignites
    int presetStartMode = 0;     ///< start of weld: mode, a code
    int presetSureStartTime = 0; ///< start of weld: sure-start time
    int startArcLength = 0;      ///< start of weld: arc length
    int startDwellTime = 0;      ///< start of weld: dwell time
    int startRampTime = 0;       ///< start of weld: ramp time
    int startSpeed = 0;          ///< start of weld: speed
    int startTackTime = 0;       ///< start of weld: tack time
    int startVoltage = 0;        ///< start of weld: arc voltage
    int presetCraterMode = 0;    ///< end crater: mode, a code
    int craterArcLength = 0;     ///< end crater: arc length
    int craterDwellTime = 0;     ///< end crater: dwell time
    int craterRampTime = 0;      ///< end crater: ramp time
    int craterSpeed = 0;         ///< end crater: speed
    int craterTackTime = 0;      ///< end crater: tack time
    int craterVoltage = 0;       ///< end crater: arc voltage
    int presetBurnbackTime = 0;  ///< burnback time: the arc burns on after the wire feed has stopped
    int presetPostflow = 0;      ///< postflow: shielding gas after the arc
    int presetPostflowTime = 0;  ///< postflow time
    int retractDistance = 0;     ///< wire retract distance
    int retractEnable = 0;       ///< 0 if wire retract is off, another number if it is on
    int weldTackTime = 0;        ///< tack time of the weld
    int presetProfileMode = 0;   ///< profile: mode, a code
    int profileArcLength = 0;    ///< profile: arc length
    int profileFrequence = 0;    ///< profile: frequency
    int profileSpeed = 0;        ///< profile: speed
    int profileSpeedDelta = 0;   ///< profile: difference of speeds
    int profileVoltage = 0;      ///< profile: arc voltage
    int enablePresetLimits = 0;  ///< 0 if the limits are off, another number if they are on
    int programPartNumber = 0;   ///< part number of the weld program
    int presetSynergic = 0;      ///< preset of the synergic control

    TELVANE_RECORD(MemorySlotFleetManagementDownloadSettings, Id, ControlByte, presetArcControl,
                   limitArcControlHigh, limitArcControlLow, presetArcLength, limitArcLengthHigh,
                   limitArcLengthLow, presetCurrent, limitCurrentHigh, limitCurrentLow, presetWireFeedSpeed,
                   limitWfsHigh, limitWfsLow, presetVoltage, limitVoltHigh, limitVoltLow, presetSequenceType,
                   triggerSelect, triggerSelectMemory, triggerTackTime, presetWireCleanTime, presetPreflow,
                   presetPreflowTime, presetAutoJogDistance, presetAutoPurgeTime, presetRunInMode,
                   presetRunInSpeed, presetStartMode, presetSureStartTime, startArcLength, startDwellTime,
                   startRampTime, startSpeed, startTackTime, startVoltage, presetCraterMode, craterArcLength,
                   craterDwellTime, craterRampTime, craterSpeed, craterTackTime, craterVoltage,
                   presetBurnbackTime, presetPostflow, presetPostflowTime, retractDistance, retractEnable,
                   weldTackTime, presetProfileMode, profileArcLength, profileFrequence, profileSpeed,
                   profileSpeedDelta, profileVoltage, enablePresetLimits, programPartNumber, presetSynergic)
};

/// Request to set weld controls of one slot: those whose flag is true. Numbers are in device units.
class TELVANE_EXPORT SetMemorySlotSettingsWeldControlRequest : public TelvaneDataTypeBase
{
public:
    int Id = 0;                          ///< number of the slot
    int Voltage = 0;                     ///< new voltage; ignored unless ShouldSetVoltage
    bool ShouldSetVoltage = false;       ///< true to set Voltage
    int ArcLength = 0;                   ///< new arc length; ignored unless ShouldSetArcLength
    bool ShouldSetArcLength = false;     ///< true to set ArcLength
    int WireFeedSpeed = 0;               ///< new wire-feed speed; ignored unless ShouldSetWireFeedSpeed
    bool ShouldSetWireFeedSpeed = false; ///< true to set WireFeedSpeed
    int ArcControl = 0;                  ///< new arc control; ignored unless ShouldSetArcControl
    bool ShouldSetArcControl = false;    ///< true to set ArcControl

    TELVANE_RECORD(SetMemorySlotSettingsWeldControlRequest, Id, Voltage, ShouldSetVoltage, ArcLength,
                   ShouldSetArcLength, WireFeedSpeed, ShouldSetWireFeedSpeed, ArcControl, ShouldSetArcControl)
};

/// Settings of one slot, read from the power source, which defines the meaning and unit of each parameter.
class TELVANE_EXPORT MemorySlotSettingsReport : public TelvaneDataTypeBase
{
public:
    bool IsActive = false; ///< true if this slot is the active one
    int SlotId = 0;        ///< number of the slot
    int ControlByte = 0;   ///< control byte, which the power source defines
    int A = 0;             ///< slot parameter 1
    int B = 0;             ///< slot parameter 2
    int C = 0;             ///< slot parameter 3
    int D = 0;             ///< slot parameter 4
    int E = 0;             ///< slot parameter 5
    int F = 0;             ///< slot parameter 6
    int G = 0;             ///< slot parameter 7
    int H = 0;             ///< slot parameter 8
    int I = 0;             ///< slot parameter 9
    int J = 0;             ///< slot parameter 10
    int K = 0;             ///< slot parameter 11
    int L = 0;             ///< slot parameter 12
    int M = 0;             ///< slot parameter 13
    int N = 0;             ///< slot parameter 14
    int O = 0;             ///< slot parameter 15
    int P = 0;             ///< slot parameter 16
    int Q = 0;             ///< slot parameter 17
    int R = 0;             ///< slot parameter 18
    int S = 0;             ///< slot parameter 19
    int T = 0;             ///< slot parameter 20
    int U = 0;             ///< slot parameter 21
    int V = 0;             ///< slot parameter 22
    int W = 0;             ///< slot parameter 23
    int X = 0;             ///< slot parameter 24
    int Y = 0;             ///< slot parameter 25
    int Z = 0;             ///< slot parameter 26
    int AA = 0;            ///< slot parameter 27
    int AB = 0;            ///< slot parameter 28
    int AC = 0;            ///< slot parameter 29
    int AD = 0;            ///< slot parameter 30
    int AE = 0;            ///< slot parameter 31
    int AF = 0;            ///< slot parameter 32
    int AG = 0;            ///< slot parameter 33
    int AH = 0;            ///< slot parameter 34
    int AI = 0;            ///< slot parameter 35
    int AJ = 0;            ///< slot parameter 36
    int AK = 0;            ///< slot parameter 37
    int AL = 0;            ///< slot parameter 38
    int AM = 0;            ///< slot parameter 39
    std::string PartText;  ///< text for the part that the slot is for

    TELVANE_RECORD(MemorySlotSettingsReport, IsActive, SlotId, ControlByte, A, B, C, D, E, F, G, H, I, J, K,
                   L, M, N, O, P, Q, R, S, T, U, V, W, X, Y, Z, AA, AB, AC, AD, AE, AF, AG, AH, AI, AJ, AK,
                   AL, AM, PartText)
};

/// Reply to a SetMemorySlotSettingsWeldControlRequest with the values now in force, in device units.
class TELVANE_EXPORT MemorySlotSettingsWeldControlReply : public TelvaneDataTypeBase
{
public:
    int Id = 0;            ///< number of the slot
    int Voltage = 0;       ///< arc voltage of the slot
    int ArcLength = 0;     ///< arc length of the slot
    int WireFeedSpeed = 0; ///< wire-feed speed of the slot
    int ArcControl = 0;    ///< arc control of the slot

    TELVANE_RECORD(MemorySlotSettingsWeldControlReply, Id, Voltage, ArcLength, WireFeedSpeed, ArcControl)
};

/// Settings that apply to all slots, in device units.
class TELVANE_EXPORT MemorySlotSettingsGlobal : public TelvaneDataTypeBase
{
public:
    int PresetJogSpeed = 0;  ///< speed at which wire is jogged (fed without an arc)
    int AutoJogDistance = 0; ///< length of wire that is jogged (fed without an arc) automatically
    int AutoPurgeTime = 0;   ///< time of the automatic gas purge
    int LockCode = 0;        ///< lock code; the library does not check it

    TELVANE_RECORD(MemorySlotSettingsGlobal, PresetJogSpeed, AutoJogDistance, AutoPurgeTime, LockCode)
};

/// Request to switch the limits of the slots on or off.
class TELVANE_EXPORT MemorySlotLimitsEnable : public TelvaneDataTypeBase
{
public:
    bool Enable = false; ///< true to apply the limits

    TELVANE_RECORD(MemorySlotLimitsEnable, Enable)
};

} // namespace Telvane
