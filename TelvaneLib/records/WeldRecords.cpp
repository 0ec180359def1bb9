// These records are nothing but their lists of fields, which stand in the header.

#include <Telvane/WeldRecords.h>

namespace Telvane
{

TELVANE_DEFINE_RECORD(UnitValuePair)
TELVANE_DEFINE_RECORD(UnitValueDoublePair)
TELVANE_DEFINE_RECORD(MachineSettings)
TELVANE_DEFINE_RECORD(WeldMetrics)
TELVANE_DEFINE_RECORD(WeldTraceDataPoint)
TELVANE_DEFINE_RECORD(WeldTraceDataPointDefinition)
TELVANE_DEFINE_RECORD(WeldTraceData)
TELVANE_DEFINE_RECORD(WeldTriggerStart)
TELVANE_DEFINE_RECORD(WeldTriggerEnd)
TELVANE_DEFINE_RECORD(TelvaneDataConfirmation)
TELVANE_DEFINE_RECORD(TelvaneDataFullStatus)
TELVANE_DEFINE_RECORD(DataStatus)
TELVANE_DEFINE_RECORD(LogData)

} // namespace Telvane
