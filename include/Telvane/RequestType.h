/// \file
/// The record that requests carry.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// Requests for channel C are published on the channel `kRequestPrefix + C`, and answered on C.
constexpr char kRequestPrefix[] = "req_";

/// The record that a request carries, which has no fields of its own. It can be read from any object.
class TELVANE_EXPORT RequestType : public TelvaneDataTypeBase
{
public:
    TELVANE_RECORD_WITHOUT_FIELDS(RequestType)
};

} // namespace Telvane
