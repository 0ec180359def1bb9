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
    """The administrator's access to the module's maintenance interfaces."""

    expiryDate: str = ""
    """Date after which the access ends, as text; not checked."""
    enableShell: bool = False
    """A maintenance shell is allowed."""
    enableConsole: bool = False
    """A console login is allowed."""


@dataclass(eq=False)
class ApiErrorMessage(Record):
    """An error that an interface of the module returned."""

    ErrorCode: int = 0
    """Error number."""
    ErrorString: str = ""
    """Error text."""


@dataclass(eq=False)
class AutomationStatus(Record):
    """The state of the module's automation links, with a running counter."""

    PowersourceConnection: bool = False
    """The power source is connected."""
    ModbusConnected: bool = False
    """A Modbus link is connected."""
    ModbusActive: bool = False
    """Modbus is active."""
    EIPConnected: bool = False
    """An EIP link is connected."""
    StatusCounter: int = 0
    """Status counter, advanced by the producer."""
    TouchSenseEnabled: bool = False
    """Touch sensing is enabled."""
    CoProcLinkUp: bool = False
    """The link to the co-processor is up."""


@dataclass(eq=False)
class CanTelvaneUpdateCode(Record):
    """Answers whether the module may update its code."""

    Code: int = 0
    """Answer code, set by the producer."""


@dataclass(eq=False)
class CarrierFileInfo(Record):
    """A file for or from the carrier board."""

    fileFullPath: str = ""
    """Full path of the file."""
    fileName: str = ""
    """File name."""
    fileSize: int = 0
    """Size, in bytes."""


@dataclass(eq=False)
class CarrierInfo(Record):
    """The versions of the carrier board's software."""

    appVersion: str = ""
    """Application version."""
    bootloaderVersion: str = ""
    """Bootloader version."""
    HALVersion: int = 0
    """Version of the hardware layer."""


@dataclass(eq=False)
class ConfigReply(Record):
    """Answers a ConfigRequest. Its JSON form is that of PostConfig, but the two are distinct classes."""

    Key: str = ""
    """The key asked for."""
    Value: str = ""
    """Its value, as text."""


@dataclass(eq=False)
class ConfigRequest(Record):
    """Asks for a configuration value."""

    Key: str = ""
    """Configuration key asked for."""


@dataclass(eq=False)
class DataStatus(Record):
    """A time-to-live notice for data."""

    ttl: int = 0
    """Time to live of the data."""


@dataclass(eq=False)
class DeviceCapabilities(Record):
    """What the connected power source is able to report."""

    allowsFeederAttachment: bool = False
    """A wire feeder can be attached."""
    realTimeStatusDrivenByEvents: bool = False
    """Real-time status is driven by events."""
    reportsBatteryVoltage: bool = False
    """Reports a battery voltage."""
    reportsVolts: bool = False
    """Reports arc voltage."""
    reportsAmps: bool = False
    """Reports current."""
    reportsWireFeedSpeed: bool = False
    """Reports wire-feed speed."""
    reportsProgramNumber: bool = False
    """Reports the active program number."""
    reportsProcess: bool = False
    """Reports the weld process."""
    reportsPowerSupplySerialNumber: bool = False
    """Reports its serial number."""
    reportsGasType: bool = False
    """Reports the gas type."""
    reportsWireAlloy: bool = False
    """Reports the wire alloy."""
    reportsWireDiameter: bool = False
    """Reports the wire diameter."""
    reportsLifetimeArcHours: bool = False
    """Reports accumulated arc hours."""
    reportsWeldEvents: bool = False
    """Reports weld start and end events."""
    reportsPower: bool = False
    """Reports arc power."""
    reportsGasFlowRate: bool = False
    """Reports gas flow rate."""


@dataclass(eq=False)
class DeviceIdentity(Record):
    """The identity of the power source and the wire feeder."""

    powerSourceType: int = 0
    """Type code of the power source."""
    powerSourceStockNumber: str = ""
    """Stock (catalogue) number of the power source."""
    powerSourceReportedSerialNumber: str = ""
    """Serial number as the power source reports it."""
    powerSourceFirmwareRev: str = ""
    """Firmware revision of the power source."""
    programSetPartNumber: str = ""
    """Part number of the set of weld programs loaded."""
    standardLibraryPartNUmber: str = ""
    """Part number of the standard weld-program library."""
    custommLibraryPartNumber: str = ""
    """Part number of the custom weld-program library."""
    feederType: int = 0
    """Type code of the wire feeder."""
    feederSerialNumber: str = ""
    """Serial number of the feeder."""
    feederFirmwareRev: str = ""
    """Firmware revision of the feeder."""
    feederIsDual: int = 0
    """Non-zero when the feeder has two sides."""
    cultureSelection: int = 0
    """Locale (culture) selection code of the power source."""


