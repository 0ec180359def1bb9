// One unsigned comparison checks for numbers that are too large and for negative ones.

#include <Telvane/PSFeedback.h>

#include <algorithm>
#include <iterator>

namespace Telvane
{

PSFeedback::PSFeedback()
{
    Initialize();
}

void PSFeedback::Initialize()
{
    mLabel = "PSFeedback";
    std::fill(std::begin(mWeldFlags), std::end(mWeldFlags), false);
    std::fill(std::begin(mPSValues), std::end(mPSValues), 0);
}

bool PSFeedback::Set(PSWeldFlags_e flag, bool value)
{
    const auto index = static_cast<unsigned>(flag);
    if (index >= kPSWeldFlagCount) {
        return false;
    }
    mWeldFlags[index] = value;
    return true;
}

bool PSFeedback::Set(PSFeedback_e index, int value)
{
    const auto place = static_cast<unsigned>(index);
    if (place >= kPSFeedbackValueCount) {
        return false;
    }
    mPSValues[place] = value;
    return true;
}

bool PSFeedback::Get(PSWeldFlags_e flag) const
{
    const auto index = static_cast<unsigned>(flag);
    return index < kPSWeldFlagCount && mWeldFlags[index];
}

int PSFeedback::Get(PSFeedback_e index) const
{
    const auto place = static_cast<unsigned>(index);
    return place < kPSFeedbackValueCount ? mPSValues[place] : 0;
}

} // namespace Telvane
