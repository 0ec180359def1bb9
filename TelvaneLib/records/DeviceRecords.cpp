// These records are nothing but their lists of fields, which stand in the header.

#include <Telvane/DeviceRecords.h>

namespace Telvane
{

TELVANE_DEFINE_RECORD(DeviceIdentity)
TELVANE_DEFINE_RECORD(DeviceCapabilities)
TELVANE_DEFINE_RECORD(DeviceSettings)
TELVANE_DEFINE_RECORD(HALInfo)
TELVANE_DEFINE_RECORD(HALStatus)
TELVANE_DEFINE_RECORD(PowerSourceConnection)
TELVANE_DEFINE_RECORD(ProcessSettings)
TELVANE_DEFINE_RECORD(SystemHealth)
TELVANE_DEFINE_RECORD(PowerDownStatus)
TELVANE_DEFINE_RECORD(AdminAccessSettings)
TELVANE_DEFINE_RECORD(MessageSerialType)
TELVANE_DEFINE_RECORD(TelvaneError)
TELVANE_DEFINE_RECORD(ApiErrorMessage)

} // namespace Telvane