@dataclass(eq=False)
class DeviceSettings(Record):
    """The settings and last-known state that the module holds for the connected equipment."""

    timestamp: datetime = EPOCH
    """When the settings were taken."""
    operatorIDVersion: str = ""
    """Version of the operator-identification data."""
    operatorID: str = ""
    """Identification of the current operator."""
    currentSensorConfig: int = 0
    """Configuration code of the current sensor."""
    batteryVoltage: float = 0.0
    """Battery voltage."""
    lifetimeArc: float = 0.0
    """Accumulated arc time of the power source."""
    powerSourceDescription: str = ""
    """Description text of the power source."""
    powerSourceStockNumber: str = ""
    """Stock number of the power source."""
    powerSourceReportedSerialNumber: str = ""
    """Serial number as the power source reports it."""
    powerSourceFirmwareRev: str = ""
    """Firmware revision of the power source."""
    feederDescription: str = ""
    """Description text of the feeder."""
    feederSerialNumber: str = ""
    """Serial number of the feeder."""
    feederFirmwareRev: str = ""
    """Firmware revision of the feeder."""
    messageSerial: int = 0
    """Serial number of the message, see MessageSerialType."""
    arcStartThreshold: int = 0
    """Threshold at which an arc counts as started."""


@dataclass(eq=False)
class ErrorLogType(Record):
    """One entry of the error log."""

    code: str = ""
    """Error code, as text (in SystemHealth the key of this name is a number)."""
    message: str = ""
    """Error text."""
    timestamp: datetime = EPOCH
    """When the error occurred."""
    messageSerial: int = 0
    """Serial number of the message."""


@dataclass(eq=False)
class FerroluxLedFlags(Record):
    """The indicator flags of an attached Ferrolux unit."""

    LedFlags: int = 0
    """The flags as one integer."""
    Network: int = 0
    """State code of the network light."""
    NetworkAmber: bool = False
    """Network light amber."""
    PartArrowCircle: bool = False
    """Part (arrow and circle) light on."""
    PartAmber: bool = False
    """Part light amber."""
    Trigger: bool = False
    """Trigger light on."""
    Gear: bool = False
    """Gear light on."""
    TriggerGearAmber: bool = False
    """Trigger and gear lights amber."""
    User: bool = False
    """User light on."""
    UserAmber: bool = False
    """User light amber."""


@dataclass(eq=False)
class FileInfoType(Record):
    """Names a file for another process."""

    typeEnum: int = 0
    """Kind of file, a code of the producer's."""
    fileName: str = ""
    """File name."""
    filePath: str = ""
    """Directory or full path of the file."""


@dataclass(eq=False)
class FirmwareUpdateEnd(Record):
    """A firmware update has ended."""

    partThatWasUpdated: str = ""
    """The part whose firmware was updated."""
    wasUpdateSuccessful: bool = False
    """The update succeeded."""


@dataclass(eq=False)
class FirmwareUpdateStart(Record):
    """A firmware update begins."""

    partGettingUpdated: str = ""
    """The part whose firmware is being updated."""


@dataclass(eq=False)
class FlagLabelType(Record):
    """An on/off flag with the label that says which flag it is."""

    Label: int = 0
    """Which flag."""
    Flag: bool = False
    """The flag."""
    Status: bool = False
    """The flag has been set and is valid."""


@dataclass(eq=False)
class FlagType(Record):
    """One on/off flag with a status."""

    Flag: bool = False
    """The flag."""
    Status: bool = False
    """The flag has been set and is valid."""


@dataclass(eq=False)
class GetMemorySlotSettingsRequest(Record):
    """Asks for the settings of memory slots."""

    All: bool = False
    """The settings of all slots are asked for."""


