// These records are nothing but their lists of fields, which stand in the header.

#include <Telvane/ModuleRecords.h>

namespace Telvane
{

TELVANE_DEFINE_RECORD(NetworkInfo)
TELVANE_DEFINE_RECORD(TimeSyncType)
TELVANE_DEFINE_RECORD(TimeType)
TELVANE_DEFINE_RECORD(USBDetection)
TELVANE_DEFINE_RECORD(FileInfoType)
TELVANE_DEFINE_RECORD(ErrorLogType)
TELVANE_DEFINE_RECORD(IncomingCommands)
TELVANE_DEFINE_RECORD(CarrierFileInfo)
TELVANE_DEFINE_RECORD(CarrierInfo)
TELVANE_DEFINE_RECORD(CanTelvaneUpdateCode)
TELVANE_DEFINE_RECORD(FirmwareUpdateStart)
TELVANE_DEFINE_RECORD(FirmwareUpdateEnd)
TELVANE_DEFINE_RECORD(PostConfig)
TELVANE_DEFINE_RECORD(ConfigRequest)
TELVANE_DEFINE_RECORD(ConfigReply)
TELVANE_DEFINE_RECORD(SocketInfo)
TELVANE_DEFINE_RECORD(SocketConnectionStatus)

} // namespace Telvane
