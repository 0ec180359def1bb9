#pragma once

#include "common/support/Clock.h"

#include <poll.h>

namespace TelvaneTool::Mqtt
{

constexpr Nanoseconds kTimeout = 100 * kSecond;

/// Waits until \p condition is true.
/// \return false if it does not become true in time
template <class Condition>
bool eventually(Condition condition)
{
    const Nanoseconds end = monotonicNow() + kTimeout;
    while (!condition()) {
        if (monotonicNow() > end) {
            return false;
        }
        poll(nullptr, 0, 5);
    }
    return true;
}

} // namespace TelvaneTool::Mqtt
