/// \file
/// The small records that the power-source command model is made of.
///
/// They hold plain values and are copied freely, also as elements of vectors. No number is range-checked:
/// a label outside every enumeration is carried as it is.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// One integer value with a status.
class TELVANE_EXPORT ValueType : public TelvaneDataTypeBase
{
public:
    int Value = 0;       ///< the value
    bool Status = false; ///< the value has been set and is valid

    TELVANE_RECORD(ValueType, Value, Status)
};

/// One on/off flag with a status.
class TELVANE_EXPORT FlagType : public TelvaneDataTypeBase
{
public:
    bool Flag = false;   ///< the flag
    bool Status = false; ///< the flag has been set and is valid

    TELVANE_RECORD(FlagType, Flag, Status)
};

/// An integer value with the label that says which quantity it is. Commands carry their modes and values
/// as sequences of these.
class TELVANE_EXPORT ValueLabelType : public TelvaneDataTypeBase
{
public:
    int Label = 0;       ///< which quantity: a number of PSValues_e or ProgramCommand_e
    int Value = 0;       ///< the value
    bool Status = false; ///< the value has been set and is valid

    TELVANE_RECORD(ValueLabelType, Label, Value, Status)
};

/// An on/off flag with the label that says which flag it is.
class TELVANE_EXPORT FlagLabelType : public TelvaneDataTypeBase
{
public:
    int Label = 0;       ///< which flag
    bool Flag = false;   ///< the flag
    bool Status = false; ///< the flag has been set and is valid

    TELVANE_RECORD(FlagLabelType, Label, Flag, Status)
};

/// One weld program. The numbers are the consumable codes of Consumables.h.
class TELVANE_EXPORT ProgramType : public TelvaneDataTypeBase
{
public:
    int PROC = 0; ///< weld process, a number of _ProcessID_e
    int WT = 0;   ///< wire type, a number of _WireType_e
    int WS = 0;   ///< wire size, a number of _WireSize_e
    int GT = 0;   ///< shielding gas, a number of _GasID_e

    TELVANE_RECORD(ProgramType, PROC, WT, WS, GT)
};

/// A request for a function of the power source.
class TELVANE_EXPORT PSFunctionRequest : public TelvaneDataTypeBase
{
public:
    int RequestID = 0; ///< which function is requested
    int Value = 0;     ///< the request's argument

    TELVANE_RECORD(PSFunctionRequest, RequestID, Value)
};

} // namespace Telvane