@dataclass(eq=False)
class HALInfo(Record):
    """The identity of the module's hardware layer."""

    serialNumber: str = ""
    """Serial number of the module."""
    machineType: str = ""
    """Machine type text."""
    hardwareRevisionNumber: int = 0
    """Hardware revision."""
    firmwareImageType: int = 0
    """Type code of the firmware image running."""
    revisionNumber: int = 0
    """Firmware revision number."""


@dataclass(eq=False)
class HALStatus(Record):
    """The state of the module's hardware layer."""

    ready: bool = False
    """The hardware layer is ready."""


@dataclass(eq=False)
class IncomingCommands(Record):
    """Commands and settings received from outside the module and handed to its processes."""

    firmwareFilePath: str = ""
    """Path of a firmware file to install."""
    currentSensorType: int = 0
    """Type code of the current sensor to use."""
    currentSensorTypeReceived: bool = False
    """CurrentSensorType holds a received value."""
    arcStartThreshold: float = 0.0
    """Threshold at which an arc counts as started."""
    logFilesAreRequested: bool = False
    """The log files are to be sent."""
    operatorName: str = ""
    """Name of the operator."""


@dataclass(eq=False)
class LedSettings(Record):
    """The commanded state of each light: a state code of the producer's, 0 when the light is off."""

    cloudGreenLed: int = 0
    """Cloud connection, green."""
    cloudYellowLed: int = 0
    """Cloud connection, yellow."""
    wifiGreenLed: int = 0
    """Wireless, green."""
    wifiYellowLed: int = 0
    """Wireless, yellow."""
    ethernetGreenLed: int = 0
    """Wired network, green."""
    ethernetYellowLed: int = 0
    """Wired network, yellow."""
    usbGreenLed: int = 0
    """USB, green (there is no yellow USB light)."""
    opIDGreenLed: int = 0
    """Operator identification, green."""
    opIDYellowLed: int = 0
    """Operator identification, yellow."""
    robotConnectedLed: int = 0
    """Robot interface connected."""
    robotActivityLed: int = 0
    """Robot interface activity."""
    touchSenseEnabledBool: int = 0
    """Touch sensing enabled; an integer in spite of its name."""


@dataclass(eq=False)
class LogData(Record):
    """One line of log text sent over the bus."""

    log: str = ""
    """The log text."""


@dataclass(eq=False)
class LtdTorchButtonRequest(Record):
    """A torch button was used."""

    EventEnum: int = 0
    """Code of the torch button event."""


@dataclass(eq=False)
class LtdTorchConfiguration(Record):
    """Which torches of a dual setup are enabled; the opposite sense of TorchDisable."""

    EnabledLeft: bool = False
    """The left torch is enabled."""
    EnabledRight: bool = False
    """The right torch is enabled."""


@dataclass(eq=False)
class UnitValueDoublePair(Record):
    """A quantity with a fractional value and the name of its unit."""

    Unit: str = ""
    """Unit in which the value is expressed."""
    Value: float = 0.0
    """The quantity."""


@dataclass(eq=False)
class MachineSettings(Record):
    """The commanded set points of the power source at the start of a weld."""

    CommandVoltage: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Commanded arc voltage."""
    CommandAmperage: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Commanded current."""
    CommandWFS: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Commanded wire-feed speed."""
    CommandArcControl: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Commanded arc-control setting."""


@dataclass(eq=False)
class MemorySlotDownloadSummary(Record):
    """Announces a download of slots."""

    NumberOfIncomingSlots: int = 0
    """How many slot records follow."""


