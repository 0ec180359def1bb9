// A request says nothing but that it is one, and by its channel what it asks for.

#include <Telvane/RequestType.h>

namespace Telvane
{

TELVANE_DEFINE_RECORD(RequestType)

} // namespace Telvane
