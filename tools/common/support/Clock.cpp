#include "common/support/Clock.h"

#include <ctime>

namespace TelvaneTool
{

namespace
{

Nanoseconds read(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

} // namespace

Nanoseconds monotonicNow()
{
    return read(CLOCK_MONOTONIC);
}

Nanoseconds realTimeNow()
{
    return read(CLOCK_REALTIME);
}

} // namespace TelvaneTool