@dataclass(eq=False)
class MemorySlotFleetManagementDownloadSettings(Record):
    """The complete settings of one slot as downloaded from fleet management."""

    Id: int = 0
    """Slot number."""
    ControlByte: int = 0
    """Control byte."""
    presetArcControl: int = 0
    """Arc control preset."""
    limitArcControlHigh: int = 0
    """Upper limit of the arc control."""
    limitArcControlLow: int = 0
    """Lower limit of the arc control."""
    presetArcLength: int = 0
    """Arc length preset."""
    limitArcLengthHigh: int = 0
    """Upper limit of the arc length."""
    limitArcLengthLow: int = 0
    """Lower limit of the arc length."""
    presetCurrent: int = 0
    """Current preset."""
    limitCurrentHigh: int = 0
    """Upper limit of the current."""
    limitCurrentLow: int = 0
    """Lower limit of the current."""
    presetWireFeedSpeed: int = 0
    """Wire-feed speed preset."""
    limitWfsHigh: int = 0
    """Upper limit of the wire-feed speed."""
    limitWfsLow: int = 0
    """Lower limit of the wire-feed speed."""
    presetVoltage: int = 0
    """Voltage preset."""
    limitVoltHigh: int = 0
    """Upper limit of the voltage."""
    limitVoltLow: int = 0
    """Lower limit of the voltage."""
    presetSequenceType: int = 0
    """Sequence type."""
    triggerSelect: int = 0
    """Trigger selection."""
    triggerSelectMemory: int = 0
    """Trigger memory selection."""
    triggerTackTime: int = 0
    """Trigger tack time."""
    presetWireCleanTime: int = 0
    """Wire clean time."""
    presetPreflow: int = 0
    """Preflow."""
    presetPreflowTime: int = 0
    """Preflow time."""
    presetAutoJogDistance: int = 0
    """Automatic jog distance."""
    presetAutoPurgeTime: int = 0
    """Automatic purge time."""
    presetRunInMode: int = 0
    """Run-in mode."""
    presetRunInSpeed: int = 0
    """Run-in speed."""
    presetStartMode: int = 0
    """Start-of-weld mode."""
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
    """Start of weld: voltage."""
    presetCraterMode: int = 0
    """Crater (end-of-weld) mode."""
    craterArcLength: int = 0
    """Crater: arc length."""
    craterDwellTime: int = 0
    """Crater: dwell time."""
    craterRampTime: int = 0
    """Crater: ramp time."""
    craterSpeed: int = 0
    """Crater: speed."""
    craterTackTime: int = 0
    """Crater: tack time."""
    craterVoltage: int = 0
    """Crater: voltage."""
    presetBurnbackTime: int = 0
    """Burnback time."""
    presetPostflow: int = 0
    """Postflow."""
    presetPostflowTime: int = 0
    """Postflow time."""
    retractDistance: int = 0
    """Wire retract distance."""
    retractEnable: int = 0
    """Wire retract enabled, carried as an integer."""
    weldTackTime: int = 0
    """Weld tack time."""
    presetProfileMode: int = 0
    """Profile mode."""
    profileArcLength: int = 0
    """Profile: arc length."""
    profileFrequence: int = 0
    """Profile: frequency."""
    profileSpeed: int = 0
    """Profile: speed."""
    profileSpeedDelta: int = 0
    """Profile: difference of speed."""
    profileVoltage: int = 0
    """Profile: voltage."""
    enablePresetLimits: int = 0
    """Limits switched on, carried as an integer."""
    programPartNumber: int = 0
    """Program part number."""
    presetSynergic: int = 0
    """Synergic preset."""


@dataclass(eq=False)
class MemorySlotLimitsEnable(Record):
    """Switches the slot limits on or off."""

    Enable: bool = False
    """Limits enabled."""


@dataclass(eq=False)
class MemorySlotSettingsGlobal(Record):
    """The settings that all slots share."""

    PresetJogSpeed: int = 0
    """Jog speed."""
    AutoJogDistance: int = 0
    """Automatic jog distance."""
    AutoPurgeTime: int = 0
    """Automatic purge time."""
    LockCode: int = 0
    """Lock code; carried, not checked."""


@dataclass(eq=False)
class MemorySlotSettingsReport(Record):
    """The settings of one slot as read back. What each lettered parameter means is the power source's."""

    IsActive: bool = False
    """The slot is the active one."""
    SlotId: int = 0
    """Slot number."""
    ControlByte: int = 0
    """Control byte."""
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
    """Part text of the slot."""


@dataclass(eq=False)
class MemorySlotSettingsWeldControlReply(Record):
    """Answers a SetMemorySlotSettingsWeldControlRequest with the values now in force."""

    Id: int = 0
    """Slot number."""
    Voltage: int = 0
    """Voltage."""
    ArcLength: int = 0
    """Arc length."""
    WireFeedSpeed: int = 0
    """Wire-feed speed."""
    ArcControl: int = 0
    """Arc control."""


@dataclass(eq=False)
class MessageSerialType(Record):
    """The serial number of a message."""

    messageSerial: int = 0
    """Serial number, as in the records that carry a messageSerial themselves."""


