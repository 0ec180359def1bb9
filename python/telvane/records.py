"""The record classes. Written by scripts/update-python.

Fields are called as their keys in JSON, and printed in this order.
"""
from __future__ import annotations

from dataclasses import dataclass, field
from datetime import datetime
from typing import Dict, List, Type

from ._codecs import EPOCH
from ._record import DateTime, Record
from .codes import AlloyID, GasID, PSCommandType, ProcessID, UIMenuStatusString, WireSize, WireType

__all__ = [
    "CATALOGUE", "AdminAccessSettings", "ApiErrorMessage", "AutomationStatus", "CanTelvaneUpdateCode",
    "CarrierFileInfo", "CarrierInfo", "ConfigReply", "ConfigRequest", "DataStatus", "DateTime",
    "DeviceCapabilities", "DeviceIdentity", "DeviceSettings", "ErrorLogType", "FerroluxLedFlags",
    "FileInfoType", "FirmwareUpdateEnd", "FirmwareUpdateStart", "FlagLabelType", "FlagType",
    "GetMemorySlotSettingsRequest", "HALInfo", "HALStatus", "IncomingCommands", "LedSettings", "LogData",
    "LtdTorchButtonRequest", "LtdTorchConfiguration", "MachineSettings", "MemorySlotDownloadSummary",
    "MemorySlotFleetManagementDownloadSettings", "MemorySlotLimitsEnable", "MemorySlotSettingsGlobal",
    "MemorySlotSettingsReport", "MemorySlotSettingsWeldControlReply", "MessageSerialType", "NetworkInfo",
    "PSCommand", "PSCommandBase", "PSFeedback", "PSFeedbackBase", "PSFunctionRequest", "PSMemorySlot",
    "PSMemorySlotBase", "PSProgramCommand", "PSWeldCommand", "PSWeldCommandBase", "PostConfig",
    "PowerDownStatus", "PowerSourceConnection", "ProcessSettings", "ProgramType", "RequestType",
    "RtaModuleData", "RtaModuleDataRequest", "RtaModuleInBoundData", "RtaModuleOutBoundData",
    "SetMemorySlotSettingsWeldControlRequest", "SocketConnectionStatus", "SocketInfo", "SystemHealth",
    "SystemLedStatus", "SystemLockMemoryState", "TelvaneDataConfirmation", "TelvaneDataFullStatus",
    "TelvaneError", "TelvaneLedStatus", "TimeSyncType", "TimeType", "TorchDisable", "UIMenuStatus",
    "USBDetection", "UnitValueDoublePair", "UnitValuePair", "ValueLabelType", "ValueType", "WeldMetrics",
    "WeldProcessLibraryReport", "WeldProcessLibraryRequest", "WeldTraceData", "WeldTraceDataPoint",
    "WeldTraceDataPointDefinition", "WeldTriggerEnd", "WeldTriggerStart",
]


@dataclass(eq=False)
class AdminAccessSettings(Record):
    """Access of an administrator to the module for maintenance."""

    expiryDate: str = ""
    """Date after which the access ends, as text; the format is the publisher's."""
    enableShell: bool = False
    """True if a maintenance shell is allowed."""
    enableConsole: bool = False
    """True if a login at the console is allowed."""


@dataclass(eq=False)
class ApiErrorMessage(Record):
    """An error that a programming interface of the module returned."""

    ErrorCode: int = 0
    """Error code of that interface; the library defines none."""
    ErrorString: str = ""
    """Error message for people."""


@dataclass(eq=False)
class AutomationStatus(Record):
    """State of the module's automation links."""

    PowersourceConnection: bool = False
    """True while the power source is connected."""
    ModbusConnected: bool = False
    """True while a Modbus link is connected."""
    ModbusActive: bool = False
    """True while Modbus is active."""
    EIPConnected: bool = False
    """True while an EIP (EtherNet/IP) link is connected."""
    StatusCounter: int = 0
    """Counter that the publisher increments; the library does not."""
    TouchSenseEnabled: bool = False
    """True while touch sensing is enabled."""
    CoProcLinkUp: bool = False
    """True while the link to the co-processor is up."""


@dataclass(eq=False)
class CanTelvaneUpdateCode(Record):
    """Reply to the question whether the module may update its code."""

    Code: int = 0
    """The answer, a code of the publisher."""


@dataclass(eq=False)
class CarrierFileInfo(Record):
    """A file for or from the carrier board."""

    fileFullPath: str = ""
    """Path, with the directory."""
    fileName: str = ""
    """Name without the directory."""
    fileSize: int = 0
    """Size, in bytes."""


@dataclass(eq=False)
class CarrierInfo(Record):
    """Versions of the software on the carrier board."""

    appVersion: str = ""
    """Version of the application."""
    bootloaderVersion: str = ""
    """Version of the boot loader."""
    HALVersion: int = 0
    """Version of the hardware layer."""


@dataclass(eq=False)
class ConfigReply(Record):
    """Reply to a ConfigRequest. It looks like a PostConfig in JSON but is a class of its own."""

    Key: str = ""
    """Name of the value."""
    Value: str = ""
    """The value, as text."""


@dataclass(eq=False)
class ConfigRequest(Record):
    """Request for a configuration value."""

    Key: str = ""
    """Name of the value."""


@dataclass(eq=False)
class DataStatus(Record):
    """Time to live of data."""

    ttl: int = 0
    """Time to live; the unit is the publisher's."""


