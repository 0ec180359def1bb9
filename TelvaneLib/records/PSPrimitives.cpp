// These records are nothing but their lists of fields, which stand in the header.

#include <Telvane/PSPrimitives.h>

#include "base/ArrayReading.h"

namespace Telvane
{

TELVANE_DEFINE_RECORD(ValueType)
TELVANE_DEFINE_RECORD(FlagType)
TELVANE_DEFINE_RECORD(ValueLabelType)
TELVANE_DEFINE_RECORD(FlagLabelType)
TELVANE_DEFINE_RECORD(ProgramType)
TELVANE_DEFINE_RECORD(PSFunctionRequest)

TELVANE_DEFINE_ARRAY_READER(FlagType)

} // namespace Telvane
