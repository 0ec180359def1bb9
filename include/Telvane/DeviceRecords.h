/// \file
/// Who and how the equipment is: identity, capabilities and settings of power source and wire feeder, the
/// state of the module's hardware layer and processes, power-down notices, access settings and errors.
///
/// Some keys are misspelled ("standardLibraryPartNUmber", "custommLibraryPartNumber"). They are part of the
/// wire format and stay. Type codes and thresholds are set by the producer; where no unit is named here, it
/// is the producer's.
#pragma once

#include <Telvane/DateTime.h>
#include <Telvane/RecordTable.h>

namespace Telvane
{

/// The identity of the power source and the wire feeder.
class TELVANE_EXPORT DeviceIdentity : public TelvaneDataTypeBase
{
public:
    int powerSourceType = 0;                     ///< type code of the power source
    std::string powerSourceStockNumber;          ///< stock (catalogue) number of the power source
    std::string powerSourceReportedSerialNumber; ///< serial number as the power source reports it
    std::string powerSourceFirmwareRev;          ///< firmware revision of the power source
    std::string programSetPartNumber;            ///< part number of the set of weld programs loaded
    std::string standardLibraryPartNUmber;       ///< part number of the standard weld-program library
    std::string custommLibraryPartNumber;        ///< part number of the custom weld-program library
    int feederType = 0;                          ///< type code of the wire feeder
    std::string feederSerialNumber;              ///< serial number of the feeder
    std::string feederFirmwareRev;               ///< firmware revision of the feeder
    int feederIsDual = 0;                        ///< non-zero when the feeder has two sides
    int cultureSelection = 0;                    ///< locale (culture) selection code of the power source

    TELVANE_RECORD(DeviceIdentity, powerSourceType, powerSourceStockNumber, powerSourceReportedSerialNumber,
                   powerSourceFirmwareRev, programSetPartNumber, standardLibraryPartNUmber,
                   custommLibraryPartNumber, feederType, feederSerialNumber, feederFirmwareRev, feederIsDual,
                   cultureSelection)
};

/// What the connected power source is able to report.
class TELVANE_EXPORT DeviceCapabilities : public TelvaneDataTypeBase
{
public:
    bool allowsFeederAttachment = false;         ///< a wire feeder can be attached
    bool realTimeStatusDrivenByEvents = false;   ///< real-time status is driven by events
    bool reportsBatteryVoltage = false;          ///< reports a battery voltage
    bool reportsVolts = false;                   ///< reports arc voltage
    bool reportsAmps = false;                    ///< reports current
    bool reportsWireFeedSpeed = false;           ///< reports wire-feed speed
    bool reportsProgramNumber = false;           ///< reports the active program number
    bool reportsProcess = false;                 ///< reports the weld process
    bool reportsPowerSupplySerialNumber = false; ///< reports its serial number
    bool reportsGasType = false;                 ///< reports the gas type
    bool reportsWireAlloy = false;               ///< reports the wire alloy
    bool reportsWireDiameter = false;            ///< reports the wire diameter
    bool reportsLifetimeArcHours = false;        ///< reports accumulated arc hours
    bool reportsWeldEvents = false;              ///< reports weld start and end events
    bool reportsPower = false;                   ///< reports arc power
    bool reportsGasFlowRate = false;             ///< reports gas flow rate

    TELVANE_RECORD(DeviceCapabilities, allowsFeederAttachment, realTimeStatusDrivenByEvents,
                   reportsBatteryVoltage, reportsVolts, reportsAmps, reportsWireFeedSpeed,
                   reportsProgramNumber, reportsProcess, reportsPowerSupplySerialNumber, reportsGasType,
                   reportsWireAlloy, reportsWireDiameter, reportsLifetimeArcHours, reportsWeldEvents,
                   reportsPower, reportsGasFlowRate)
};

/// The settings and last-known state that the module holds for the connected equipment.
class TELVANE_EXPORT DeviceSettings : public TelvaneDataTypeBase
{
public:
    DateTime timestamp;                          ///< when the settings were taken
    std::string operatorIDVersion;               ///< version of the operator-identification data
    std::string operatorID;                      ///< identification of the current operator
    int currentSensorConfig = 0;                 ///< configuration code of the current sensor
    double batteryVoltage = 0.0;                 ///< battery voltage
    double lifetimeArc = 0.0;                    ///< accumulated arc time of the power source
    std::string powerSourceDescription;          ///< description text of the power source
    std::string powerSourceStockNumber;          ///< stock number of the power source
    std::string powerSourceReportedSerialNumber; ///< serial number as the power source reports it
    std::string powerSourceFirmwareRev;          ///< firmware revision of the power source
    std::string feederDescription;               ///< description text of the feeder
    std::string feederSerialNumber;              ///< serial number of the feeder
    std::string feederFirmwareRev;               ///< firmware revision of the feeder
    int messageSerial = 0;                       ///< serial number of the message, see MessageSerialType
    int arcStartThreshold = 0;                   ///< threshold at which an arc counts as started