@dataclass(eq=False)
class DeviceCapabilities(Record):
    """What the connected power source can report."""

    allowsFeederAttachment: bool = False
    """True if a wire feeder can be attached."""
    realTimeStatusDrivenByEvents: bool = False
    """True if its real-time status is driven by events."""
    reportsBatteryVoltage: bool = False
    """True if it reports the voltage of its battery."""
    reportsVolts: bool = False
    """True if it reports the arc voltage."""
    reportsAmps: bool = False
    """True if it reports the current."""
    reportsWireFeedSpeed: bool = False
    """True if it reports the wire-feed speed."""
    reportsProgramNumber: bool = False
    """True if it reports the number of the weld program."""
    reportsProcess: bool = False
    """True if it reports the weld process."""
    reportsPowerSupplySerialNumber: bool = False
    """True if it reports its serial number."""
    reportsGasType: bool = False
    """True if it reports the shielding gas."""
    reportsWireAlloy: bool = False
    """True if it reports the wire alloy."""
    reportsWireDiameter: bool = False
    """True if it reports the wire diameter."""
    reportsLifetimeArcHours: bool = False
    """True if it reports its accumulated arc hours."""
    reportsWeldEvents: bool = False
    """True if it reports start and end of each weld."""
    reportsPower: bool = False
    """True if it reports the arc power."""
    reportsGasFlowRate: bool = False
    """True if it reports the gas flow."""


@dataclass(eq=False)
class DeviceIdentity(Record):
    """Identity of the power source and the wire feeder."""

    powerSourceType: int = 0
    """Type of the power source, a code of its maker."""
    powerSourceStockNumber: str = ""
    """Number of the power source in its maker's catalogue."""
    powerSourceReportedSerialNumber: str = ""
    """Serial number as the power source reports it."""
    powerSourceFirmwareRev: str = ""
    """Firmware revision of the power source."""
    programSetPartNumber: str = ""
    """Part number of the weld programs that are loaded."""
    standardLibraryPartNUmber: str = ""
    """Part number of the standard weld-program library."""
    custommLibraryPartNumber: str = ""
    """Part number of the custom weld-program library."""
    feederType: int = 0
    """Type of the wire feeder, a code of its maker."""
    feederSerialNumber: str = ""
    """Serial number of the feeder."""
    feederFirmwareRev: str = ""
    """Firmware revision of the feeder."""
    feederIsDual: int = 0
    """0 for a single wire feeder, another number for a dual one."""
    cultureSelection: int = 0
    """Language and region, a code of the power source."""


@dataclass(eq=False)
class DeviceSettings(Record):
    """Settings and last known state of the connected equipment, as the module keeps them."""

    timestamp: datetime = EPOCH
    """When the module read them."""
    operatorIDVersion: str = ""
    """Version of the data that identify operators."""
    operatorID: str = ""
    """Identifier of the current operator."""
    currentSensorConfig: int = 0
    """Configuration code of the current sensor."""
    batteryVoltage: float = 0.0
    """Battery voltage; the unit is the publisher's."""
    lifetimeArc: float = 0.0
    """Accumulated arc time; the unit is the publisher's."""
    powerSourceDescription: str = ""
    """Description of the power source for people."""
    powerSourceStockNumber: str = ""
    """Number of the power source in its maker's catalogue."""
    powerSourceReportedSerialNumber: str = ""
    """Serial number as the power source reports it."""
    powerSourceFirmwareRev: str = ""
    """Firmware revision of the power source."""
    feederDescription: str = ""
    """Description of the wire feeder for people."""
    feederSerialNumber: str = ""
    """Serial number of the feeder."""
    feederFirmwareRev: str = ""
    """Firmware revision of the feeder."""
    messageSerial: int = 0
    """Publisher's number for the message; see MessageSerialType."""
    arcStartThreshold: int = 0
    """Threshold for the start of an arc; the unit is the publisher's."""


@dataclass(eq=False)
class ErrorLogType(Record):
    """One entry of the error log."""

    code: str = ""
    """Error code of the publisher, as text; SystemHealth::code is a number."""
    message: str = ""
    """Error message for people."""
    timestamp: datetime = EPOCH
    """When the error occurred."""
    messageSerial: int = 0
    """Publisher's number for the message; see MessageSerialType."""


@dataclass(eq=False)
class FerroluxLedFlags(Record):
    """Lights of an attached Ferrolux unit."""

    LedFlags: int = 0
    """The flags of the lights in one integer, bits as the unit defines them."""
    Network: int = 0
    """State of the network light, a code of the unit."""
    NetworkAmber: bool = False
    """True if the network light is amber."""
    PartArrowCircle: bool = False
    """True if the part light (arrow and circle) is on."""
    PartAmber: bool = False
    """True if the part light is amber."""
    Trigger: bool = False
    """True if the trigger light is on."""
    Gear: bool = False
    """True if the gear light is on."""
    TriggerGearAmber: bool = False
    """True if the trigger and gear lights are amber."""
    User: bool = False
    """True if the user light is on."""
    UserAmber: bool = False
    """True if the user light is amber."""


@dataclass(eq=False)
class FileInfoType(Record):
    """A file for another process."""

    typeEnum: int = 0
    """Kind of file, a code of the publisher."""
    fileName: str = ""
    """Name without the directory."""
    filePath: str = ""
    """Directory, or the full path."""


@dataclass(eq=False)
class FirmwareUpdateEnd(Record):
    """End of a firmware update."""

    partThatWasUpdated: str = ""
    """Name of the part that was updated."""
    wasUpdateSuccessful: bool = False
    """True if the update succeeded."""


@dataclass(eq=False)
class FirmwareUpdateStart(Record):
    """Start of a firmware update."""

    partGettingUpdated: str = ""
    """Name of the part that is updated."""


