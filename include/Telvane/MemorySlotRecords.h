/// \file
/// Weld settings stored in the power source's memory slots, and the requests and replies around them.
///
/// The records carry every setting as a whole number. Its unit and resolution are the power source's, and no
/// number is range-checked.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// Asks for a report of the weld-process library, written as JSON to a file.
class TELVANE_EXPORT WeldProcessLibraryRequest : public TelvaneDataTypeBase
{
public:
    std::string JsonFilePath;   ///< path of the JSON file
    std::string LibraryJsonKey; ///< JSON key of the library

    TELVANE_RECORD(WeldProcessLibraryRequest, JsonFilePath, LibraryJsonKey)
};

/// Answers a WeldProcessLibraryRequest.
class TELVANE_EXPORT WeldProcessLibraryReport : public TelvaneDataTypeBase
{
public:
    bool IsJsonReportReady = false; ///< the JSON report has been written and is ready

    TELVANE_RECORD(WeldProcessLibraryReport, IsJsonReportReady)
};

/// Asks for the settings of memory slots.
class TELVANE_EXPORT GetMemorySlotSettingsRequest : public TelvaneDataTypeBase
{
public:
    bool All = false; ///< the settings of all slots are asked for

    TELVANE_RECORD(GetMemorySlotSettingsRequest, All)
};

/// Announces a download of slots.
class TELVANE_EXPORT MemorySlotDownloadSummary : public TelvaneDataTypeBase
{
public:
    int NumberOfIncomingSlots = 0; ///< how many slot records follow

    TELVANE_RECORD(MemorySlotDownloadSummary, NumberOfIncomingSlots)
};

/// The complete settings of one slot as downloaded from fleet management.
class TELVANE_EXPORT MemorySlotFleetManagementDownloadSettings : public TelvaneDataTypeBase
{
public:
    int Id = 0;                    ///< slot number
    int ControlByte = 0;           ///< control byte
    int presetArcControl = 0;      ///< arc control preset
    int limitArcControlHigh = 0;   ///< upper limit of the arc control
    int limitArcControlLow = 0;    ///< lower limit of the arc control
    int presetArcLength = 0;       ///< arc length preset
    int limitArcLengthHigh = 0;    ///< upper limit of the arc length
    int limitArcLengthLow = 0;     ///< lower limit of the arc length
    int presetCurrent = 0;         ///< current preset
    int limitCurrentHigh = 0;      ///< upper limit of the current
    int limitCurrentLow = 0;       ///< lower limit of the current
    int presetWireFeedSpeed = 0;   ///< wire-feed speed preset
    int limitWfsHigh = 0;          ///< upper limit of the wire-feed speed
    int limitWfsLow = 0;           ///< lower limit of the wire-feed speed
    int presetVoltage = 0;         ///< voltage preset
    int limitVoltHigh = 0;         ///< upper limit of the voltage
    int limitVoltLow = 0;          ///< lower limit of the voltage
    int presetSequenceType = 0;    ///< sequence type
    int triggerSelect = 0;         ///< trigger selection
    int triggerSelectMemory = 0;   ///< trigger memory selection
    int triggerTackTime = 0;       ///< trigger tack time
    int presetWireCleanTime = 0;   ///< wire clean time
    int presetPreflow = 0;         ///< preflow
    int presetPreflowTime = 0;     ///< preflow time
    int presetAutoJogDistance = 0; ///< automatic jog distance
    int presetAutoPurgeTime = 0;   ///< automatic purge time
    int presetRunInMode = 0;       ///< run-in mode
    int presetRunInSpeed = 0;      ///< run-in speed
    int presetStartMode = 0;       ///< start-of-weld mode
    int presetSureStartTime = 0;   ///< start of weld: sure-start time
    int startArcLength = 0;        ///< start of weld: arc length
    int startDwellTime = 0;        ///< start of weld: dwell time
    int startRampTime = 0;         ///< start of weld: ramp time
    int startSpeed = 0;            ///< start of weld: speed
    int startTackTime = 0;         ///< start of weld: tack time
    int startVoltage = 0;          ///< start of weld: voltage
    int presetCraterMode = 0;      ///< crater (end-of-weld) mode
    int craterArcLength = 0;       ///< crater: arc length
    int craterDwellTime = 0;       ///< crater: dwell time
    int craterRampTime = 0;        ///< crater: ramp time
    int craterSpeed = 0;           ///< crater: speed
    int craterTackTime = 0;        ///< crater: tack time
    int craterVoltage = 0;         ///< crater: voltage
    int presetBurnbackTime = 0;    ///< burnback time
    int presetPostflow = 0;        ///< postflow
    int presetPostflowTime = 0;    ///< postflow time
    int retractDistance = 0;       ///< wire retract distance
    int retractEnable = 0;         ///< wire retract enabled, carried as an integer
    int weldTackTime = 0;          ///< weld tack time
    int presetProfileMode = 0;     ///< profile mode
    int profileArcLength = 0;      ///< profile: arc length
    int profileFrequence = 0;      ///< profile: frequency
    int profileSpeed = 0;          ///< profile: speed
    int profileSpeedDelta = 0;     ///< profile: difference of speed
    int profileVoltage = 0;        ///< profile: voltage
    int enablePresetLimits = 0;    ///< limits switched on, carried as an integer
    int programPartNumber = 0;     ///< program part number
    int presetSynergic = 0;        ///< synergic preset

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

/// Sets some of the four weld-control values of one slot: those whose flag is true.
class TELVANE_EXPORT SetMemorySlotSettingsWeldControlRequest : public TelvaneDataTypeBase
{
public:
    int Id = 0;                          ///< slot number
    int Voltage = 0;                     ///< voltage to set
    bool ShouldSetVoltage = false;       ///< set the voltage
    int ArcLength = 0;                   ///< arc length to set
    bool ShouldSetArcLength = false;     ///< set the arc length
    int WireFeedSpeed = 0;               ///< wire-feed speed to set
    bool ShouldSetWireFeedSpeed = false; ///< set the wire-feed speed
    int ArcControl = 0;                  ///< arc control to set
    bool ShouldSetArcControl = false;    ///< set the arc control

