#pragma once

#include <cstdint>
#include <cstdlib>

namespace Telvane
{

/// Numbers of each random kind; TELVANE_NUMBER_TEST_COUNT asks for more in a long run.
inline std::uint64_t numberTestCount()
{
    const char* const wanted = std::getenv("TELVANE_NUMBER_TEST_COUNT");
    return wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : 100'000;
}

} // namespace Telvane