@dataclass(eq=False)
class FlagLabelType(Record):
    """A flag with a label for its function."""

    Label: int = 0
    """The function, a number of the power source."""
    Flag: bool = False
    """True for on."""
    Status: bool = False
    """True once the flag has been set."""


@dataclass(eq=False)
class FlagType(Record):
    """A flag with a status."""

    Flag: bool = False
    """True for on."""
    Status: bool = False
    """True once the flag has been set."""


@dataclass(eq=False)
class GetMemorySlotSettingsRequest(Record):
    """Request for the settings of memory slots."""

    All: bool = False
    """True to request the settings of all slots."""


@dataclass(eq=False)
class HALInfo(Record):
    """Identity of the module's hardware."""

    serialNumber: str = ""
    """Serial number of the module."""
    machineType: str = ""
    """Type of the machine, as text."""
    hardwareRevisionNumber: int = 0
    """Revision of the module's hardware."""
    firmwareImageType: int = 0
    """Type of the running firmware image, a code of the publisher."""
    revisionNumber: int = 0
    """Revision of the running firmware."""


@dataclass(eq=False)
class HALStatus(Record):
    """State of the module's hardware layer."""

    ready: bool = False
    """True once the hardware layer is ready."""


@dataclass(eq=False)
class IncomingCommands(Record):
    """Commands and settings from outside the module, for its processes."""

    firmwareFilePath: str = ""
    """Path of a firmware file to install; empty for none."""
    currentSensorType: int = 0
    """Type code of the current sensor; see the next member."""
    currentSensorTypeReceived: bool = False
    """True if currentSensorType was received."""
    arcStartThreshold: float = 0.0
    """Threshold for the start of an arc; the unit is the publisher's."""
    logFilesAreRequested: bool = False
    """True to send the log files."""
    operatorName: str = ""
    """Name of the operator."""


@dataclass(eq=False)
class LedSettings(Record):
    """Commanded state of each light: 0 for off, another number for a state that the publisher defines."""

    cloudGreenLed: int = 0
    """Green light of the cloud connection."""
    cloudYellowLed: int = 0
    """Yellow light of the cloud connection."""
    wifiGreenLed: int = 0
    """Green light of the wireless link."""
    wifiYellowLed: int = 0
    """Yellow light of the wireless link."""
    ethernetGreenLed: int = 0
    """Green light of the wired link."""
    ethernetYellowLed: int = 0
    """Yellow light of the wired link."""
    usbGreenLed: int = 0
    """Green light of the USB port, which has no yellow one."""
    opIDGreenLed: int = 0
    """Green light of the operator identification."""
    opIDYellowLed: int = 0
    """Yellow light of the operator identification."""
    robotConnectedLed: int = 0
    """Light for a connected robot interface."""
    robotActivityLed: int = 0
    """Light for activity of the robot interface."""
    touchSenseEnabledBool: int = 0
    """Light for touch sensing; an integer despite its name."""


@dataclass(eq=False)
class LogData(Record):
    """One line of a log."""

    log: str = ""
    """Text of the line."""


@dataclass(eq=False)
class LtdTorchButtonRequest(Record):
    """Use of a torch button."""

    EventEnum: int = 0
    """What was done with the button, a code of the publisher."""


@dataclass(eq=False)
class LtdTorchConfiguration(Record):
    """Torches of a dual setup that are enabled; the opposite of TorchDisable."""

    EnabledLeft: bool = False
    """True if the left torch is enabled."""
    EnabledRight: bool = False
    """True if the right torch is enabled."""


@dataclass(eq=False)
class UnitValueDoublePair(Record):
    """A quantity with its unit, as a decimal number."""

    Unit: str = ""
    """Unit of Value, for example "A"."""
    Value: float = 0.0
    """Magnitude, in the unit that Unit holds."""


@dataclass(eq=False)
class MachineSettings(Record):
    """Set points of the power source when a weld starts."""

    CommandVoltage: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Set point of the arc voltage."""
    CommandAmperage: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Set point of the current."""
    CommandWFS: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Set point of the wire-feed speed."""
    CommandArcControl: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Set point of the arc control."""


@dataclass(eq=False)
class MemorySlotDownloadSummary(Record):
    """Notice that settings of slots are going to be downloaded."""

    NumberOfIncomingSlots: int = 0
    """Count of MemorySlotFleetManagementDownloadSettings records that follow."""


