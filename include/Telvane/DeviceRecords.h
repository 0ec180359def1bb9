/// \file
/// Identity, capabilities and settings of the power source and the wire feeder; state of the module's
/// hardware layer and processes; power-down notices, access settings and errors.
///
/// Some keys are misspelled ("standardLibraryPartNUmber", "custommLibraryPartNumber"). They stay, because
/// they are part of the wire format. Publishers define the codes; the library does not check them.
#pragma once

#include <Telvane/DateTime.h>
#include <Telvane/RecordTable.h>

namespace Telvane
{

/// Identity of the power source and the wire feeder.
class TELVANE_EXPORT DeviceIdentity : public TelvaneDataTypeBase
{
public:
    int powerSourceType = 0;                     ///< type of the power source, a code of its maker
    std::string powerSourceStockNumber;          ///< number of the power source in its maker's catalogue
    std::string powerSourceReportedSerialNumber; ///< serial number as the power source reports it
    std::string powerSourceFirmwareRev;          ///< firmware revision of the power source
    std::string programSetPartNumber;            ///< part number of the weld programs that are loaded
    std::string standardLibraryPartNUmber;       ///< part number of the standard weld-program library
    std::string custommLibraryPartNumber;        ///< part number of the custom weld-program library
    int feederType = 0;                          ///< type of the wire feeder, a code of its maker
    std::string feederSerialNumber;              ///< serial number of the feeder
    std::string feederFirmwareRev;               ///< firmware revision of the feeder
    int feederIsDual = 0;     ///< 0 for a single wire feeder, another number for a dual one
    int cultureSelection = 0; ///< language and region, a code of the power source

    TELVANE_RECORD(DeviceIdentity, powerSourceType, powerSourceStockNumber, powerSourceReportedSerialNumber,
                   powerSourceFirmwareRev, programSetPartNumber, standardLibraryPartNUmber,
                   custommLibraryPartNumber, feederType, feederSerialNumber, feederFirmwareRev, feederIsDual,
                   cultureSelection)
};

/// What the connected power source can report.
class TELVANE_EXPORT DeviceCapabilities : public TelvaneDataTypeBase
{
public:
    bool allowsFeederAttachment = false;         ///< true if a wire feeder can be attached
    bool realTimeStatusDrivenByEvents = false;   ///< true if its real-time status is driven by events
    bool reportsBatteryVoltage = false;          ///< true if it reports the voltage of its battery
    bool reportsVolts = false;                   ///< true if it reports the arc voltage
    bool reportsAmps = false;                    ///< true if it reports the current
    bool reportsWireFeedSpeed = false;           ///< true if it reports the wire-feed speed
    bool reportsProgramNumber = false;           ///< true if it reports the number of the weld program
    bool reportsProcess = false;                 ///< true if it reports the weld process
    bool reportsPowerSupplySerialNumber = false; ///< true if it reports its serial number
    bool reportsGasType = false;                 ///< true if it reports the shielding gas
    bool reportsWireAlloy = false;               ///< true if it reports the wire alloy
    bool reportsWireDiameter = false;            ///< true if it reports the wire diameter
    bool reportsLifetimeArcHours = false;        ///< true if it reports its accumulated arc hours
    bool reportsWeldEvents = false;              ///< true if it reports start and end of each weld
    bool reportsPower = false;                   ///< true if it reports the arc power
    bool reportsGasFlowRate = false;             ///< true if it reports the gas flow

    TELVANE_RECORD(DeviceCapabilities, allowsFeederAttachment, realTimeStatusDrivenByEvents,
                   reportsBatteryVoltage, reportsVolts, reportsAmps, reportsWireFeedSpeed,
                   reportsProgramNumber, reportsProcess, reportsPowerSupplySerialNumber, reportsGasType,
                   reportsWireAlloy, reportsWireDiameter, reportsLifetimeArcHours, reportsWeldEvents,
                   reportsPower, reportsGasFlowRate)
};

/// Settings and last known state of the connected equipment, as the module keeps them.
class TELVANE_EXPORT DeviceSettings : public TelvaneDataTypeBase
{
public:
    DateTime timestamp;                          ///< when the module read them
    std::string operatorIDVersion;               ///< version of the data that identify operators
    std::string operatorID;                      ///< identifier of the current operator
    int currentSensorConfig = 0;                 ///< configuration code of the current sensor
    double batteryVoltage = 0.0;                 ///< battery voltage; the unit is the publisher's
    double lifetimeArc = 0.0;                    ///< accumulated arc time; the unit is the publisher's
    std::string powerSourceDescription;          ///< description of the power source for people
    std::string powerSourceStockNumber;          ///< number of the power source in its maker's catalogue
    std::string powerSourceReportedSerialNumber; ///< serial number as the power source reports it
    std::string powerSourceFirmwareRev;          ///< firmware revision of the power source
    std::string feederDescription;               ///< description of the wire feeder for people
    std::string feederSerialNumber;              ///< serial number of the feeder
    std::string feederFirmwareRev;               ///< firmware revision of the feeder
    int messageSerial = 0;     ///< publisher's number for the message; see MessageSerialType
    int arcStartThreshold = 0; ///< threshold for the start of an arc; the unit is the publisher's

