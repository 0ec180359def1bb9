// These records are nothing but their lists of fields, which stand in the header.

#include <Telvane/RtaModuleRecords.h>

namespace Telvane
{

TELVANE_DEFINE_RECORD(RtaModuleOutBoundData)
TELVANE_DEFINE_RECORD(RtaModuleInBoundData)
TELVANE_DEFINE_RECORD(RtaModuleData)
TELVANE_DEFINE_RECORD(RtaModuleDataRequest)

} // namespace Telvane