@dataclass(eq=False)
class MemorySlotFleetManagementDownloadSettings(Record):
    """Complete settings of one slot, downloaded from fleet management. Numbers are in device units."""

    Id: int = 0
    """Number of the slot."""
    ControlByte: int = 0
    """Control byte, which the power source defines."""
    presetArcControl: int = 0
    """Preset of the arc control."""
    limitArcControlHigh: int = 0
    """Upper limit of the arc control."""
    limitArcControlLow: int = 0
    """Lower limit of the arc control."""
    presetArcLength: int = 0
    """Preset of the arc length."""
    limitArcLengthHigh: int = 0
    """Upper limit of the arc length."""
    limitArcLengthLow: int = 0
    """Lower limit of the arc length."""
    presetCurrent: int = 0
    """Preset of the current."""
    limitCurrentHigh: int = 0
    """Upper limit of the current."""
    limitCurrentLow: int = 0
    """Lower limit of the current."""
    presetWireFeedSpeed: int = 0
    """Preset of the wire-feed speed."""
    limitWfsHigh: int = 0
    """Upper limit of the wire-feed speed."""
    limitWfsLow: int = 0
    """Lower limit of the wire-feed speed."""
    presetVoltage: int = 0
    """Preset of the arc voltage."""
    limitVoltHigh: int = 0
    """Upper limit of the arc voltage."""
    limitVoltLow: int = 0
    """Lower limit of the arc voltage."""
    presetSequenceType: int = 0
    """Sequence type, a code."""
    triggerSelect: int = 0
    """Trigger selection, a code."""
    triggerSelectMemory: int = 0
    """Selection of memory slots by the trigger, a code."""
    triggerTackTime: int = 0
    """Tack time with the trigger."""
    presetWireCleanTime: int = 0
    """Wire cleaning time."""
    presetPreflow: int = 0
    """Preflow: shielding gas before the arc."""
    presetPreflowTime: int = 0
    """Preflow time."""
    presetAutoJogDistance: int = 0
    """Length of wire that is jogged (fed without an arc) automatically."""
    presetAutoPurgeTime: int = 0
    """Time of the automatic gas purge."""
    presetRunInMode: int = 0
    """Run-in mode, a code; run-in is the feeding of wire until the arc ignites."""
    presetRunInSpeed: int = 0
    """Wire-feed speed until the arc ignites."""
    presetStartMode: int = 0
    """Start of weld: mode, a code."""
    presetSureStartTime: int = 0
    """Start of weld: sure-start time."""
    startArcLength: int = 0
    """Start of weld: arc length."""
    startDwellTime: int = 0
    """Start of weld: dwell time."""
    startRampTime: int = 0
    """Start of weld: ramp time."""
    startSpeed: int = 0
    """Start of weld: speed."""
    startTackTime: int = 0
    """Start of weld: tack time."""
    startVoltage: int = 0
    """Start of weld: arc voltage."""
    presetCraterMode: int = 0
    """End crater: mode, a code."""
    craterArcLength: int = 0
    """End crater: arc length."""
    craterDwellTime: int = 0
    """End crater: dwell time."""
    craterRampTime: int = 0
    """End crater: ramp time."""
    craterSpeed: int = 0
    """End crater: speed."""
    craterTackTime: int = 0
    """End crater: tack time."""
    craterVoltage: int = 0
    """End crater: arc voltage."""
    presetBurnbackTime: int = 0
    """Burnback time: the arc burns on after the wire feed has stopped."""
    presetPostflow: int = 0
    """Postflow: shielding gas after the arc."""
    presetPostflowTime: int = 0
    """Postflow time."""
    retractDistance: int = 0
    """Wire retract distance."""
    retractEnable: int = 0
    """0 if wire retract is off, another number if it is on."""
    weldTackTime: int = 0
    """Tack time of the weld."""
    presetProfileMode: int = 0
    """Profile: mode, a code."""
    profileArcLength: int = 0
    """Profile: arc length."""
    profileFrequence: int = 0
    """Profile: frequency."""
    profileSpeed: int = 0
    """Profile: speed."""
    profileSpeedDelta: int = 0
    """Profile: difference of speeds."""
    profileVoltage: int = 0
    """Profile: arc voltage."""
    enablePresetLimits: int = 0
    """0 if the limits are off, another number if they are on."""
    programPartNumber: int = 0
    """Part number of the weld program."""
    presetSynergic: int = 0
    """Preset of the synergic control."""


@dataclass(eq=False)
class MemorySlotLimitsEnable(Record):
    """Request to switch the limits of the slots on or off."""

    Enable: bool = False
    """True to apply the limits."""


@dataclass(eq=False)
class MemorySlotSettingsGlobal(Record):
    """Settings that apply to all slots, in device units."""

    PresetJogSpeed: int = 0
    """Speed at which wire is jogged (fed without an arc)."""
    AutoJogDistance: int = 0
    """Length of wire that is jogged (fed without an arc) automatically."""
    AutoPurgeTime: int = 0
    """Time of the automatic gas purge."""
    LockCode: int = 0
    """Lock code; the library does not check it."""


@dataclass(eq=False)
class MemorySlotSettingsReport(Record):
    """Settings of one slot, read from the power source, which defines the meaning and unit of each parameter."""

    IsActive: bool = False
    """True if this slot is the active one."""
    SlotId: int = 0
    """Number of the slot."""
    ControlByte: int = 0
    """Control byte, which the power source defines."""
    A: int = 0
    """Slot parameter 1."""
    B: int = 0
    """Slot parameter 2."""
    C: int = 0
    """Slot parameter 3."""
    D: int = 0
    """Slot parameter 4."""
    E: int = 0
    """Slot parameter 5."""
    F: int = 0
    """Slot parameter 6."""
    G: int = 0
    """Slot parameter 7."""
    H: int = 0
    """Slot parameter 8."""
    I: int = 0
    """Slot parameter 9."""
    J: int = 0
    """Slot parameter 10."""
    K: int = 0
    """Slot parameter 11."""
    L: int = 0
    """Slot parameter 12."""
    M: int = 0
    """Slot parameter 13."""
    N: int = 0
    """Slot parameter 14."""
    O: int = 0
    """Slot parameter 15."""
    P: int = 0
    """Slot parameter 16."""
    Q: int = 0
    """Slot parameter 17."""
    R: int = 0
    """Slot parameter 18."""
    S: int = 0
    """Slot parameter 19."""
    T: int = 0
    """Slot parameter 20."""
    U: int = 0
    """Slot parameter 21."""
    V: int = 0
    """Slot parameter 22."""
    W: int = 0
    """Slot parameter 23."""
    X: int = 0
    """Slot parameter 24."""
    Y: int = 0
    """Slot parameter 25."""
    Z: int = 0
    """Slot parameter 26."""
    AA: int = 0
    """Slot parameter 27."""
    AB: int = 0
    """Slot parameter 28."""
    AC: int = 0
    """Slot parameter 29."""
    AD: int = 0
    """Slot parameter 30."""
    AE: int = 0
    """Slot parameter 31."""
    AF: int = 0
    """Slot parameter 32."""
    AG: int = 0
    """Slot parameter 33."""
    AH: int = 0
    """Slot parameter 34."""
    AI: int = 0
    """Slot parameter 35."""
    AJ: int = 0
    """Slot parameter 36."""
    AK: int = 0
    """Slot parameter 37."""
    AL: int = 0
    """Slot parameter 38."""
    AM: int = 0
    """Slot parameter 39."""
    PartText: str = ""
    """Text for the part that the slot is for."""


