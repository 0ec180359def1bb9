// Appending reports a lack of memory in its result and in a line that is formatted without allocating. Kinds
// and labels are not checked. A program command throws the vector's exception for an entry that it does not
// have.

#include <Telvane/PSCommand.h>

#include "records/PSCommandType.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <iostream>
#include <limits>

namespace Telvane
{

namespace
{

constexpr std::size_t kUsualModes = 17;
constexpr std::size_t kUsualValues = 35;
constexpr unsigned kProgramEntries = 4;

/// \param failure start of the line that reports a lack of memory
bool append(std::vector<ValueLabelType>& list, PSValues_e label, int value, const char* failure)
{
    ValueLabelType entry;
    entry.Label = label;
    entry.Value = value;
    entry.Status = true;
    try {
        list.push_back(entry);
    } catch (const std::exception&) {
        // The line contains only the low 16 bits of the value.
        std::array<char, 128> line{};
        std::snprintf(line.data(), line.size(), "%s vector push_back failed - label: %u value: %u\n", failure,
                      static_cast<unsigned>(label), static_cast<unsigned>(static_cast<std::uint16_t>(value)));
        std::cerr << line.data();
        return false;
    }
    return true;
}

} // namespace

PSCommand::PSCommand()
{
    mLabel = "PSCommand";
    mCommandType = PSCommandType_General;
    mModes.reserve(kUsualModes);
    mValues.reserve(kUsualValues);
}

void PSCommand::SetCommandType(PSCommandType_e type)
{
    mCommandType = type;
}

PSCommandType_e PSCommand::GetCommandType() const
{
    return commandType(mCommandType);
}

bool PSCommand::InsertMode(PSValues_e label, int value)
{
    return append(mModes, label, value, "PSCommand::InsertMode");
}

bool PSCommand::InsertValue(PSValues_e label, int value)
{
    return append(mValues, label, value, "PSCommand::Insert");
}

void PSCommand::ResetBuffers()
{
    mValues.clear();
}

PSProgramCommand::PSProgramCommand()
{
    mLabel = "PSProgramCommand";
    mCommandType = PSCommandType_Program;
    mValues.resize(kProgramEntries);
}

bool PSProgramCommand::Set(ProgramCommand_e command, int value)
{
    const auto index = static_cast<unsigned>(command);
    if (index > kProgramEntries) {
        return false;
    }
    ValueLabelType& entry = mValues.at(index);
    entry.Label = command;
    entry.Value = value;
    entry.Status = true;
    return true;
}

int PSProgramCommand::Get(ProgramCommand_e command) const
{
    const auto index = static_cast<unsigned>(command);
    if (index >= kProgramEntries || mValues.size() != kProgramEntries || mValues[index].Label != command) {
        return std::numeric_limits<int>::max();
    }
    return mValues[index].Value;
}

void PSProgramCommand::SetCommandType(PSCommandType_e type)
{
    mCommandType = type;
}

PSCommandType_e PSProgramCommand::GetCommandType() const
{
    return commandType(mCommandType);
}

void PSProgramCommand::ResetBuffers()
{
    mValues.clear();
}

} // namespace Telvane
