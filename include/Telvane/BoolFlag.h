/// \file
/// A two-state flag for arrays of flags.
#pragma once

namespace Telvane
{

/// One byte that is either 0 (false) or 1 (true). It is written and read as a JSON `true` or `false`, just
/// as `bool` is, but is a type of its own so that arrays of flags stay apart from arrays of plain booleans.
struct BoolFlag
{
    unsigned char state = 0; ///< 0 or 1

    BoolFlag() = default;
    /// Implicit, as is the way back: a flag stands wherever a bool is meant.
    BoolFlag(bool on) : state(on ? 1 : 0) {}
    /// \return whether it is set
    operator bool() const { return state != 0; }
};

static_assert(sizeof(BoolFlag) == 1, "a flag is one byte");

} // namespace Telvane
