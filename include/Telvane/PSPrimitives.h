/// \file
/// Small records that commands, feedback and memory slots of the power source consist of.
///
/// Labels and values outside the enumerations are allowed; the library does not check them.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// An integer with a status.
class TELVANE_EXPORT ValueType : public TelvaneDataTypeBase
{
public:
    int Value = 0;       ///< the value; the record that has this member defines the unit
    bool Status = false; ///< true once the value has been set

    TELVANE_RECORD(ValueType, Value, Status)
};

/// A flag with a status.
class TELVANE_EXPORT FlagType : public TelvaneDataTypeBase
{
public:
    bool Flag = false;   ///< true for on
    bool Status = false; ///< true once the flag has been set

    TELVANE_RECORD(FlagType, Flag, Status)
};

/// An integer with a label for its quantity. Commands hold their modes and values as vectors of these.
class TELVANE_EXPORT ValueLabelType : public TelvaneDataTypeBase
{
public:
    int Label = 0;       ///< the quantity, a number of PSValues_e or ProgramCommand_e
    int Value = 0;       ///< the value; the power source defines the unit for each label
    bool Status = false; ///< true once the value has been set

    TELVANE_RECORD(ValueLabelType, Label, Value, Status)
};

/// A flag with a label for its function.
class TELVANE_EXPORT FlagLabelType : public TelvaneDataTypeBase
{
public:
    int Label = 0;       ///< the function, a number of the power source
    bool Flag = false;   ///< true for on
    bool Status = false; ///< true once the flag has been set

    TELVANE_RECORD(FlagLabelType, Label, Flag, Status)
};

/// One weld program: a process and its consumables, as codes of Consumables.h.
class TELVANE_EXPORT ProgramType : public TelvaneDataTypeBase
{
public:
    int PROC = 0; ///< weld process, a code of _ProcessID_e
    int WT = 0;   ///< wire type, a code of _WireType_e
    int WS = 0;   ///< wire size, a code of _WireSize_e
    int GT = 0;   ///< shielding gas, a code of _GasID_e

    TELVANE_RECORD(ProgramType, PROC, WT, WS, GT)
};

/// Request for a function of the power source.
class TELVANE_EXPORT PSFunctionRequest : public TelvaneDataTypeBase
{
public:
    int RequestID = 0; ///< the function, a number of the power source
    int Value = 0;     ///< argument of the function; the power source defines its unit

    TELVANE_RECORD(PSFunctionRequest, RequestID, Value)
};

} // namespace Telvane