    TELVANE_RECORD(SetMemorySlotSettingsWeldControlRequest, Id, Voltage, ShouldSetVoltage, ArcLength,
                   ShouldSetArcLength, WireFeedSpeed, ShouldSetWireFeedSpeed, ArcControl, ShouldSetArcControl)
};

/// The settings of one slot as read back. What each lettered parameter means is the power source's.
class TELVANE_EXPORT MemorySlotSettingsReport : public TelvaneDataTypeBase
{
public:
    bool IsActive = false; ///< the slot is the active one
    int SlotId = 0;        ///< slot number
    int ControlByte = 0;   ///< control byte
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
    std::string PartText;  ///< part text of the slot

    TELVANE_RECORD(MemorySlotSettingsReport, IsActive, SlotId, ControlByte, A, B, C, D, E, F, G, H, I, J, K,
                   L, M, N, O, P, Q, R, S, T, U, V, W, X, Y, Z, AA, AB, AC, AD, AE, AF, AG, AH, AI, AJ, AK,
                   AL, AM, PartText)
};

/// Answers a SetMemorySlotSettingsWeldControlRequest with the values now in force.
class TELVANE_EXPORT MemorySlotSettingsWeldControlReply : public TelvaneDataTypeBase
{
public:
    int Id = 0;            ///< slot number
    int Voltage = 0;       ///< voltage
    int ArcLength = 0;     ///< arc length
    int WireFeedSpeed = 0; ///< wire-feed speed
    int ArcControl = 0;    ///< arc control

    TELVANE_RECORD(MemorySlotSettingsWeldControlReply, Id, Voltage, ArcLength, WireFeedSpeed, ArcControl)
};

/// The settings that all slots share.
class TELVANE_EXPORT MemorySlotSettingsGlobal : public TelvaneDataTypeBase
{
public:
    int PresetJogSpeed = 0;  ///< jog speed
    int AutoJogDistance = 0; ///< automatic jog distance
    int AutoPurgeTime = 0;   ///< automatic purge time
    int LockCode = 0;        ///< lock code; carried, not checked

    TELVANE_RECORD(MemorySlotSettingsGlobal, PresetJogSpeed, AutoJogDistance, AutoPurgeTime, LockCode)
};

/// Switches the slot limits on or off.
class TELVANE_EXPORT MemorySlotLimitsEnable : public TelvaneDataTypeBase
{
public:
    bool Enable = false; ///< limits enabled

    TELVANE_RECORD(MemorySlotLimitsEnable, Enable)
};

} // namespace Telvane
