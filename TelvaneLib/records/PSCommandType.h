#pragma once

#include <Telvane/PSCommand.h>

namespace Telvane
{

/// The kind that a command's stored number stands for. A negative number counts as a very large one.
inline PSCommandType_e commandType(int stored)
{
    return static_cast<unsigned>(stored) < static_cast<unsigned>(PSCommandType_OutOfRange)
               ? static_cast<PSCommandType_e>(stored)
               : PSCommandType_OutOfRange;
}

} // namespace Telvane