    TELVANE_RECORD(DeviceSettings, timestamp, operatorIDVersion, operatorID, currentSensorConfig,
                   batteryVoltage, lifetimeArc, powerSourceDescription, powerSourceStockNumber,
                   powerSourceReportedSerialNumber, powerSourceFirmwareRev, feederDescription,
                   feederSerialNumber, feederFirmwareRev, messageSerial, arcStartThreshold)
};

/// Identity of the module's hardware.
class TELVANE_EXPORT HALInfo : public TelvaneDataTypeBase
{
public:
    std::string serialNumber;       ///< serial number of the module
    std::string machineType;        ///< type of the machine, as text
    int hardwareRevisionNumber = 0; ///< revision of the module's hardware
    int firmwareImageType = 0;      ///< type of the running firmware image, a code of the publisher
    int revisionNumber = 0;         ///< revision of the running firmware

    TELVANE_RECORD(HALInfo, serialNumber, machineType, hardwareRevisionNumber, firmwareImageType,
                   revisionNumber)
};

/// State of the module's hardware layer.
class TELVANE_EXPORT HALStatus : public TelvaneDataTypeBase
{
public:
    bool ready = false; ///< true once the hardware layer is ready

    TELVANE_RECORD(HALStatus, ready)
};

/// Connection of the module to its power source.
class TELVANE_EXPORT PowerSourceConnection : public TelvaneDataTypeBase
{
public:
    bool isConnected = false; ///< true while a power source is connected

    TELVANE_RECORD(PowerSourceConnection, isConnected)
};

/// Whether the weld process may run.
class TELVANE_EXPORT ProcessSettings : public TelvaneDataTypeBase
{
public:
    bool IsProcessEnabled = false; ///< true if the weld process is enabled

    TELVANE_RECORD(ProcessSettings, IsProcessEnabled)
};

/// Health report of one process of the module.
class TELVANE_EXPORT SystemHealth : public TelvaneDataTypeBase
{
public:
    int code = 0;            ///< health or error, a code of the reporting process
    std::string processName; ///< name of the reporting process

    TELVANE_RECORD(SystemHealth, code, processName)
};

/// Notice that the module is going to power down.
class TELVANE_EXPORT PowerDownStatus : public TelvaneDataTypeBase
{
public:
    bool isPoweringDown = false;    ///< true once the power-down has begun
    std::string nameOfCaller;       ///< name of the process that requested it
    std::string reasonForPowerdown; ///< reason, as a text for people

    TELVANE_RECORD(PowerDownStatus, isPoweringDown, nameOfCaller, reasonForPowerdown)
};

/// Access of an administrator to the module for maintenance.
class TELVANE_EXPORT AdminAccessSettings : public TelvaneDataTypeBase
{
public:
    std::string expiryDate;     ///< date after which the access ends, as text; the format is the publisher's
    bool enableShell = false;   ///< true if a maintenance shell is allowed
    bool enableConsole = false; ///< true if a login at the console is allowed

    TELVANE_RECORD(AdminAccessSettings, expiryDate, enableShell, enableConsole)
};

/// Serial number of a message.
class TELVANE_EXPORT MessageSerialType : public TelvaneDataTypeBase
{
public:
    int messageSerial = 0; ///< the number, equal to `messageSerial` of the message

    TELVANE_RECORD(MessageSerialType, messageSerial)
};

/// An error, as a text.
class TELVANE_EXPORT TelvaneError : public TelvaneDataTypeBase
{
public:
    std::string Message; ///< error message for people

    TELVANE_RECORD(TelvaneError, Message)
};

/// An error that a programming interface of the module returned.
class TELVANE_EXPORT ApiErrorMessage : public TelvaneDataTypeBase
{
public:
    int ErrorCode = 0;       ///< error code of that interface; the library defines none
    std::string ErrorString; ///< error message for people

    TELVANE_RECORD(ApiErrorMessage, ErrorCode, ErrorString)
};

} // namespace Telvane