@dataclass(eq=False)
class NetworkInfo(Record):
    """The state of the network links at a moment."""

    timestamp: datetime = EPOCH
    """When the state was taken."""
    signalStrength: int = 0
    """Strength of the wireless signal."""
    wiFiIsConnected: bool = False
    """The wireless link is connected."""
    ethernetIsConnected: bool = False
    """The wired link is connected."""


@dataclass(eq=False)
class ValueLabelType(Record):
    """An integer value with the label that says which quantity it is. Commands carry their modes and values as
    sequences of these.
    """

    Label: int = 0
    """Which quantity: a number of PSValues_e or ProgramCommand_e."""
    Value: int = 0
    """The value."""
    Status: bool = False
    """The value has been set and is valid."""


@dataclass(eq=False)
class PSCommandBase(Record):
    """The data of every command, and its JSON form."""

    mLabel: str = ""
    """Name of the command."""
    mCommandType: PSCommandType = PSCommandType(0)
    """Kind of command."""
    mResponseFlag: bool = False
    """A response is requested."""
    mPublishResponse: bool = False
    """The response is to be published on the bus."""
    mModes: List[ValueLabelType] = field(default_factory=list, metadata={"limit": 100})
    """Modes to apply, in order."""
    mValues: List[ValueLabelType] = field(default_factory=list, metadata={"limit": 100})
    """Values to apply, in order."""


@dataclass(eq=False)
class PSCommand(PSCommandBase):
    """The general command, filled by appending modes and values."""

    mLabel: str = "PSCommand"
    """Name of the command."""
    mCommandType: PSCommandType = PSCommandType(3)
    """Kind of command."""
    mResponseFlag: bool = False
    """A response is requested."""
    mPublishResponse: bool = False
    """The response is to be published on the bus."""
    mModes: List[ValueLabelType] = field(default_factory=list, metadata={"limit": 100})
    """Modes to apply, in order."""
    mValues: List[ValueLabelType] = field(default_factory=list, metadata={"limit": 100})
    """Values to apply, in order."""


@dataclass(eq=False)
class PSFeedbackBase(Record):
    """The data of a feedback record, and its JSON form."""

    mLabel: str = ""
    """Name of the record."""
    mPSReady: bool = False
    """The power source reports ready."""
    mWeldFlags: List[bool] = field(default_factory=lambda: [False] * 4, metadata={"size": 4})
    """The weld flags as reported, by PSWeldFlags_e."""
    mPSValues: List[int] = field(default_factory=lambda: [0] * 24, metadata={"size": 24})
    """The feedback values, by PSFeedback_e."""


@dataclass(eq=False)
class PSFeedback(PSFeedbackBase):
    """A feedback record, called "PSFeedback". Numbers outside the arrays, negative ones too, are refused."""

    mLabel: str = "PSFeedback"
    """Name of the record."""
    mPSReady: bool = False
    """The power source reports ready."""
    mWeldFlags: List[bool] = field(default_factory=lambda: [False] * 4, metadata={"size": 4})
    """The weld flags as reported, by PSWeldFlags_e."""
    mPSValues: List[int] = field(default_factory=lambda: [0] * 24, metadata={"size": 24})
    """The feedback values, by PSFeedback_e."""


@dataclass(eq=False)
class PSFunctionRequest(Record):
    """A request for a function of the power source."""

    RequestID: int = 0
    """Which function is requested."""
    Value: int = 0
    """The request's argument."""


@dataclass(eq=False)
class ProgramType(Record):
    """One weld program. The numbers are the consumable codes of Consumables.h."""

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
    """The data of a memory slot, and its JSON form."""

    mMemory: int = 0
    """Number of the memory slot."""
    mPrograms: List[ProgramType] = field(default_factory=list, metadata={"limit": 100})
    """The programs of the slot, in order."""


@dataclass(eq=False)
class PSMemorySlot(PSMemorySlotBase):
    """A memory slot, with 8 empty programs from construction."""

    mMemory: int = 0
    """Number of the memory slot."""
    mPrograms: List[ProgramType] = field(
        default_factory=lambda: [ProgramType() for _ in range(8)], metadata={"limit": 100})
    """The programs of the slot, in order."""


