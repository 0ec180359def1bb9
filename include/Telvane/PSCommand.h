/// \file
/// Commands to the power source: a kind, lists of modes and values, and two flags for the response.
///
/// The power source defines the numbers of the enumerations, which JSON contains. The library defines the names.
/// Other numbers are allowed. The library checks a number only where an operation says so, and
/// treats a negative one as a very large one.
#pragma once

#include <Telvane/PSPrimitives.h>
#include <Telvane/RecordTable.h>

#include <string>
#include <vector>

namespace Telvane
{

/// Kinds of commands.
enum PSCommandType_e : int
{
    PSCommandType_Weld = 0,       ///< a PSWeldCommand
    PSCommandType_General = 3,    ///< a PSCommand
    PSCommandType_Program = 4,    ///< a PSProgramCommand
    PSCommandType_OutOfRange = 7, ///< returned by GetCommandType() for each number from 7
};

/// Quantities of the modes and values of a PSCommand. The power source defines the numbers; write for example
/// `PSValues_e(5)`.
enum PSValues_e : int
{
};

/// Entries of a PSProgramCommand, in the order of the members of ProgramType.
enum ProgramCommand_e : int
{
    ProgramCommand_Process = 0,  ///< weld process
    ProgramCommand_WireType = 1, ///< wire type
    ProgramCommand_WireSize = 2, ///< wire size
    ProgramCommand_GasType = 3,  ///< shielding gas
};

/// Data of a command.
class TELVANE_EXPORT PSCommandBase : public TelvaneDataTypeBase
{
public:
    std::string mLabel;                  ///< name of the command, for people
    int mCommandType = 0;                ///< kind, a number of PSCommandType_e
    bool mResponseFlag = false;          ///< true to request a response
    bool mPublishResponse = false;       ///< true to publish the response on the bus
    std::vector<ValueLabelType> mModes;  ///< modes, in the order in which they are applied
    std::vector<ValueLabelType> mValues; ///< values, in the order in which they are applied

    TELVANE_RECORD(PSCommandBase, mLabel, mCommandType, mResponseFlag, mPublishResponse, mModes, mValues)
};

/// General command with any number of modes and values.
class TELVANE_EXPORT PSCommand : public PSCommandBase
{
public:
    /// Creates a command of kind PSCommandType_General with the label "PSCommand", without modes and values.
    ///
    /// Reserves memory for 17 modes and 35 values, so that an ordinary command needs no further allocation.
    PSCommand();

    /// Sets the kind of the command.
    void SetCommandType(PSCommandType_e type);
    /// \return the kind; 7 if it is 7 or more
    PSCommandType_e GetCommandType() const;

    /// Appends a mode with `Status` true.
    /// \return true; false if out of memory, with one line on standard error and nothing appended
    bool InsertMode(PSValues_e label, int value);

    /// Appends a value with `Status` true.
    /// \return true; false if out of memory, with one line on standard error and nothing appended
    bool InsertValue(PSValues_e label, int value);

    /// Removes the values but keeps their memory. Keeps the modes: clear `mModes` yourself.
    void ResetBuffers();

    TELVANE_DERIVED_RECORD(PSCommand)
};

/// Command that selects a weld program with four entries of `mValues`, one for each ProgramCommand_e.
///
/// The constructor creates the four entries. After ResetBuffers() there are none, and after unpackaging as
/// many as were received. Only unpackaging and copy() restore them.
class TELVANE_EXPORT PSProgramCommand : public PSCommandBase
{
public:
    /// Creates a command of kind PSCommandType_Program, labelled "PSProgramCommand", with four default
    /// entries.
    PSProgramCommand();

    /// Sets the entry of \p command to \p value, its label to \p command and its status to true.
    /// \return true; false if \p command is above 4 (not 3), and nothing changes
    /// \throws std::out_of_range if `mValues` has no such entry: with four entries, if \p command is 4
    bool Set(ProgramCommand_e command, int value);

    /// \return the value of the entry of \p command, regardless of its status; 2147483647 if \p command is
    ///         above 3, if `mValues` does not have exactly four entries, or if the entry has another label
    ///         (as all but the first have until they are set)
    int Get(ProgramCommand_e command) const;

    /// Sets the kind of the command.
    void SetCommandType(PSCommandType_e type);
    /// \return the kind; 7 if it is 7 or more
    PSCommandType_e GetCommandType() const;

    /// Removes all entries but keeps their memory.
    void ResetBuffers();

    TELVANE_DERIVED_RECORD(PSProgramCommand)
};

} // namespace Telvane
