#include "listen/SampleRecord.h"

#include "common/support/Json.h"

#include <cerrno>

namespace TelvaneTool
{

using Telvane::TelvaneDataTypeBase;

const DecodedRecord& SampleRecord::decoded()
{
    if (!m_decoded) {
        cJSON* packaged = nullptr;
        Package(&packaged);
        _unpackageData(JsonTree(packaged).get());
    }
    return *m_decoded;
}

bool SampleRecord::_unpackageData(cJSON* input)
{
    m_decoded.emplace(Telvane::RecordCatalogue::find("WeldTraceData"));
    return m_decoded->_unpackageData(input);
}

int SampleRecord::copy(TelvaneDataTypeBase* other)
{
    const auto* const source = dynamic_cast<SampleRecord*>(other);
    if (source == nullptr) {
        return -EINVAL;
    }
    *this = *source;
    return 0;
}

TelvaneDataTypeBase* SampleRecord::BuildNewDataType() const
{
    return new SampleRecord();
}

const Telvane::RecordTable* SampleRecord::_recordTable() const
{
    return &recordTable();
}

} // namespace TelvaneTool
