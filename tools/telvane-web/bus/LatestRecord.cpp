#include "telvane-web/bus/LatestRecord.h"

#include "common/support/Clock.h"
#include "common/support/Json.h"

#include <cerrno>

namespace TelvaneTool
{

bool LatestRecord::_packageData(cJSON* /*output*/)
{
    return false; // never sent
}

bool LatestRecord::_unpackageData(cJSON* input)
{
    const std::lock_guard<std::mutex> guard(m_latest->lock);
    ++m_latest->count;
    if (m_latest->wanted) {
        m_latest->wanted = false;
        m_latest->text = printJson(input);
        m_latest->time = realTimeNow();
    }
    return true;
}

int LatestRecord::copy(TelvaneDataTypeBase* /*other*/)
{
    return -EINVAL;
}

Telvane::TelvaneDataTypeBase* LatestRecord::BuildNewDataType() const
{
    return new LatestRecord(m_latest);
}

} // namespace TelvaneTool
