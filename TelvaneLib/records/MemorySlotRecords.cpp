// These records are nothing but their lists of fields, which stand in the header.

#include <Telvane/MemorySlotRecords.h>

namespace Telvane
{

TELVANE_DEFINE_RECORD(WeldProcessLibraryRequest)
TELVANE_DEFINE_RECORD(WeldProcessLibraryReport)
TELVANE_DEFINE_RECORD(GetMemorySlotSettingsRequest)
TELVANE_DEFINE_RECORD(MemorySlotDownloadSummary)
TELVANE_DEFINE_RECORD(MemorySlotFleetManagementDownloadSettings)
TELVANE_DEFINE_RECORD(SetMemorySlotSettingsWeldControlRequest)
TELVANE_DEFINE_RECORD(MemorySlotSettingsReport)
TELVANE_DEFINE_RECORD(MemorySlotSettingsWeldControlReply)
TELVANE_DEFINE_RECORD(MemorySlotSettingsGlobal)
TELVANE_DEFINE_RECORD(MemorySlotLimitsEnable)

} // namespace Telvane
