// The client drops a payload that its record cannot read, and the library prints a line about it to standard output,
// which the tool uses for data. This record therefore accepts every payload and decodes it itself.

#include "common/bus/DecodedRecord.h"

#include "common/bus/RecordCheck.h"
#include "common/bus/RecordText.h"
#include "common/support/Json.h"

#include <cerrno>
#include <memory>

namespace TelvaneTool
{

using Telvane::TelvaneDataTypeBase;

DecodedRecord::DecodedRecord(const Telvane::RecordClass* recordClass) : m_recordClass(recordClass)
{
    if (recordClass != nullptr) {
        const std::unique_ptr<TelvaneDataTypeBase> record(recordClass->build());
        m_table = record->_recordTable();
    }
}

bool DecodedRecord::_packageData(cJSON* /*output*/)
{
    return false; // never sent
}

bool DecodedRecord::_unpackageData(cJSON* input)
{
    if (m_recordClass != nullptr && (m_table == nullptr || !isAsWritten(input, *m_table))) {
        m_decodeError = checkRecord(input, m_recordClass->table(), Strictness::Receiving);
        if (m_decodeError.empty()) {
            const std::unique_ptr<TelvaneDataTypeBase> record(m_recordClass->build());
            cJSON* packaged = nullptr;
            if (record->Unpackage(input) == 0 && record->Package(&packaged) == 0) {
                m_text = printJson(JsonTree(packaged).get(), false, &m_replaced);
                return true;
            }
            cJSON_Delete(packaged);
            m_decodeError = "the library cannot read it";
        }
    }
    m_text = printJson(input, false, &m_replaced);
    return true;
}

int DecodedRecord::copy(TelvaneDataTypeBase* other)
{
    const auto* const source = dynamic_cast<DecodedRecord*>(other);
    if (source == nullptr) {
        return -EINVAL;
    }
    *this = *source;
    return 0;
}

TelvaneDataTypeBase* DecodedRecord::BuildNewDataType() const
{
    return new DecodedRecord(m_recordClass, m_table);
}

} // namespace TelvaneTool
