#pragma once

#include "common/support/Json.h"

#include <Telvane/RecordCatalogue.h>

#include <memory>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// Limit of a publication's size in bytes. A receiver reads 16384 bytes including a terminator, and the server adds up
/// to 20 bytes for the sequence number.
constexpr std::size_t kMaxPublicationSize = 16384 - 1 - 20;

/// A record with any JSON object as its payload, for channels of an unknown class.
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

/// How to build a record.
struct RecordRequest
{
    const Telvane::RecordClass* recordClass = nullptr; ///< null for any JSON object
    std::vector<std::string> settings; ///< "key=value", applied to the JSON text or the defaults
};

/// Builds and checks a record to be sent.
/// \param json  its text; null for the defaults of the class
/// \param[out] error set if the result is null; begins with the path of the invalid key, if any
/// \return null on error
std::unique_ptr<Telvane::TelvaneDataTypeBase> buildRecord(const RecordRequest& request,
                                                          const std::string* json, std::string& error);

/// \return the size of the message that publishes \p record on \p channel
std::size_t publicationSize(const std::string& channel, Telvane::TelvaneDataTypeBase& record);

/// \return an error message if a message of that size may be cut on its way, or an empty text
std::string checkPublicationSize(std::size_t size);

} // namespace TelvaneTool
