/// \file
/// A flag for arrays of flags.
#pragma once

namespace Telvane
{

/// A flag of one byte. It is written to JSON and read from it like a `bool`, but is a type of its own, so
/// that functions can tell arrays of flags from arrays of `bool`.
struct BoolFlag
{
    unsigned char state = 0; ///< 0 for false, 1 for true

    BoolFlag() = default;
    /// Converts from `bool`. Both conversions are implicit, so that a flag can be used like a `bool`.
    BoolFlag(bool on) : state(on ? 1 : 0) {}
    /// \return true if the flag is set
    operator bool() const { return state != 0; }
};

static_assert(sizeof(BoolFlag) == 1, "a flag is one byte");

} // namespace Telvane
