// A record with a member of a type that records do not support. The compiler must name the member.
#include <Telvane/RecordTable.h>

class Inspection : public Telvane::TelvaneDataTypeBase
{
public:
    int seam = 0;
    char* inspector = nullptr;

    TELVANE_RECORD(Inspection, seam, inspector)
};
TELVANE_DEFINE_RECORD(Inspection)
