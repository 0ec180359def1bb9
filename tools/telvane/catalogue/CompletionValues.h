#pragma once

#include "common/cli/Completion.h"

#include <functional>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// \return the channels of the server at \p path; none if it does not respond at once
using ChannelSource = std::function<std::vector<std::string>(const std::string& path)>;

/// \return the values of CHANNEL, CLASS, TABLE and CODE
ValueSources completionValues(ChannelSource channels);

} // namespace TelvaneTool
