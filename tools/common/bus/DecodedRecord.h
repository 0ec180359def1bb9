#pragma once

#include <Telvane/RecordCatalogue.h>

#include <cstdint>
#include <string>

namespace TelvaneTool
{

/// A prototype for subscriptions that accepts every payload and decodes it as a class of the catalogue. Payloads that
/// cannot be decoded reach the callback as well.
class DecodedRecord : public Telvane::TelvaneDataTypeBase
{
public:
    /// \param recordClass null to keep payloads as received
    explicit DecodedRecord(const Telvane::RecordClass* recordClass);

    /// \return the decoded record as JSON on one line; the payload if it could not be decoded
    const std::string& text() const { return m_text; }
    /// \return why the payload could not be decoded; empty if it was
    const std::string& decodeError() const { return m_decodeError; }
    /// \return whether the text has U+FFFD in place of bytes that are not UTF-8
    bool hadInvalidText() const { return m_replaced != 0; }

    bool _packageData(cJSON* output) override;
    bool _unpackageData(cJSON* input) override;
    int copy(TelvaneDataTypeBase* other) override;
    TelvaneDataTypeBase* BuildNewDataType() const override;

private:
    DecodedRecord(const Telvane::RecordClass* recordClass, const Telvane::RecordTable* table)
        : m_recordClass(recordClass), m_table(table)
    {}

    const Telvane::RecordClass* m_recordClass;
    const Telvane::RecordTable* m_table = nullptr; ///< null if the class writes itself
    std::string m_text;
    std::string m_decodeError;
    std::uint64_t m_replaced = 0;
};

} // namespace TelvaneTool
