#include "telvane-mqtt/channels/PayloadDecoder.h"

#include "common/support/Json.h"
#include "telvane-mqtt/channels/CompactPayload.h"

#include <memory>
#include <new>

namespace TelvaneTool::Mqtt
{

PayloadDecoder::PayloadDecoder(const Telvane::RecordClass* recordClass)
    : m_prototype(recordClass), m_hasClass(recordClass != nullptr)
{
    if (recordClass != nullptr) {
        const std::unique_ptr<Telvane::TelvaneDataTypeBase> record(recordClass->build());
        m_table = record->_recordTable();
    }
}

bool PayloadDecoder::decodePrinted(std::string_view payload, std::string& json) const
{
    return (m_table != nullptr || !m_hasClass) && compactPayload(payload, m_table, json);
}

std::string PayloadDecoder::decode(std::string_view payload, std::string& json) const
{
    if (decodePrinted(payload, json)) {
        return {};
    }
    const JsonTree tree(cJSON_Parse(std::string(payload).c_str()));
    const std::unique_ptr<Telvane::TelvaneDataTypeBase> decoded(m_prototype.BuildNewDataType());
    if (tree == nullptr || decoded->Unpackage(tree.get()) != 0) {
        throw std::bad_alloc(); // a payload is JSON
    }
    const auto& record = static_cast<const DecodedRecord&>(*decoded);
    json = record.text();
    return record.decodeError();
}

} // namespace TelvaneTool::Mqtt