@dataclass(eq=False)
class PSProgramCommand(PSCommandBase):
    """A command that selects a weld program by four entries of mValues, one per ProgramCommand_e.  The four entries
    are there from construction. ResetBuffers() removes them, and reading may bring another number of them; only
    reading or copy brings them back.
    """

    mLabel: str = "PSProgramCommand"
    """Name of the command."""
    mCommandType: PSCommandType = PSCommandType(4)
    """Kind of command."""
    mResponseFlag: bool = False
    """A response is requested."""
    mPublishResponse: bool = False
    """The response is to be published on the bus."""
    mModes: List[ValueLabelType] = field(default_factory=list, metadata={"limit": 100})
    """Modes to apply, in order."""
    mValues: List[ValueLabelType] = field(
        default_factory=lambda: [ValueLabelType() for _ in range(4)], metadata={"limit": 100})
    """Values to apply, in order."""


@dataclass(eq=False)
class PSWeldCommandBase(Record):
    """The data of a weld command, and its JSON form."""

    mLabel: str = ""
    """Name of the record."""
    mCommandType: PSCommandType = PSCommandType(0)
    """Kind of command."""
    mResponseFlag: bool = False
    """A response is requested."""
    mWeldFlags: List[FlagType] = field(default_factory=lambda: [FlagType() for _ in range(4)], metadata={"size": 4})
    """The weld flags by PSWeldFlags_e, each with a status."""


@dataclass(eq=False)
class PSWeldCommand(PSWeldCommandBase):
    """A weld command, called "PSWeldCommand". Flag numbers above 3, and negative ones, are refused."""

    mLabel: str = "PSWeldCommand"
    """Name of the record."""
    mCommandType: PSCommandType = PSCommandType(0)
    """Kind of command."""
    mResponseFlag: bool = False
    """A response is requested."""
    mWeldFlags: List[FlagType] = field(default_factory=lambda: [FlagType() for _ in range(4)], metadata={"size": 4})
    """The weld flags by PSWeldFlags_e, each with a status."""


@dataclass(eq=False)
class PostConfig(Record):
    """Sets a configuration value."""

    Key: str = ""
    """Configuration key to set."""
    Value: str = ""
    """New value, as text."""


@dataclass(eq=False)
class PowerDownStatus(Record):
    """Announces that the module is about to power down."""

    isPoweringDown: bool = False
    """A power-down is in progress."""
    nameOfCaller: str = ""
    """The process that asked for it."""
    reasonForPowerdown: str = ""
    """Why."""


@dataclass(eq=False)
class PowerSourceConnection(Record):
    """Whether there is a power source to talk to."""

    isConnected: bool = False
    """A power source is connected."""


@dataclass(eq=False)
class ProcessSettings(Record):
    """Whether the weld process may run."""

    IsProcessEnabled: bool = False
    """The weld process is enabled."""


@dataclass(eq=False)
class RequestType(Record):
    """The record that a request carries, which has no fields of its own. It can be read from any object."""


@dataclass(eq=False)
class RtaModuleOutBoundData(Record):
    """The values sent out to the module."""

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
    """Label of the part."""


@dataclass(eq=False)
class RtaModuleInBoundData(Record):
    """The values received from the module: four slots where the outbound block has nine."""

    One: int = 0
    """Slot 1."""
    Two: int = 0
    """Slot 2."""
    Three: int = 0
    """Slot 3."""
    Four: int = 0
    """Slot 4."""
    PartLabel: str = ""
    """Label of the part."""


@dataclass(eq=False)
class RtaModuleData(Record):
    """Both blocks and the module's status."""

    OutBoundData: RtaModuleOutBoundData = field(default_factory=RtaModuleOutBoundData)
    """The outbound block."""
    InBoundData: RtaModuleInBoundData = field(default_factory=RtaModuleInBoundData)
    """The inbound block."""
    Status: int = 0
    """Status code of the module."""


@dataclass(eq=False)
class RtaModuleDataRequest(Record):
    """Asks for the current RtaModuleData."""

    Request: bool = False
    """True to request the data."""