@dataclass(eq=False)
class MemorySlotSettingsWeldControlReply(Record):
    """Reply to a SetMemorySlotSettingsWeldControlRequest with the values now in force, in device units."""

    Id: int = 0
    """Number of the slot."""
    Voltage: int = 0
    """Arc voltage of the slot."""
    ArcLength: int = 0
    """Arc length of the slot."""
    WireFeedSpeed: int = 0
    """Wire-feed speed of the slot."""
    ArcControl: int = 0
    """Arc control of the slot."""


@dataclass(eq=False)
class MessageSerialType(Record):
    """Serial number of a message."""

    messageSerial: int = 0
    """The number, equal to messageSerial of the message."""


@dataclass(eq=False)
class NetworkInfo(Record):
    """State of the network links."""

    timestamp: datetime = EPOCH
    """When the state was read."""
    signalStrength: int = 0
    """Strength of the wireless signal; the unit is the publisher's."""
    wiFiIsConnected: bool = False
    """True if the wireless link is connected."""
    ethernetIsConnected: bool = False
    """True if the wired link is connected."""


@dataclass(eq=False)
class ValueLabelType(Record):
    """An integer with a label for its quantity. Commands hold their modes and values as vectors of these."""

    Label: int = 0
    """The quantity, a number of PSValues_e or ProgramCommand_e."""
    Value: int = 0
    """The value; the power source defines the unit for each label."""
    Status: bool = False
    """True once the value has been set."""


@dataclass(eq=False)
class PSCommandBase(Record):
    """Data of a command."""

    mLabel: str = ""
    """Name of the command, for people."""
    mCommandType: PSCommandType = PSCommandType(0)
    """Kind."""
    mResponseFlag: bool = False
    """True to request a response."""
    mPublishResponse: bool = False
    """True to publish the response on the bus."""
    mModes: List[ValueLabelType] = field(default_factory=list, metadata={"limit": 100})
    """Modes, in the order in which they are applied."""
    mValues: List[ValueLabelType] = field(default_factory=list, metadata={"limit": 100})
    """Values, in the order in which they are applied."""


@dataclass(eq=False)
class PSCommand(PSCommandBase):
    """General command with any number of modes and values."""

    mLabel: str = "PSCommand"
    """Name of the command, for people."""
    mCommandType: PSCommandType = PSCommandType(3)
    """Kind."""
    mResponseFlag: bool = False
    """True to request a response."""
    mPublishResponse: bool = False
    """True to publish the response on the bus."""
    mModes: List[ValueLabelType] = field(default_factory=list, metadata={"limit": 100})
    """Modes, in the order in which they are applied."""
    mValues: List[ValueLabelType] = field(default_factory=list, metadata={"limit": 100})
    """Values, in the order in which they are applied."""


@dataclass(eq=False)
class PSFeedbackBase(Record):
    """Data of a feedback record."""

    mLabel: str = ""
    """Name of the record, for people."""
    mPSReady: bool = False
    """True if the power source reports that it is ready."""
    mWeldFlags: List[bool] = field(default_factory=lambda: [False] * 4, metadata={"size": 4})
    """Reported weld flags, indexed by PSWeldFlags_e."""
    mPSValues: List[int] = field(default_factory=lambda: [0] * 24, metadata={"size": 24})
    """Values, indexed by PSFeedback_e, each in its own unit."""


@dataclass(eq=False)
class PSFeedback(PSFeedbackBase):
    """Feedback record with access to flags and values by index."""

    mLabel: str = "PSFeedback"
    """Name of the record, for people."""
    mPSReady: bool = False
    """True if the power source reports that it is ready."""
    mWeldFlags: List[bool] = field(default_factory=lambda: [False] * 4, metadata={"size": 4})
    """Reported weld flags, indexed by PSWeldFlags_e."""
    mPSValues: List[int] = field(default_factory=lambda: [0] * 24, metadata={"size": 24})
    """Values, indexed by PSFeedback_e, each in its own unit."""


@dataclass(eq=False)
class PSFunctionRequest(Record):
    """Request for a function of the power source."""

    RequestID: int = 0
    """The function, a number of the power source."""
    Value: int = 0
    """Argument of the function; the power source defines its unit."""


@dataclass(eq=False)
class ProgramType(Record):
    """One weld program: a process and its consumables, as codes of Consumables.h."""

    PROC: ProcessID = ProcessID(0)
    """Weld process."""
    WT: WireType = WireType(0)
    """Wire type."""
    WS: WireSize = WireSize(0)
    """Wire size."""
    GT: GasID = GasID(0)
    """Shielding gas."""


@dataclass(eq=False)
class PSMemorySlotBase(Record):
    """Data of a memory slot."""

    mMemory: int = 0
    """Number of the slot."""
    mPrograms: List[ProgramType] = field(default_factory=list, metadata={"limit": 100})
    """Weld programs of the slot, in order."""


@dataclass(eq=False)
class PSMemorySlot(PSMemorySlotBase):
    """Memory slot with access to its number and programs."""

    mMemory: int = 0
    """Number of the slot."""
    mPrograms: List[ProgramType] = field(
        default_factory=lambda: [ProgramType() for _ in range(8)], metadata={"limit": 100})
    """Weld programs of the slot, in order."""


