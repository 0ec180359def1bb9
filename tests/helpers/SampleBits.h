#pragma once

#include <cstring>

namespace Telvane::Testing
{

/// A template, because the helpers do not know the archive.
/// \return whether two samples of a weld are the same to the bit
template <class Sample>
bool sameBits(const Sample& a, const Sample& b)
{
    return a.number == b.number && a.serial == b.serial && a.time == b.time &&
           std::memcmp(a.values.data(), b.values.data(), sizeof a.values) == 0;
}

} // namespace Telvane::Testing