@dataclass(eq=False)
class SetMemorySlotSettingsWeldControlRequest(Record):
    """Sets some of the four weld-control values of one slot: those whose flag is true."""

    Id: int = 0
    """Slot number."""
    Voltage: int = 0
    """Voltage to set."""
    ShouldSetVoltage: bool = False
    """Set the voltage."""
    ArcLength: int = 0
    """Arc length to set."""
    ShouldSetArcLength: bool = False
    """Set the arc length."""
    WireFeedSpeed: int = 0
    """Wire-feed speed to set."""
    ShouldSetWireFeedSpeed: bool = False
    """Set the wire-feed speed."""
    ArcControl: int = 0
    """Arc control to set."""
    ShouldSetArcControl: bool = False
    """Set the arc control."""


@dataclass(eq=False)
class SocketConnectionStatus(Record):
    """The state of a socket connection."""

    Errno: int = 0
    """Error number (errno) of the connection."""


@dataclass(eq=False)
class SocketInfo(Record):
    """The address of a socket connection's peer."""

    IPAddress: str = ""
    """Address of the peer, as text."""
    Port: int = 0
    """Port of the peer."""


@dataclass(eq=False)
class SystemHealth(Record):
    """The health report of one process on the module."""

    code: int = 0
    """Health or error code."""
    processName: str = ""
    """Name of the reporting process."""


@dataclass(eq=False)
class SystemLedStatus(Record):
    """The connectivity state that the status lights present."""

    ethernetIsUp: bool = False
    """The wired network link is up."""
    wifiIsUp: bool = False
    """The wireless link is up."""
    operatorIsUp: bool = False
    """An operator is identified."""
    internetIsUp: bool = False
    """The internet is reachable."""
    internetQueried: bool = False
    """Reachability of the internet has been checked at least once."""
    isAccessingUSB: bool = False
    """The module is reading or writing a USB stick."""
    doNotSendToCarrier: bool = False
    """Data is not to be forwarded to the carrier board."""


@dataclass(eq=False)
class SystemLockMemoryState(Record):
    """The lock of the memory slots."""

    Lock: bool = False
    """The memory lock is engaged."""


@dataclass(eq=False)
class TelvaneDataConfirmation(Record):
    """Acknowledges that a published record has been taken over by its receiver."""

    id: str = ""
    """The _id of the record being confirmed."""
    channel: str = ""
    """The bus channel on which that record travelled."""
    confirmed: bool = False
    """True when the record was accepted."""


@dataclass(eq=False)
class TelvaneDataFullStatus(Record):
    """Reports whether the store of records is full."""

    isFull: bool = False
    """True while the store is full."""


@dataclass(eq=False)
class TelvaneError(Record):
    """An error, told in words."""

    Message: str = ""
    """Error text."""


@dataclass(eq=False)
class TelvaneLedStatus(Record):
    """The reduced state set for the module's own status light."""

    operatorIsUp: bool = False
    """An operator is identified."""
    internetIsUp: bool = False
    """The internet is reachable."""
    internetQueried: bool = False
    """Reachability of the internet has been checked."""


@dataclass(eq=False)
class TimeSyncType(Record):
    """The result of a time synchronisation."""

    serverTimestamp: datetime = EPOCH
    """The time given by the server."""
    receivedTimeFromCloud: bool = False
    """The time came from the cloud service."""


@dataclass(eq=False)
class TimeType(Record):
    """A bare time stamp."""

    timestamp: datetime = EPOCH
    """The time."""


@dataclass(eq=False)
class TorchDisable(Record):
    """Which torches of a dual setup are disabled; the opposite sense of LtdTorchConfiguration."""

    DisableLeft: bool = False
    """The left torch is disabled."""
    DisableRight: bool = False
    """The right torch is disabled."""


@dataclass(eq=False)
class UIMenuStatus(Record):
    """One status line of the user-interface menu."""

    statusType: UIMenuStatusString = UIMenuStatusString(0)
    """Which line."""
    statusInfo: str = ""
    """The text shown on that line."""


@dataclass(eq=False)
class USBDetection(Record):
    """A USB stick was inserted, or its use ended."""

    USBPresent: bool = False
    """A USB stick is present."""
    USBDone: bool = False
    """Work on the stick is finished."""
    USB_path: str = ""
    """Mount path of the stick."""


@dataclass(eq=False)
class UnitValuePair(Record):
    """A quantity with a whole-number value and the name of its unit."""

    Unit: str = ""
    """Unit in which the value is expressed."""
    Value: int = 0
    """The quantity."""


