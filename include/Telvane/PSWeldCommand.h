/// \file
/// The command that sets the weld flags.
#pragma once

#include <Telvane/PSCommand.h>
#include <Telvane/PSPrimitives.h>
#include <Telvane/RecordTable.h>

#include <string>

namespace Telvane
{

/// The weld flags of PSWeldCommand and PSFeedback, by their place in the array. The numbers are the contract;
/// which function a flag switches is the power source's.
enum PSWeldFlags_e : int
{
    PSWeldFlags_Flag0 = 0, ///< the first weld flag
    PSWeldFlags_Flag1 = 1, ///< the second weld flag
    PSWeldFlags_Flag2 = 2, ///< the third weld flag
    PSWeldFlags_Flag3 = 3, ///< the fourth weld flag
};

/// The number of weld flags.
constexpr unsigned kPSWeldFlagCount = 4;

/// The data of a weld command, and its JSON form.
class TELVANE_EXPORT PSWeldCommandBase : public TelvaneDataTypeBase
{
public:
    std::string mLabel;                         ///< name of the record
    int mCommandType = 0;                       ///< kind of command, a number of PSCommandType_e
    bool mResponseFlag = false;                 ///< a response is requested
    FlagType mWeldFlags[kPSWeldFlagCount] = {}; ///< the weld flags by PSWeldFlags_e, each with a status

    TELVANE_RECORD(PSWeldCommandBase, mLabel, mCommandType, mResponseFlag, mWeldFlags)
};

/// A weld command, called "PSWeldCommand". Flag numbers above 3, and negative ones, are refused.
class TELVANE_EXPORT PSWeldCommand : public PSWeldCommandBase
{
public:
    PSWeldCommand();

    /// \return true; false, with nothing changed, when there is no such flag
    bool Set(PSWeldFlags_e flag, bool value, bool status);
    /// \return the flag; false when there is no such flag
    bool Get(PSWeldFlags_e flag) const;
    /// \return the flag's status; false when there is no such flag
    bool GetStatus(PSWeldFlags_e flag) const;

    /// Clears all flags and their statuses; label, kind and response flag stay.
    void ResetBuffers();

    /// Sets the kind of the command.
    void SetCommandType(PSCommandType_e type);
    /// \return the stored kind, or 7 when it is 7 or more
    PSCommandType_e GetCommandType() const;

    TELVANE_DERIVED_RECORD(PSWeldCommand)
};

} // namespace Telvane
