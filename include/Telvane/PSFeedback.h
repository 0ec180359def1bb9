/// \file
/// Feedback of the power source: readiness, weld flags and values.
#pragma once

#include <Telvane/PSWeldCommand.h>
#include <Telvane/RecordTable.h>

#include <string>

namespace Telvane
{

/// Indices of the feedback values. The power source defines the quantity and the unit of each.
enum PSFeedback_e : int
{
    PSFeedback_Value0 = 0,   ///< feedback value 0
    PSFeedback_Value1 = 1,   ///< feedback value 1
    PSFeedback_Value2 = 2,   ///< feedback value 2
    PSFeedback_Value3 = 3,   ///< feedback value 3
    PSFeedback_Value4 = 4,   ///< feedback value 4
    PSFeedback_Value5 = 5,   ///< feedback value 5
    PSFeedback_Value6 = 6,   ///< feedback value 6
    PSFeedback_Value7 = 7,   ///< feedback value 7
    PSFeedback_Value8 = 8,   ///< feedback value 8
    PSFeedback_Value9 = 9,   ///< feedback value 9
    PSFeedback_Value10 = 10, ///< feedback value 10
    PSFeedback_Value11 = 11, ///< feedback value 11
    PSFeedback_Value12 = 12, ///< feedback value 12
    PSFeedback_Value13 = 13, ///< feedback value 13
    PSFeedback_Value14 = 14, ///< feedback value 14
    PSFeedback_Value15 = 15, ///< feedback value 15
    PSFeedback_Value16 = 16, ///< feedback value 16
    PSFeedback_Value17 = 17, ///< feedback value 17
    PSFeedback_Value18 = 18, ///< feedback value 18
    PSFeedback_Value19 = 19, ///< feedback value 19
    PSFeedback_Value20 = 20, ///< feedback value 20
    PSFeedback_Value21 = 21, ///< feedback value 21
    PSFeedback_Value22 = 22, ///< feedback value 22
    PSFeedback_Value23 = 23, ///< feedback value 23
};

/// Count of feedback values.
constexpr unsigned kPSFeedbackValueCount = 24;

/// Data of a feedback record.
class TELVANE_EXPORT PSFeedbackBase : public TelvaneDataTypeBase
{
public:
    std::string mLabel;                        ///< name of the record, for people
    bool mPSReady = false;                     ///< true if the power source reports that it is ready
    bool mWeldFlags[kPSWeldFlagCount] = {};    ///< reported weld flags, indexed by PSWeldFlags_e
    int mPSValues[kPSFeedbackValueCount] = {}; ///< values, indexed by PSFeedback_e, each in its own unit

    TELVANE_RECORD(PSFeedbackBase, mLabel, mPSReady, mWeldFlags, mPSValues)
};

/// Feedback record with access to flags and values by index.
class TELVANE_EXPORT PSFeedback : public PSFeedbackBase
{
public:
    /// Creates a record with the label "PSFeedback", all flags false and all values 0.
    PSFeedback();

    /// Resets label, flags and values to what the constructor sets. Keeps `mPSReady`: whether the power
    /// source is ready does not depend on what it has reported.
    void Initialize();

    /// \return true; false if \p flag is not below kPSWeldFlagCount, and nothing changes
    bool Set(PSWeldFlags_e flag, bool value);
    /// \return true; false if \p index is not below kPSFeedbackValueCount, and nothing changes
    bool Set(PSFeedback_e index, int value);
    /// \return the flag; false if \p flag is not below kPSWeldFlagCount
    bool Get(PSWeldFlags_e flag) const;
    /// \return the value; 0 if \p index is not below kPSFeedbackValueCount
    int Get(PSFeedback_e index) const;

    TELVANE_DERIVED_RECORD(PSFeedback)
};

} // namespace Telvane
