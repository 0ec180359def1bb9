// Records as the tool takes them from its user and from the bus. The first byte picks the class, the rest is
// the JSON text.
//
// The tool checks every value by itself, to say what is wrong and where. So it must find nothing where the
// library reads the value, and something where it does not; and what it accepts for sending must become a
// record that a receiver can read.

#include "FuzzSupport.h"

#include "common/bus/DecodedRecord.h"
#include "common/bus/RecordBuilder.h"
#include "common/bus/RecordCheck.h"
#include "common/support/Json.h"

#include <cmath>
#include <memory>
#include <stdexcept>

using Telvane::RecordCatalogue;
using Telvane::RecordClass;
using Telvane::require;
using Telvane::requireSame;
using Telvane::TelvaneDataTypeBase;

namespace TelvaneTool
{
namespace
{

using Record = std::unique_ptr<TelvaneDataTypeBase>;

/// \return null when the library does not read \p value
Record readByLibrary(const RecordClass& recordClass, cJSON* value)
{
    Record record(recordClass.build());
    try {
        return record->Unpackage(value) == 0 ? std::move(record) : nullptr;
    } catch (const std::out_of_range&) {
        return nullptr;
    }
}

std::string printed(TelvaneDataTypeBase& record)
{
    cJSON* packaged = nullptr;
    require(record.Package(&packaged) == 0, "a record can be packaged");
    return printJson(JsonTree(packaged).get());
}

void checkReceiving(const RecordClass& recordClass, cJSON* value)
{
    const Record expected = readByLibrary(recordClass, value);
    const std::string fault = checkRecord(value, recordClass.table(), Strictness::Receiving);
    if (recordClass.table().fields().empty() && !isTimeStamp(recordClass.table()) &&
        cJSON_IsObject(value) == 0) {
        require(!fault.empty(), "only an object is a record, even where the library asks for nothing in it");
        return;
    }
    require(fault.empty() == (expected != nullptr), "the tool takes what the library reads, and only that");

    DecodedRecord incoming(&recordClass);
    require(incoming.Unpackage(value) == 0, "everything that arrives is shown");
    requireSame(incoming.decodeError(), fault, "what is wrong with a payload is told with it");
    requireSame(incoming.text(), expected != nullptr ? printed(*expected) : printJson(value),
                "a record is shown decoded, and what is none as it came");
}

void checkSending(const RecordClass& recordClass, const std::string& text, cJSON* value)
{
    std::string error;
    const Record built = buildRecord({&recordClass, {}}, &text, error);
    require((built == nullptr) != error.empty(), "what cannot be sent is told with its reason");
    if (built == nullptr) {
        return;
    }
    require(value != nullptr, "only JSON is sent");
    const Record expected = readByLibrary(recordClass, value);
    require(expected != nullptr, "what is sent can be read");
    requireSame(printed(*built), printed(*expected), "what is sent is what the user wrote");
    const cJSON* const tag = cJSON_GetObjectItem(value, "_sequence_tag");
    require(tag == nullptr || tag->valuedouble == built->_sequence_tag, "a tag is sent as it was written");

    const JsonTree received = parseJson(printed(*built), error);
    const Record arrived = received != nullptr ? readByLibrary(recordClass, received.get()) : nullptr;
    require(arrived != nullptr, "what is sent can be received");
}

bool isFinite(const cJSON* value)
{
    bool finite = cJSON_IsNumber(value) == 0 || std::isfinite(value->valuedouble);
    for (const cJSON* item = value->child; item != nullptr && finite; item = item->next) {
        finite = isFinite(item);
    }
    return finite;
}

void checkRaw(const std::string& text, const cJSON* value)
{
    std::string error;
    const Record raw = buildRecord({nullptr, {}}, &text, error);
    const bool sendable = cJSON_IsObject(value) != 0 && isFinite(value);
    require((raw != nullptr) == sendable,
            "any JSON object with numbers that a double can hold can be sent as it is");
    require((raw == nullptr) != error.empty(), "what cannot be sent is told with its reason");
    if (raw != nullptr) {
        requireSame(printed(*raw), printJson(value), "what is sent is what the user wrote");
    }
}

} // namespace
} // namespace TelvaneTool

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace TelvaneTool;
    Telvane::silenceDiagnostics();
    if (size == 0) {
        return 0;
    }
    const auto& classes = RecordCatalogue::classes();
    const RecordClass& recordClass = classes[data[0] % classes.size()];
    const std::string text(Telvane::textOf(data + 1, size - 1));
    std::string error;
    const JsonTree value = parseJson(text, error);
    require((value == nullptr) != error.empty(), "what is not JSON is told with its reason");
    checkSending(recordClass, text, value.get());
    checkRaw(text, value.get());
    if (value != nullptr) {
        checkReceiving(recordClass, value.get());
    }
    return 0;
}