@dataclass(eq=False)
class PSProgramCommand(PSCommandBase):
    """Command that selects a weld program with four entries of mValues, one for each ProgramCommand_e.  The
    constructor creates the four entries. After ResetBuffers() there are none, and after unpackaging as many as
    were received. Only unpackaging and copy() restore them.
    """

    mLabel: str = "PSProgramCommand"
    """Name of the command, for people."""
    mCommandType: PSCommandType = PSCommandType(4)
    """Kind."""
    mResponseFlag: bool = False
    """True to request a response."""
    mPublishResponse: bool = False
    """True to publish the response on the bus."""
    mModes: List[ValueLabelType] = field(default_factory=list, metadata={"limit": 100})
    """Modes, in the order in which they are applied."""
    mValues: List[ValueLabelType] = field(
        default_factory=lambda: [ValueLabelType() for _ in range(4)], metadata={"limit": 100})
    """Values, in the order in which they are applied."""


@dataclass(eq=False)
class PSWeldCommandBase(Record):
    """Data of a weld command."""

    mLabel: str = ""
    """Name of the command, for people."""
    mCommandType: PSCommandType = PSCommandType(0)
    """Kind."""
    mResponseFlag: bool = False
    """True to request a response."""
    mWeldFlags: List[FlagType] = field(default_factory=lambda: [FlagType() for _ in range(4)], metadata={"size": 4})
    """Weld flags, indexed by PSWeldFlags_e."""


@dataclass(eq=False)
class PSWeldCommand(PSWeldCommandBase):
    """Weld command with access to flags by index."""

    mLabel: str = "PSWeldCommand"
    """Name of the command, for people."""
    mCommandType: PSCommandType = PSCommandType(0)
    """Kind."""
    mResponseFlag: bool = False
    """True to request a response."""
    mWeldFlags: List[FlagType] = field(default_factory=lambda: [FlagType() for _ in range(4)], metadata={"size": 4})
    """Weld flags, indexed by PSWeldFlags_e."""


@dataclass(eq=False)
class PostConfig(Record):
    """Request to set a configuration value."""

    Key: str = ""
    """Name of the value."""
    Value: str = ""
    """New value, as text."""


@dataclass(eq=False)
class PowerDownStatus(Record):
    """Notice that the module is going to power down."""

    isPoweringDown: bool = False
    """True once the power-down has begun."""
    nameOfCaller: str = ""
    """Name of the process that requested it."""
    reasonForPowerdown: str = ""
    """Reason, as a text for people."""


@dataclass(eq=False)
class PowerSourceConnection(Record):
    """Connection of the module to its power source."""

    isConnected: bool = False
    """True while a power source is connected."""


@dataclass(eq=False)
class ProcessSettings(Record):
    """Whether the weld process may run."""

    IsProcessEnabled: bool = False
    """True if the weld process is enabled."""


@dataclass(eq=False)
class RequestType(Record):
    """The record that a request carries, which has no fields of its own. It can be read from any object."""


@dataclass(eq=False)
class RtaModuleOutBoundData(Record):
    """Values for the module."""

    One: int = 0
    """Slot 1."""
    Two: int = 0
    """Slot 2."""
    Three: int = 0
    """Slot 3."""
    Four: int = 0
    """Slot 4."""
    Five: int = 0
    """Slot 5."""
    Six: int = 0
    """Slot 6."""
    Seven: int = 0
    """Slot 7."""
    Eight: int = 0
    """Slot 8."""
    Nine: int = 0
    """Slot 9."""
    PartLabel: str = ""
    """Label of the part that is made."""


@dataclass(eq=False)
class RtaModuleInBoundData(Record):
    """Values from the module: four slots, where RtaModuleOutBoundData has nine."""

    One: int = 0
    """Slot 1."""
    Two: int = 0
    """Slot 2."""
    Three: int = 0
    """Slot 3."""
    Four: int = 0
    """Slot 4."""
    PartLabel: str = ""
    """Label of the part that is made."""


@dataclass(eq=False)
class RtaModuleData(Record):
    """The values of both directions, and the module's status."""

    OutBoundData: RtaModuleOutBoundData = field(default_factory=RtaModuleOutBoundData)
    """Values for the module."""
    InBoundData: RtaModuleInBoundData = field(default_factory=RtaModuleInBoundData)
    """Values from the module."""
    Status: int = 0
    """Status, a code of the module."""


@dataclass(eq=False)
class RtaModuleDataRequest(Record):
    """Request for the current RtaModuleData."""

    Request: bool = False
    """True to request the data."""


@dataclass(eq=False)
class SetMemorySlotSettingsWeldControlRequest(Record):
    """Request to set weld controls of one slot: those whose flag is true. Numbers are in device units."""

    Id: int = 0
    """Number of the slot."""
    Voltage: int = 0
    """New voltage; ignored unless ShouldSetVoltage."""
    ShouldSetVoltage: bool = False
    """True to set Voltage."""
    ArcLength: int = 0
    """New arc length; ignored unless ShouldSetArcLength."""
    ShouldSetArcLength: bool = False
    """True to set ArcLength."""
    WireFeedSpeed: int = 0
    """New wire-feed speed; ignored unless ShouldSetWireFeedSpeed."""
    ShouldSetWireFeedSpeed: bool = False
    """True to set WireFeedSpeed."""
    ArcControl: int = 0
    """New arc control; ignored unless ShouldSetArcControl."""
    ShouldSetArcControl: bool = False
    """True to set ArcControl."""


