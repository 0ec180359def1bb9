#pragma once

// The numbers that a server gives its messages. Any number may come from the bus or from a file, so the arithmetic is
// unsigned, which wraps around at a multiple of the cycle.

namespace TelvaneTool
{

/// Sequence numbers of a server, which then start again at 0.
constexpr int kSequenceNumbers = 65536;

/// \return by how many numbers \p next is after \p last, 0 to 65535; 0 also after a full cycle
constexpr int sequenceStep(int last, int next)
{
    return static_cast<int>((static_cast<unsigned>(next) - static_cast<unsigned>(last)) % kSequenceNumbers);
}

/// \return how many numbers are between two, 0 to 65535; a repeated number means a full cycle
constexpr int sequencesBetween(int last, int next)
{
    return static_cast<int>((static_cast<unsigned>(next) - static_cast<unsigned>(last) - 1U) %
                            kSequenceNumbers);
}

} // namespace TelvaneTool
