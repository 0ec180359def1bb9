#pragma once

#include "common/support/Clock.h"
#include "helpers/ProcessTestSupport.h"

namespace TelvaneTool::Mqtt
{

/// A broker is one more process that has to get its turn, often several times.
constexpr Nanoseconds kTimeout = 100 * kSecond;

/// Waits until \p condition is true.
/// \return false if it does not become true in time
template <class Condition>
bool eventually(Condition condition)
{
    return Telvane::Testing::eventually(std::move(condition), std::chrono::seconds(kTimeout / kSecond));
}

} // namespace TelvaneTool::Mqtt
