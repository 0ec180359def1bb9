/// \file
/// The body of every request.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// A record without fields of its own: what a request carries on "req_" + channel. It can be read from
/// any object.
class TELVANE_EXPORT RequestType : public TelvaneDataTypeBase
{
public:
    TELVANE_RECORD_WITHOUT_FIELDS(RequestType)
};

} // namespace Telvane
