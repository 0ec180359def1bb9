// One unsigned comparison checks for numbers that are too large and for negative ones.

#include <Telvane/PSWeldCommand.h>

#include "records/PSCommandType.h"

namespace Telvane
{

PSWeldCommand::PSWeldCommand()
{
    mLabel = "PSWeldCommand";
    mCommandType = PSCommandType_Weld;
}

bool PSWeldCommand::Set(PSWeldFlags_e flag, bool value, bool status)
{
    const auto index = static_cast<unsigned>(flag);
    if (index >= kPSWeldFlagCount) {
        return false;
    }
    mWeldFlags[index].Flag = value;
    mWeldFlags[index].Status = status;
    return true;
}

bool PSWeldCommand::Get(PSWeldFlags_e flag) const
{
    const auto index = static_cast<unsigned>(flag);
    return index < kPSWeldFlagCount && mWeldFlags[index].Flag;
}

bool PSWeldCommand::GetStatus(PSWeldFlags_e flag) const
{
    const auto index = static_cast<unsigned>(flag);
    return index < kPSWeldFlagCount && mWeldFlags[index].Status;
}

void PSWeldCommand::ResetBuffers()
{
    for (FlagType& flag : mWeldFlags) {
        flag.Flag = false;
        flag.Status = false;
    }
}

void PSWeldCommand::SetCommandType(PSCommandType_e type)
{
    mCommandType = type;
}

PSCommandType_e PSWeldCommand::GetCommandType() const
{
    return commandType(mCommandType);
}

} // namespace Telvane
