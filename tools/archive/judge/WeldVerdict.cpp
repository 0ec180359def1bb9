#include "archive/judge/WeldVerdict.h"

namespace TelvaneArchive
{

TELVANE_DEFINE_RECORD(VerdictReason)
TELVANE_DEFINE_RECORD(WeldVerdict)

} // namespace TelvaneArchive
