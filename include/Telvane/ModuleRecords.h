/// \file
/// The module's housekeeping: network links, time, USB stick, files and error logs, commands from outside,
/// the carrier board, firmware updates, configuration, and socket connections.
///
/// Codes are set by the producers on the bus, and no value is checked: paths, addresses, ports and sizes are
/// carried as given.
#pragma once

#include <Telvane/DateTime.h>
#include <Telvane/RecordTable.h>

namespace Telvane
{

/// The state of the network links at a moment.
class TELVANE_EXPORT NetworkInfo : public TelvaneDataTypeBase
{
public:
    DateTime timestamp;               ///< when the state was taken
    int signalStrength = 0;           ///< strength of the wireless signal
    bool wiFiIsConnected = false;     ///< the wireless link is connected
    bool ethernetIsConnected = false; ///< the wired link is connected

    TELVANE_RECORD(NetworkInfo, timestamp, signalStrength, wiFiIsConnected, ethernetIsConnected)
};

/// The result of a time synchronisation.
class TELVANE_EXPORT TimeSyncType : public TelvaneDataTypeBase
{
public:
    DateTime serverTimestamp;           ///< the time given by the server
    bool receivedTimeFromCloud = false; ///< the time came from the cloud service

    TELVANE_RECORD(TimeSyncType, serverTimestamp, receivedTimeFromCloud)
};

/// A bare time stamp.
class TELVANE_EXPORT TimeType : public TelvaneDataTypeBase
{
public:
    DateTime timestamp; ///< the time

    TELVANE_RECORD(TimeType, timestamp)
};

/// A USB stick was inserted, or its use ended.
class TELVANE_EXPORT USBDetection : public TelvaneDataTypeBase
{
public:
    bool USBPresent = false; ///< a USB stick is present
    bool USBDone = false;    ///< work on the stick is finished
    std::string USB_path;    ///< mount path of the stick

    TELVANE_RECORD(USBDetection, USBPresent, USBDone, USB_path)
};

/// Names a file for another process.
class TELVANE_EXPORT FileInfoType : public TelvaneDataTypeBase
{
public:
    int typeEnum = 0;     ///< kind of file, a code of the producer's
    std::string fileName; ///< file name
    std::string filePath; ///< directory or full path of the file

    TELVANE_RECORD(FileInfoType, typeEnum, fileName, filePath)
};

/// One entry of the error log.
class TELVANE_EXPORT ErrorLogType : public TelvaneDataTypeBase
{
public:
    std::string code;      ///< error code, as text (in SystemHealth the key of this name is a number)
    std::string message;   ///< error text
    DateTime timestamp;    ///< when the error occurred
    int messageSerial = 0; ///< serial number of the message

    TELVANE_RECORD(ErrorLogType, code, message, timestamp, messageSerial)
};

/// Commands and settings received from outside the module and handed to its processes.
class TELVANE_EXPORT IncomingCommands : public TelvaneDataTypeBase
{
public:
    std::string firmwareFilePath;           ///< path of a firmware file to install
    int currentSensorType = 0;              ///< type code of the current sensor to use
    bool currentSensorTypeReceived = false; ///< currentSensorType holds a received value
    double arcStartThreshold = 0.0;         ///< threshold at which an arc counts as started
    bool logFilesAreRequested = false;      ///< the log files are to be sent
    std::string operatorName;               ///< name of the operator

    TELVANE_RECORD(IncomingCommands, firmwareFilePath, currentSensorType, currentSensorTypeReceived,
                   arcStartThreshold, logFilesAreRequested, operatorName)
};

/// A file for or from the carrier board.
class TELVANE_EXPORT CarrierFileInfo : public TelvaneDataTypeBase
{
public:
    std::string fileFullPath; ///< full path of the file
    std::string fileName;     ///< file name
    int fileSize = 0;         ///< size, in bytes

    TELVANE_RECORD(CarrierFileInfo, fileFullPath, fileName, fileSize)
};

/// The versions of the carrier board's software.
class TELVANE_EXPORT CarrierInfo : public TelvaneDataTypeBase
{
public:
    std::string appVersion;        ///< application version
    std::string bootloaderVersion; ///< bootloader version
    int HALVersion = 0;            ///< version of the hardware layer

    TELVANE_RECORD(CarrierInfo, appVersion, bootloaderVersion, HALVersion)
};

/// Answers whether the module may update its code.
class TELVANE_EXPORT CanTelvaneUpdateCode : public TelvaneDataTypeBase
{
public:
    int Code = 0; ///< answer code, set by the producer

    TELVANE_RECORD(CanTelvaneUpdateCode, Code)
};

/// A firmware update begins.
class TELVANE_EXPORT FirmwareUpdateStart : public TelvaneDataTypeBase
{
public:
    std::string partGettingUpdated; ///< the part whose firmware is being updated

    TELVANE_RECORD(FirmwareUpdateStart, partGettingUpdated)
};

/// A firmware update has ended.
class TELVANE_EXPORT FirmwareUpdateEnd : public TelvaneDataTypeBase
{
public:
    std::string partThatWasUpdated;   ///< the part whose firmware was updated
    bool wasUpdateSuccessful = false; ///< the update succeeded

    TELVANE_RECORD(FirmwareUpdateEnd, partThatWasUpdated, wasUpdateSuccessful)
};

/// Sets a configuration value.
class TELVANE_EXPORT PostConfig : public TelvaneDataTypeBase
{
public:
    std::string Key;   ///< configuration key to set
    std::string Value; ///< new value, as text

    TELVANE_RECORD(PostConfig, Key, Value)
};

/// Asks for a configuration value.
class TELVANE_EXPORT ConfigRequest : public TelvaneDataTypeBase
{
public:
    std::string Key; ///< configuration key asked for

    TELVANE_RECORD(ConfigRequest, Key)
};

/// Answers a ConfigRequest. Its JSON form is that of PostConfig, but the two are distinct classes.
class TELVANE_EXPORT ConfigReply : public TelvaneDataTypeBase
{
public:
    std::string Key;   ///< the key asked for
    std::string Value; ///< its value, as text

    TELVANE_RECORD(ConfigReply, Key, Value)
};

/// The address of a socket connection's peer.
class TELVANE_EXPORT SocketInfo : public TelvaneDataTypeBase
{
public:
    std::string IPAddress; ///< address of the peer, as text
    int Port = 0;          ///< port of the peer

    TELVANE_RECORD(SocketInfo, IPAddress, Port)
};

/// The state of a socket connection.
class TELVANE_EXPORT SocketConnectionStatus : public TelvaneDataTypeBase
{
public:
    int Errno = 0; ///< error number (errno) of the connection

    TELVANE_RECORD(SocketConnectionStatus, Errno)
};

} // namespace Telvane
