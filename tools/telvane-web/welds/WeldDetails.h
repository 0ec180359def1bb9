#pragma once

#include "telvane-web/welds/WeldArchive.h"

#include <cstdint>

namespace TelvaneTool
{

/// \return a weld with all its columns, what the judge found and the events on the bus, as JSON
HttpReply describeWeld(WeldArchive& archive, std::int64_t id);

} // namespace TelvaneTool
