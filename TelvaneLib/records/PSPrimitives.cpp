// FlagType is the only class that records hold in fixed-size arrays. The base includes no record, so its array
// reader is instantiated here.

#include <Telvane/PSPrimitives.h>

#include "base/ArrayReading.h"

namespace Telvane
{

TELVANE_DEFINE_ARRAY_READER(FlagType)

} // namespace Telvane
