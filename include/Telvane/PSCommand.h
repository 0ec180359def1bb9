/// \file
/// Commands to the power source: a kind, two ordered lists of labelled integers (modes to switch, values to
/// set) and two flags about the response.
///
/// The numbers of the enumerations are the contract with the power source and what stands in JSON; their
/// names are this library's. Every number may be carried, named or not, and none is checked but where an
/// accessor says so. Negative numbers count there as very large ones.
#pragma once

#include <Telvane/PSPrimitives.h>
#include <Telvane/RecordTable.h>

#include <string>
#include <vector>

namespace Telvane
{

/// The kind of a command. Kinds without a name here are carried like the others.
enum PSCommandType_e : int
{
    PSCommandType_Weld = 0,       ///< a PSWeldCommand
    PSCommandType_General = 3,    ///< a PSCommand
    PSCommandType_Program = 4,    ///< a PSProgramCommand
    PSCommandType_OutOfRange = 7, ///< what GetCommandType() makes of every number from 7 on
};

/// Which quantity a mode or value of a PSCommand is. The power source assigns the numbers, for example
/// `PSValues_e(5)`; the library only carries them.
enum PSValues_e : int
{
};

/// The entries of a PSProgramCommand, in the order of the members of ProgramType.
enum ProgramCommand_e : int
{
    ProgramCommand_Process = 0,  ///< weld process
    ProgramCommand_WireType = 1, ///< wire type
    ProgramCommand_WireSize = 2, ///< wire size
    ProgramCommand_GasType = 3,  ///< shielding gas
};

/// The data of every command, and its JSON form.
class TELVANE_EXPORT PSCommandBase : public TelvaneDataTypeBase
{
public:
    std::string mLabel;                  ///< name of the command
    int mCommandType = 0;                ///< kind of command, a number of PSCommandType_e
    bool mResponseFlag = false;          ///< a response is requested
    bool mPublishResponse = false;       ///< the response is to be published on the bus
    std::vector<ValueLabelType> mModes;  ///< modes to apply, in order
    std::vector<ValueLabelType> mValues; ///< values to apply, in order

    TELVANE_RECORD(PSCommandBase, mLabel, mCommandType, mResponseFlag, mPublishResponse, mModes, mValues)
};

/// The general command, filled by appending modes and values.
class TELVANE_EXPORT PSCommand : public PSCommandBase
{
public:
    /// A command of the general kind, called "PSCommand", without modes and values. There is room for 17
    /// modes and 35 values, so that an ordinary command is built without another allocation.
    PSCommand();

    /// Sets the kind of the command.
    void SetCommandType(PSCommandType_e type);
    /// \return the stored kind, or 7 when it is 7 or more
    PSCommandType_e GetCommandType() const;

    /// Appends a mode, with its status set.
    /// \return true; false when memory is exhausted, after one line on standard error
    bool InsertMode(PSValues_e label, int value);

    /// Appends a value, with its status set.
    /// \return true; false when memory is exhausted, after one line on standard error
    bool InsertValue(PSValues_e label, int value);

    /// Empties the values and keeps their room. The modes stay, and so accumulate until their owner clears
    /// them.
    void ResetBuffers();

    TELVANE_DERIVED_RECORD(PSCommand)
};

/// A command that selects a weld program by four entries of `mValues`, one per ProgramCommand_e.
///
/// The four entries are there from construction. ResetBuffers() removes them, and reading may bring another
/// number of them; only reading or `copy` brings them back.
class TELVANE_EXPORT PSProgramCommand : public PSCommandBase
{
public:
    /// A command of the program kind, called "PSProgramCommand", with four default entries.
    PSProgramCommand();

    /// Stores \p value, with its label and status, in the entry of \p command.
    /// \return true; false, with nothing changed, for a number above 4. (Number 4 passes, although Get()
    ///         refuses it.)
    /// \throws std::out_of_range when `mValues` has no entry of that number; with four entries: always for 4
    bool Set(ProgramCommand_e command, int value);

    /// \return the value of the entry of \p command, whatever its status; 2147483647 for a number above 3,
    ///         when `mValues` does not hold exactly four entries, or when the entry bears another label (as
    ///         every entry but the first does until it is set)
    int Get(ProgramCommand_e command) const;

    /// Sets the kind of the command.
    void SetCommandType(PSCommandType_e type);
    /// \return the stored kind, or 7 when it is 7 or more
    PSCommandType_e GetCommandType() const;

    /// Removes all entries and keeps their room.
    void ResetBuffers();

    TELVANE_DERIVED_RECORD(PSProgramCommand)
};

} // namespace Telvane