@dataclass(eq=False)
class ValueType(Record):
    """One integer value with a status."""

    Value: int = 0
    """The value."""
    Status: bool = False
    """The value has been set and is valid."""


@dataclass(eq=False)
class WeldMetrics(Record):
    """The summary of one weld. Durations, voltage and deposition carry fractions, the others are whole numbers."""

    ArcDuration: UnitValueDoublePair = field(default_factory=UnitValueDoublePair)
    """Time the arc burned."""
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
    """Arc energy of the weld."""
    AverageMotor: UnitValuePair = field(default_factory=UnitValuePair)
    """Mean wire-feed motor load."""


@dataclass(eq=False)
class WeldProcessLibraryReport(Record):
    """Answers a WeldProcessLibraryRequest."""

    IsJsonReportReady: bool = False
    """The JSON report has been written and is ready."""


@dataclass(eq=False)
class WeldProcessLibraryRequest(Record):
    """Asks for a report of the weld-process library, written as JSON to a file."""

    JsonFilePath: str = ""
    """Path of the JSON file."""
    LibraryJsonKey: str = ""
    """JSON key of the library."""


@dataclass(eq=False)
class WeldTraceDataPoint(Record):
    """One sample of the weld trace, one number per channel."""

    amps: float = 0.0
    """Current."""
    volts: float = 0.0
    """Arc voltage."""
    wfs: float = 0.0
    """Wire-feed speed."""
    gas: float = 0.0
    """Gas flow."""
    power: float = 0.0
    """Arc power."""
    motor: float = 0.0
    """Wire-feed motor load."""


@dataclass(eq=False)
class WeldTraceData(Record):
    """One trace sample as published during a weld."""

    sequence: int = 0
    """Running number of the sample within the weld."""
    timestamp: datetime = EPOCH
    """When the sample was taken."""
    data: WeldTraceDataPoint = field(default_factory=WeldTraceDataPoint)
    """The sample."""
    messageSerial: int = 0
    """Serial number of the message, see MessageSerialType."""


@dataclass(eq=False)
class WeldTraceDataPointDefinition(Record):
    """The description of the trace channels: the unit or label that a reader shows beside a sample's numbers."""

    amps: str = ""
    """Description of the current channel."""
    volts: str = ""
    """Description of the voltage channel."""
    wfs: str = ""
    """Description of the wire-feed-speed channel."""
    gas: str = ""
    """Description of the gas-flow channel."""
    power: str = ""
    """Description of the power channel."""
    motor: str = ""
    """Description of the motor channel."""


@dataclass(eq=False)
class WeldTriggerEnd(Record):
    """A weld ends. The time stamp comes before the tag, the other way round from WeldTriggerStart."""

    timestamp: datetime = EPOCH
    """When the arc ended."""
    tag: int = 0
    """Identifier of the weld, equal to the start event's."""
    lifetimeArcHours: float = 0.0
    """The machine's accumulated arc time, in hours."""
    metrics: WeldMetrics = field(default_factory=WeldMetrics)
    """Summary of the weld."""
    messageSerial: int = 0
    """Serial number of the message."""


@dataclass(eq=False)
class WeldTriggerStart(Record):
    """A weld starts. The trace channels are described once here; each later WeldTraceData carries only numbers."""

    tag: int = 0
    """Identifier of the weld, repeated in the matching WeldTriggerEnd."""
    timestamp: datetime = EPOCH
    """When the trigger was pulled."""
    samplePeriodus: int = 0
    """Period of the trace samples, in microseconds."""
    program: int = 0
    """Number of the weld program in use."""
    process: ProcessID = ProcessID(0)
    """Weld process code."""
    wireType: WireType = WireType(0)
    """Wire-type code."""
    wireSize: WireSize = WireSize(0)
    """Wire-size code."""
    alloy: AlloyID = AlloyID(0)
    """Alloy code."""
    gas: GasID = GasID(0)
    """Shielding-gas code."""
    settings: MachineSettings = field(default_factory=MachineSettings)
    """Commanded set points."""
    data: WeldTraceDataPointDefinition = field(default_factory=WeldTraceDataPointDefinition)
    """Description of the trace channels."""
    messageSerial: int = 0
    """Serial number of the message."""
    FeederSide: str = ""
    """Which feeder (side of a dual feeder) made the weld."""


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
