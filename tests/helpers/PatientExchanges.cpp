// A client adds its second to the time of day, and the system wakes it when it is that late. So patience means that
// the process reads a time that is ahead of the system's.

#include "helpers/PatientExchanges.h"

#include "helpers/ProcessTestSupport.h"

#include <atomic>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr time_t kAhead = Telvane::Testing::kTimeout.count() - 1;

std::atomic<int> patientOnes{0};

} // namespace

/// Replaces that of the C library, for the libraries of the process as well.
extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const auto result = static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
    if (result == 0 && clock == CLOCK_REALTIME && patientOnes > 0) {
        time->tv_sec += kAhead;
    }
    return result;
}

namespace Telvane::Testing
{

PatientExchanges::PatientExchanges() noexcept
{
    ++patientOnes;
}

PatientExchanges::~PatientExchanges()
{
    --patientOnes;
}

} // namespace Telvane::Testing
