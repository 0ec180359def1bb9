#pragma once

#include <Telvane/RecordCatalogue.h>

#include <string>

namespace TelvaneTool
{

/// A subscription's prototype that takes every payload: decoded as a class of the catalogue where one is
/// given, else as it came. Nothing is lost without a word: what cannot be decoded reaches the callback, too.
class DecodedRecord : public Telvane::TelvaneDataTypeBase
{
public:
    /// \param recordClass null to take payloads as they come
    explicit DecodedRecord(const Telvane::RecordClass* recordClass) : m_recordClass(recordClass) {}

    /// \return the record's JSON text on one line; of one that cannot be decoded, the payload's
    const std::string& text() const { return m_text; }
    /// \return why it could not be decoded; empty when it could
    const std::string& fault() const { return m_fault; }

    bool _packageData(cJSON* output) override;
    bool _unpackageData(cJSON* input) override;
    int copy(TelvaneDataTypeBase* other) override;
    TelvaneDataTypeBase* BuildNewDataType() const override;

private:
    const Telvane::RecordClass* m_recordClass;
    std::string m_text;
    std::string m_fault;
};

} // namespace TelvaneTool
