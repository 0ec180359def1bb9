#pragma once

#include "common/support/Clock.h"

namespace TelvaneTool
{

/// The turn that askForShortTurns() asks for.
constexpr Nanoseconds kShortTurn = 100 * kMicrosecond;

/// Asks the kernel for short turns for this thread: then it need not wait long for the first of them when it wakes, even
/// if all cores are busy. Takes no rights, and no time from others. Linux can do it from version 6.12 on; before, and
/// where it is not permitted, nothing changes.
void askForShortTurns();

} // namespace TelvaneTool
