#pragma once

#include <Telvane/PSCommand.h>

namespace Telvane
{

/// \return the kind; PSCommandType_OutOfRange for numbers from there on and for negative ones
inline PSCommandType_e commandType(int stored)
{
    return static_cast<unsigned>(stored) < static_cast<unsigned>(PSCommandType_OutOfRange)
               ? static_cast<PSCommandType_e>(stored)
               : PSCommandType_OutOfRange;
}

} // namespace Telvane
