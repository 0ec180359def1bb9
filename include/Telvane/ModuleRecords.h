/// \file
/// The module itself: network links, time, USB stick, files and error logs, commands from outside, the
/// carrier board, firmware updates, configuration, and socket connections.
///
/// Publishers define the codes. The library does not check paths, addresses, ports or sizes.
#pragma once

#include <Telvane/DateTime.h>
#include <Telvane/RecordTable.h>

namespace Telvane
{

/// State of the network links.
class TELVANE_EXPORT NetworkInfo : public TelvaneDataTypeBase
{
public:
    DateTime timestamp;               ///< when the state was read
    int signalStrength = 0;           ///< strength of the wireless signal; the unit is the publisher's
    bool wiFiIsConnected = false;     ///< true if the wireless link is connected
    bool ethernetIsConnected = false; ///< true if the wired link is connected

    TELVANE_RECORD(NetworkInfo, timestamp, signalStrength, wiFiIsConnected, ethernetIsConnected)
};

/// Result of a time synchronisation.
class TELVANE_EXPORT TimeSyncType : public TelvaneDataTypeBase
{
public:
    DateTime serverTimestamp;           ///< time according to the server
    bool receivedTimeFromCloud = false; ///< true if the time came from the cloud service

    TELVANE_RECORD(TimeSyncType, serverTimestamp, receivedTimeFromCloud)
};

/// A point in time.
class TELVANE_EXPORT TimeType : public TelvaneDataTypeBase
{
public:
    DateTime timestamp; ///< the point in time

    TELVANE_RECORD(TimeType, timestamp)
};

/// Insertion of a USB stick, or the end of its use.
class TELVANE_EXPORT USBDetection : public TelvaneDataTypeBase
{
public:
    bool USBPresent = false; ///< true while a USB stick is inserted
    bool USBDone = false;    ///< true once the module has finished with it
    std::string USB_path;    ///< directory at which it is mounted

    TELVANE_RECORD(USBDetection, USBPresent, USBDone, USB_path)
};

/// A file for another process.
class TELVANE_EXPORT FileInfoType : public TelvaneDataTypeBase
{
public:
    int typeEnum = 0;     ///< kind of file, a code of the publisher
    std::string fileName; ///< name without the directory
    std::string filePath; ///< directory, or the full path

    TELVANE_RECORD(FileInfoType, typeEnum, fileName, filePath)
};

/// One entry of the error log.
class TELVANE_EXPORT ErrorLogType : public TelvaneDataTypeBase
{
public:
    std::string code;      ///< error code of the publisher, as text; SystemHealth::code is a number
    std::string message;   ///< error message for people
    DateTime timestamp;    ///< when the error occurred
    int messageSerial = 0; ///< publisher's number for the message; see MessageSerialType

    TELVANE_RECORD(ErrorLogType, code, message, timestamp, messageSerial)
};

/// Commands and settings from outside the module, for its processes.
class TELVANE_EXPORT IncomingCommands : public TelvaneDataTypeBase
{
public:
    std::string firmwareFilePath;           ///< path of a firmware file to install; empty for none
    int currentSensorType = 0;              ///< type code of the current sensor; see the next member
    bool currentSensorTypeReceived = false; ///< true if currentSensorType was received
    double arcStartThreshold = 0.0;    ///< threshold for the start of an arc; the unit is the publisher's
    bool logFilesAreRequested = false; ///< true to send the log files
    std::string operatorName;          ///< name of the operator

    TELVANE_RECORD(IncomingCommands, firmwareFilePath, currentSensorType, currentSensorTypeReceived,
                   arcStartThreshold, logFilesAreRequested, operatorName)
};

/// A file for or from the carrier board.
class TELVANE_EXPORT CarrierFileInfo : public TelvaneDataTypeBase
{
public:
    std::string fileFullPath; ///< path, with the directory
    std::string fileName;     ///< name without the directory
    int fileSize = 0;         ///< size, in bytes

    TELVANE_RECORD(CarrierFileInfo, fileFullPath, fileName, fileSize)
};

/// Versions of the software on the carrier board.
class TELVANE_EXPORT CarrierInfo : public TelvaneDataTypeBase
{
public:
    std::string appVersion;        ///< version of the application
    std::string bootloaderVersion; ///< version of the boot loader
    int HALVersion = 0;            ///< version of the hardware layer

    TELVANE_RECORD(CarrierInfo, appVersion, bootloaderVersion, HALVersion)
};

/// Reply to the question whether the module may update its code.
class TELVANE_EXPORT CanTelvaneUpdateCode : public TelvaneDataTypeBase
{
public:
    int Code = 0; ///< the answer, a code of the publisher

    TELVANE_RECORD(CanTelvaneUpdateCode, Code)
};

/// Start of a firmware update.
class TELVANE_EXPORT FirmwareUpdateStart : public TelvaneDataTypeBase
{
public:
    std::string partGettingUpdated; ///< name of the part that is updated

    TELVANE_RECORD(FirmwareUpdateStart, partGettingUpdated)
};

/// End of a firmware update.
class TELVANE_EXPORT FirmwareUpdateEnd : public TelvaneDataTypeBase
{
public:
    std::string partThatWasUpdated;   ///< name of the part that was updated
    bool wasUpdateSuccessful = false; ///< true if the update succeeded

    TELVANE_RECORD(FirmwareUpdateEnd, partThatWasUpdated, wasUpdateSuccessful)
};

/// Request to set a configuration value.
class TELVANE_EXPORT PostConfig : public TelvaneDataTypeBase
{
public:
    std::string Key;   ///< name of the value
    std::string Value; ///< new value, as text

    TELVANE_RECORD(PostConfig, Key, Value)
};

/// Request for a configuration value.
class TELVANE_EXPORT ConfigRequest : public TelvaneDataTypeBase
{
public:
    std::string Key; ///< name of the value

    TELVANE_RECORD(ConfigRequest, Key)
};

/// Reply to a ConfigRequest. It looks like a PostConfig in JSON but is a class of its own.
class TELVANE_EXPORT ConfigReply : public TelvaneDataTypeBase
{
public:
    std::string Key;   ///< name of the value
    std::string Value; ///< the value, as text

    TELVANE_RECORD(ConfigReply, Key, Value)
};

/// Address of the peer of a network connection.
class TELVANE_EXPORT SocketInfo : public TelvaneDataTypeBase
{
public:
    std::string IPAddress; ///< IP address, as text
    int Port = 0;          ///< port number

    TELVANE_RECORD(SocketInfo, IPAddress, Port)
};

/// State of a network connection.
class TELVANE_EXPORT SocketConnectionStatus : public TelvaneDataTypeBase
{
public:
    int Errno = 0; ///< error number of the system (`errno`); 0 without an error

    TELVANE_RECORD(SocketConnectionStatus, Errno)
};

} // namespace Telvane
