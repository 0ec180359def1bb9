#pragma once

// Numbers in the files and blocks of the archive.

#include <cstdint>
#include <cstring>
#include <endian.h>
#include <string>
#include <string_view>

namespace TelvaneArchive
{

/// Appends the lowest bytes of a number, 8 at most.
inline void putFixed(std::string& output, std::uint64_t value, std::size_t bytes)
{
    value = htole64(value);
    output.append(reinterpret_cast<const char*>(&value), bytes);
}

/// \return a number of 8 bytes at most, which the data must have
inline std::uint64_t getFixed(std::string_view data, std::size_t offset, std::size_t bytes)
{
    std::uint64_t value = 0;
    std::memcpy(&value, data.data() + offset, bytes);
    return le64toh(value);
}

/// \return the same bits as a number of another type
template <class To, class From>
To bitCast(From value)
{
    static_assert(sizeof(To) == sizeof(From));
    To result = {};
    std::memcpy(&result, &value, sizeof result);
    return result;
}

} // namespace TelvaneArchive
