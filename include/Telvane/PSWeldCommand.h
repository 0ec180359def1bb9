/// \file
/// Command that sets the weld flags.
#pragma once

#include <Telvane/PSCommand.h>
#include <Telvane/PSPrimitives.h>
#include <Telvane/RecordTable.h>

#include <string>

namespace Telvane
{

/// Indices of the weld flags of PSWeldCommand and PSFeedback. The power source defines the function of each.
enum PSWeldFlags_e : int
{
    PSWeldFlags_Flag0 = 0, ///< the first weld flag
    PSWeldFlags_Flag1 = 1, ///< the second weld flag
    PSWeldFlags_Flag2 = 2, ///< the third weld flag
    PSWeldFlags_Flag3 = 3, ///< the fourth weld flag
};

/// Count of weld flags.
constexpr unsigned kPSWeldFlagCount = 4;

/// Data of a weld command.
class TELVANE_EXPORT PSWeldCommandBase : public TelvaneDataTypeBase
{
public:
    std::string mLabel;                         ///< name of the command, for people
    int mCommandType = 0;                       ///< kind, a number of PSCommandType_e
    bool mResponseFlag = false;                 ///< true to request a response
    FlagType mWeldFlags[kPSWeldFlagCount] = {}; ///< weld flags, indexed by PSWeldFlags_e

    TELVANE_RECORD(PSWeldCommandBase, mLabel, mCommandType, mResponseFlag, mWeldFlags)
};

/// Weld command with access to flags by index.
class TELVANE_EXPORT PSWeldCommand : public PSWeldCommandBase
{
public:
    /// Creates a command of kind PSCommandType_Weld with the label "PSWeldCommand" and all flags cleared.
    PSWeldCommand();

    /// Sets a flag and its status.
    /// \return true; false if \p flag is not below kPSWeldFlagCount, and nothing changes
    bool Set(PSWeldFlags_e flag, bool value, bool status);
    /// \return the flag; false if \p flag is not below kPSWeldFlagCount
    bool Get(PSWeldFlags_e flag) const;
    /// \return the flag's status; false if \p flag is not below kPSWeldFlagCount
    bool GetStatus(PSWeldFlags_e flag) const;

    /// Clears all flags and their statuses. Keeps label, kind and response flag.
    void ResetBuffers();

    /// Sets the kind of the command.
    void SetCommandType(PSCommandType_e type);
    /// \return the kind; 7 if it is 7 or more
    PSCommandType_e GetCommandType() const;

    TELVANE_DERIVED_RECORD(PSWeldCommand)
};

} // namespace Telvane
