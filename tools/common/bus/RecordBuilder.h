#pragma once

#include "common/support/Json.h"

#include <Telvane/RecordCatalogue.h>

#include <memory>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// The largest publication that surely arrives: a receiver reads 16384 bytes and needs one for itself, and
/// the server adds up to 20 bytes for the sequence number.
constexpr std::size_t kMaxPublicationSize = 16384 - 1 - 20;

/// A record that carries any JSON object as its payload, for channels whose class is not known.
class RawRecord : public Telvane::TelvaneDataTypeBase
{
public:
    RawRecord() = default;
    explicit RawRecord(JsonTree object) : m_object(std::move(object)) {}

    bool _packageData(cJSON* output) override;
    bool _unpackageData(cJSON* input) override;
    int copy(TelvaneDataTypeBase* other) override;
    TelvaneDataTypeBase* BuildNewDataType() const override;

private:
    std::shared_ptr<const cJSON> m_object;
};

/// What a user says a record should be.
struct RecordRequest
{
    const Telvane::RecordClass* recordClass = nullptr; ///< null for any JSON object
    std::vector<std::string> settings;                 ///< "key=value" over the JSON text or the defaults
};

/// Builds a record and checks everything about it that can be checked before it is sent.
/// \param json  its text, or null for the class's defaults
/// \param[out] error what is wrong, beginning with the key at fault if there is one
/// \return null when something is wrong
std::unique_ptr<Telvane::TelvaneDataTypeBase> buildRecord(const RecordRequest& request,
                                                          const std::string* json, std::string& error);

/// \return the size of the message that publishes \p record on \p channel
std::size_t publicationSize(const std::string& channel, Telvane::TelvaneDataTypeBase& record);

/// \return why a record of that size cannot be sent, or an empty text
std::string checkPublicationSize(std::size_t size);

} // namespace TelvaneTool