@dataclass(eq=False)
class SocketConnectionStatus(Record):
    """State of a network connection."""

    Errno: int = 0
    """Error number of the system (errno); 0 without an error."""


@dataclass(eq=False)
class SocketInfo(Record):
    """Address of the peer of a network connection."""

    IPAddress: str = ""
    """IP address, as text."""
    Port: int = 0
    """Port number."""


@dataclass(eq=False)
class SystemHealth(Record):
    """Health report of one process of the module."""

    code: int = 0
    """Health or error, a code of the reporting process."""
    processName: str = ""
    """Name of the reporting process."""


@dataclass(eq=False)
class SystemLedStatus(Record):
    """State of the module's connections, which the status lights show."""

    ethernetIsUp: bool = False
    """True while the wired network link is up."""
    wifiIsUp: bool = False
    """True while the wireless link is up."""
    operatorIsUp: bool = False
    """True while an operator is identified."""
    internetIsUp: bool = False
    """True if the internet was reachable when last checked."""
    internetQueried: bool = False
    """True once the internet has been checked."""
    isAccessingUSB: bool = False
    """True while the module reads or writes a USB stick."""
    doNotSendToCarrier: bool = False
    """True to send no data to the carrier board."""


@dataclass(eq=False)
class SystemLockMemoryState(Record):
    """Lock of the memory slots."""

    Lock: bool = False
    """True while the memory slots are locked."""


@dataclass(eq=False)
class TelvaneDataConfirmation(Record):
    """Confirmation by a receiver that it has accepted or rejected a record."""

    id: str = ""
    """_id of that record."""
    channel: str = ""
    """Channel on which that record was published."""
    confirmed: bool = False
    """True if the receiver accepted the record."""


@dataclass(eq=False)
class TelvaneDataFullStatus(Record):
    """State of the store of records."""

    isFull: bool = False
    """True while the store is full."""


@dataclass(eq=False)
class TelvaneError(Record):
    """An error, as a text."""

    Message: str = ""
    """Error message for people."""


@dataclass(eq=False)
class TelvaneLedStatus(Record):
    """State of the module's connections, as far as its own status light shows it."""

    operatorIsUp: bool = False
    """True while an operator is identified."""
    internetIsUp: bool = False
    """True if the internet was reachable when last checked."""
    internetQueried: bool = False
    """True once the internet has been checked."""


@dataclass(eq=False)
class TimeSyncType(Record):
    """Result of a time synchronisation."""

    serverTimestamp: datetime = EPOCH
    """Time according to the server."""
    receivedTimeFromCloud: bool = False
    """True if the time came from the cloud service."""


@dataclass(eq=False)
class TimeType(Record):
    """A point in time."""

    timestamp: datetime = EPOCH
    """The point in time."""


@dataclass(eq=False)
class TorchDisable(Record):
    """Torches of a dual setup that are disabled; the opposite of LtdTorchConfiguration."""

    DisableLeft: bool = False
    """True if the left torch is disabled."""
    DisableRight: bool = False
    """True if the right torch is disabled."""


@dataclass(eq=False)
class UIMenuStatus(Record):
    """One status line of the menu."""

    statusType: UIMenuStatusString = UIMenuStatusString(0)
    """The line."""
    statusInfo: str = ""
    """The text to show on the line."""


@dataclass(eq=False)
class USBDetection(Record):
    """Insertion of a USB stick, or the end of its use."""

    USBPresent: bool = False
    """True while a USB stick is inserted."""
    USBDone: bool = False
    """True once the module has finished with it."""
    USB_path: str = ""
    """Directory at which it is mounted."""


@dataclass(eq=False)
class UnitValuePair(Record):
    """A quantity with its unit, as a whole number."""

    Unit: str = ""
    """Unit of Value, for example "A"."""
    Value: int = 0
    """Magnitude, in the unit that Unit holds."""


@dataclass(eq=False)
class ValueType(Record):
    """An integer with a status."""

    Value: int = 0
    """The value; the record that has this member defines the unit."""
    Status: bool = False
    """True once the value has been set."""


@dataclass(eq=False)
class WeldMetrics(Record):
    """Summary of one weld. Each quantity holds its own unit."""

    ArcDuration: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Time for which the arc burned."""
    AverageVoltage: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Mean arc voltage."""
    AverageAmperage: UnitValuePair = field(default_factory=UnitValuePair)
    """Mean current."""
    AverageWFS: UnitValuePair = field(default_factory=UnitValuePair)
    """Mean wire-feed speed."""
    AverageGas: UnitValuePair = field(default_factory=UnitValuePair)
    """Mean shielding-gas flow."""
    TotalDeposition: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Weld metal deposited."""
    TotalEnergy: UnitValuePair = field(default_factory=UnitValuePair)
    """Arc energy over the whole weld."""
    AverageMotor: UnitValuePair = field(default_factory=UnitValuePair)
    """Mean load of the wire-feed motor."""


@dataclass(eq=False)
class WeldProcessLibraryReport(Record):
    """Reply to a WeldProcessLibraryRequest."""

    IsJsonReportReady: bool = False
    """True once the file is written."""


@dataclass(eq=False)
class WeldProcessLibraryRequest(Record):
    """Request to write the library of weld processes to a JSON file."""

    JsonFilePath: str = ""
    """Path of the file to write."""
    LibraryJsonKey: str = ""
    """JSON key of the library."""


@dataclass(eq=False)
class WeldTraceDataPoint(Record):
    """One sample of a weld trace. The WeldTriggerStart of the weld holds the units, in data."""

    amps: float = 0.0
    """Current, in the unit in WeldTraceDataPointDefinition::amps."""
    volts: float = 0.0
    """Arc voltage, in the unit in WeldTraceDataPointDefinition::volts."""
    wfs: float = 0.0
    """Wire-feed speed, in the unit in WeldTraceDataPointDefinition::wfs."""
    gas: float = 0.0
    """Gas flow, in the unit in WeldTraceDataPointDefinition::gas."""
    power: float = 0.0
    """Arc power, in the unit in WeldTraceDataPointDefinition::power."""
    motor: float = 0.0
    """Load of the wire-feed motor, in the unit in WeldTraceDataPointDefinition::motor."""


@dataclass(eq=False)
class WeldTraceData(Record):
    """One sample of a weld trace, published while the arc burns."""

    sequence: int = 0
    """Number of the sample within its weld; not the sequence number of the bus."""
    timestamp: datetime = EPOCH
    """When the sample was taken."""
    data: WeldTraceDataPoint = field(default_factory=WeldTraceDataPoint)
    """The measured values."""
    messageSerial: int = 0
    """Publisher's number for the message; see MessageSerialType."""


