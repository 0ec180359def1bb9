// This record is nothing but its list of fields, which stands in the header.

#include <Telvane/AutomationStatus.h>

namespace Telvane
{

TELVANE_DEFINE_RECORD(AutomationStatus)

} // namespace Telvane