    TELVANE_RECORD(DeviceSettings, timestamp, operatorIDVersion, operatorID, currentSensorConfig,
                   batteryVoltage, lifetimeArc, powerSourceDescription, powerSourceStockNumber,
                   powerSourceReportedSerialNumber, powerSourceFirmwareRev, feederDescription,
                   feederSerialNumber, feederFirmwareRev, messageSerial, arcStartThreshold)
};

/// The identity of the module's hardware layer.
class TELVANE_EXPORT HALInfo : public TelvaneDataTypeBase
{
public:
    std::string serialNumber;       ///< serial number of the module
    std::string machineType;        ///< machine type text
    int hardwareRevisionNumber = 0; ///< hardware revision
    int firmwareImageType = 0;      ///< type code of the firmware image running
    int revisionNumber = 0;         ///< firmware revision number

    TELVANE_RECORD(HALInfo, serialNumber, machineType, hardwareRevisionNumber, firmwareImageType,
                   revisionNumber)
};

/// The state of the module's hardware layer.
class TELVANE_EXPORT HALStatus : public TelvaneDataTypeBase
{
public:
    bool ready = false; ///< the hardware layer is ready

    TELVANE_RECORD(HALStatus, ready)
};

/// Whether there is a power source to talk to.
class TELVANE_EXPORT PowerSourceConnection : public TelvaneDataTypeBase
{
public:
    bool isConnected = false; ///< a power source is connected

    TELVANE_RECORD(PowerSourceConnection, isConnected)
};

/// Whether the weld process may run.
class TELVANE_EXPORT ProcessSettings : public TelvaneDataTypeBase
{
public:
    bool IsProcessEnabled = false; ///< the weld process is enabled

    TELVANE_RECORD(ProcessSettings, IsProcessEnabled)
};

/// The health report of one process on the module.
class TELVANE_EXPORT SystemHealth : public TelvaneDataTypeBase
{
public:
    int code = 0;            ///< health or error code
    std::string processName; ///< name of the reporting process

    TELVANE_RECORD(SystemHealth, code, processName)
};

/// Announces that the module is about to power down.
class TELVANE_EXPORT PowerDownStatus : public TelvaneDataTypeBase
{
public:
    bool isPoweringDown = false;    ///< a power-down is in progress
    std::string nameOfCaller;       ///< the process that asked for it
    std::string reasonForPowerdown; ///< why

    TELVANE_RECORD(PowerDownStatus, isPoweringDown, nameOfCaller, reasonForPowerdown)
};

/// The administrator's access to the module's maintenance interfaces.
class TELVANE_EXPORT AdminAccessSettings : public TelvaneDataTypeBase
{
public:
    std::string expiryDate;     ///< date after which the access ends, as text; not checked
    bool enableShell = false;   ///< a maintenance shell is allowed
    bool enableConsole = false; ///< a console login is allowed

    TELVANE_RECORD(AdminAccessSettings, expiryDate, enableShell, enableConsole)
};

/// The serial number of a message.
class TELVANE_EXPORT MessageSerialType : public TelvaneDataTypeBase
{
public:
    int messageSerial = 0; ///< serial number, as in the records that carry a messageSerial themselves

    TELVANE_RECORD(MessageSerialType, messageSerial)
};

/// An error, told in words.
class TELVANE_EXPORT TelvaneError : public TelvaneDataTypeBase
{
public:
    std::string Message; ///< error text

    TELVANE_RECORD(TelvaneError, Message)
};

/// An error that an interface of the module returned.
class TELVANE_EXPORT ApiErrorMessage : public TelvaneDataTypeBase
{
public:
    int ErrorCode = 0;       ///< error number
    std::string ErrorString; ///< error text

    TELVANE_RECORD(ApiErrorMessage, ErrorCode, ErrorString)
};

} // namespace Telvane