@dataclass(eq=False)
class WeldTraceDataPointDefinition(Record):
    """Units or labels of the channels of a weld trace, to show with the numbers of a WeldTraceDataPoint."""

    amps: str = ""
    """Unit or label of the current."""
    volts: str = ""
    """Unit or label of the arc voltage."""
    wfs: str = ""
    """Unit or label of the wire-feed speed."""
    gas: str = ""
    """Unit or label of the gas flow."""
    power: str = ""
    """Unit or label of the arc power."""
    motor: str = ""
    """Unit or label of the load of the wire-feed motor."""


@dataclass(eq=False)
class WeldTriggerEnd(Record):
    """End of a weld. Unlike in WeldTriggerStart, the time stamp precedes the tag."""

    timestamp: datetime = EPOCH
    """When the arc went out."""
    tag: int = 0
    """Identifies the weld; its WeldTriggerStart has the same."""
    lifetimeArcHours: float = 0.0
    """Accumulated arc time of the machine, in hours."""
    metrics: WeldMetrics = field(default_factory=WeldMetrics)
    """Averages and totals of the weld."""
    messageSerial: int = 0
    """Publisher's number for the message; see MessageSerialType."""


@dataclass(eq=False)
class WeldTriggerStart(Record):
    """Start of a weld. Holds the units of the trace once; each WeldTraceData that follows holds only numbers."""

    tag: int = 0
    """Identifies the weld; its WeldTriggerEnd has the same."""
    timestamp: datetime = EPOCH
    """When the trigger was pulled."""
    samplePeriodus: int = 0
    """Time between two samples of the trace, in microseconds."""
    program: int = 0
    """Number of the weld program, as the power source numbers them."""
    process: ProcessID = ProcessID(0)
    """Weld process."""
    wireType: WireType = WireType(0)
    """Wire type."""
    wireSize: WireSize = WireSize(0)
    """Wire size."""
    alloy: AlloyID = AlloyID(0)
    """Wire alloy."""
    gas: GasID = GasID(0)
    """Shielding gas."""
    settings: MachineSettings = field(default_factory=MachineSettings)
    """Set points of the power source."""
    data: WeldTraceDataPointDefinition = field(default_factory=WeldTraceDataPointDefinition)
    """Units of the trace samples."""
    messageSerial: int = 0
    """Publisher's number for the message; see MessageSerialType."""
    FeederSide: str = ""
    """Side of a dual wire feeder that made the weld."""


#: Every class by its name, which is also the name of its channel.
CATALOGUE: Dict[str, Type[Record]] = {
    cls.__name__: cls for cls in (
        AdminAccessSettings, ApiErrorMessage, AutomationStatus, CanTelvaneUpdateCode, CarrierFileInfo,
        CarrierInfo, ConfigReply, ConfigRequest, DataStatus, DateTime, DeviceCapabilities,
        DeviceIdentity, DeviceSettings, ErrorLogType, FerroluxLedFlags, FileInfoType, FirmwareUpdateEnd,
        FirmwareUpdateStart, FlagLabelType, FlagType, GetMemorySlotSettingsRequest, HALInfo, HALStatus,
        IncomingCommands, LedSettings, LogData, LtdTorchButtonRequest, LtdTorchConfiguration,
        MachineSettings, MemorySlotDownloadSummary, MemorySlotFleetManagementDownloadSettings,
        MemorySlotLimitsEnable, MemorySlotSettingsGlobal, MemorySlotSettingsReport,
        MemorySlotSettingsWeldControlReply, MessageSerialType, NetworkInfo, PSCommand, PSCommandBase,
        PSFeedback, PSFeedbackBase, PSFunctionRequest, PSMemorySlot, PSMemorySlotBase, PSProgramCommand,
        PSWeldCommand, PSWeldCommandBase, PostConfig, PowerDownStatus, PowerSourceConnection,
        ProcessSettings, ProgramType, RequestType, RtaModuleData, RtaModuleDataRequest,
        RtaModuleInBoundData, RtaModuleOutBoundData, SetMemorySlotSettingsWeldControlRequest,
        SocketConnectionStatus, SocketInfo, SystemHealth, SystemLedStatus, SystemLockMemoryState,
        TelvaneDataConfirmation, TelvaneDataFullStatus, TelvaneError, TelvaneLedStatus, TimeSyncType,
        TimeType, TorchDisable, UIMenuStatus, USBDetection, UnitValueDoublePair, UnitValuePair,
        ValueLabelType, ValueType, WeldMetrics, WeldProcessLibraryReport, WeldProcessLibraryRequest,
        WeldTraceData, WeldTraceDataPoint, WeldTraceDataPointDefinition, WeldTriggerEnd,
        WeldTriggerStart,
    )
}
