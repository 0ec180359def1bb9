#include "archive/store/ArchiveStore.h"

#include <ctime>
#include <fstream>
#include <random>
#include <sys/timex.h>

namespace TelvaneArchive
{

namespace
{

std::string firstLine(const char* path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

} // namespace

std::string bootId()
{
    return firstLine("/proc/sys/kernel/random/boot_id");
}

bool clockIsSet()
{
    timex state = {};
    const int result = adjtimex(&state);
    return result >= 0 && result != TIME_ERROR && (state.status & STA_UNSYNC) == 0;
}

std::int64_t utcOffset(std::int64_t nanoseconds)
{
    const auto seconds = static_cast<time_t>(nanoseconds / TelvaneTool::kSecond);
    std::tm parts = {};
    return localtime_r(&seconds, &parts) != nullptr ? parts.tm_gmtoff : 0;
}

std::string newUid()
{
    std::string uid = firstLine("/proc/sys/kernel/random/uuid");
    if (!uid.empty()) {
        return uid;
    }
    std::random_device device;
    return std::to_string(device()) + "-" + std::to_string(device()) + "-" + std::to_string(device());
}

} // namespace TelvaneArchive
