// What leaves for a payload that arrives as text: always the line that a record, made from the payload's tree, prints.

#include "telvane-mqtt/channels/PayloadDecoder.h"

#include "common/support/Json.h"
#include "helpers/TestPaths.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace TelvaneTool::Mqtt
{
namespace
{

using Telvane::RecordCatalogue;
using Telvane::RecordClass;
using Telvane::TelvaneDataTypeBase;

const RecordClass& classNamed(const char* name)
{
    return *RecordCatalogue::find(name);
}

/// \return whether the payload is decoded without a tree; the result is the same as with one
bool isDecodedPrinted(const RecordClass* recordClass, const PayloadDecoder& decoder,
                      const std::string& payload)
{
    std::string printed;
    const bool isPrinted = decoder.decodePrinted(payload, printed);
    std::string error;
    const JsonTree tree = parseJson(payload, error);
    EXPECT_FALSE(isPrinted && tree == nullptr) << payload;
    if (tree == nullptr) {
        return false;
    }
    const DecodedRecord prototype(recordClass);
    const std::unique_ptr<TelvaneDataTypeBase> decoded(prototype.BuildNewDataType());
    EXPECT_EQ(decoded->Unpackage(tree.get()), 0);
    const auto& expected = static_cast<const DecodedRecord&>(*decoded);
    std::string json;
    EXPECT_EQ(decoder.decode(payload, json), expected.decodeError()) << payload;
    EXPECT_EQ(json, expected.text()) << payload;
    EXPECT_TRUE(!isPrinted || printed == json) << payload;
    return isPrinted;
}

bool isDecodedPrinted(const RecordClass* recordClass, const std::string& payload)
{
    return isDecodedPrinted(recordClass, PayloadDecoder(recordClass), payload);
}

std::string golden(const RecordClass& recordClass, const char* form)
{
    std::ifstream file(sourceDirectory() + "/tests/golden/records/" + recordClass.name + "." + form +
                       ".json");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// \return the payload as a server prints it
std::string printed(const std::string& payload)
{
    std::string error;
    return printJson(parseJson(payload, error).get(), true);
}

TEST(MqttPayloadDecoder, NeedsNoTreeForRecordsOfAnyClass)
{
    for (const RecordClass& recordClass : RecordCatalogue::classes()) {
        const std::unique_ptr<TelvaneDataTypeBase> record(recordClass.build());
        for (const char* const form : {"default", "filled"}) {
            const std::string payload = printed(golden(recordClass, form));
            const bool isUnusual =
                record->_recordTable() == nullptr || payload.find("\\u") != std::string::npos;
            EXPECT_TRUE(isDecodedPrinted(&recordClass, payload) || isUnusual)
                << recordClass.name << " " << form << payload;
            EXPECT_TRUE(isDecodedPrinted(nullptr, payload) || isUnusual) << payload;
        }
    }
}

TEST(MqttPayloadDecoder, GivesTheSameLineForTextsThatAreCutOrChanged)
{
    for (const RecordClass& recordClass : RecordCatalogue::classes()) {
        const PayloadDecoder decoder(&recordClass);
        const PayloadDecoder any(nullptr);
        const std::string payload = printed(golden(recordClass, "filled"));
        for (std::size_t i = 0; i < payload.size(); i += 11) {
            std::string changed = payload;
            isDecodedPrinted(&recordClass, decoder, changed.insert(i, 1, payload[payload.size() - 1 - i]));
            changed[i] = '0';
            isDecodedPrinted(&recordClass, decoder, changed);
            isDecodedPrinted(nullptr, any, changed.erase(i, 2));
            isDecodedPrinted(&recordClass, decoder, changed);
            EXPECT_FALSE(isDecodedPrinted(&recordClass, decoder, payload.substr(0, i)));
        }
    }
}

TEST(MqttPayloadDecoder, GivesTheSameLineForAnyValueInAField)
{
    const std::vector<std::string> values = {"null",
                                             "true",
                                             "false",
                                             "tru",
                                             "truefalse",
                                             "0",
                                             "-0",
                                             "-0.0",
                                             "00",
                                             "01",
                                             "-1",
                                             "-",
                                             "1.",
                                             ".5",
                                             "0.5",
                                             "0.50",
                                             "-0.5",
                                             "0.0001",
                                             "0.00001",
                                             "1e2",
                                             "1E2",
                                             "1e-7",
                                             "1.5e300",
                                             "1e400",
                                             "-1e400",
                                             "1e",
                                             "1+1",
                                             "1.5.5",
                                             "1.0",
                                             "100.0",
                                             "5e-324",
                                             "123456789012345",
                                             "1234567890123456",
                                             "12345678901234.5",
                                             "0.123456789012345",
                                             "0.1234567890123456",
                                             "123456.123456789",
                                             "1234567.123456789",
                                             "2147483647",
                                             "2147483648",
                                             "-2147483648",
                                             "-2147483649",
                                             "99999999999",
                                             "1797693134862315700000",
                                             "\"\"",
                                             "\"x\"",
                                             "\"\\u0041\"",
                                             "\"\\u001f\"",
                                             "\"\\u0000\"",
                                             "\"\\/\"",
                                             "\"\\\"\\\\\\b\\f\\n\\r\\t\"",
                                             "\"\\",
                                             "\"\\x\"",
                                             "\"\x7f\"",
                                             "\"\xC3\xA4\"",
                                             "\"\xC2\x85\"",
                                             "\"\xFF\"",
                                             "\"\xC3\"",
                                             "\"\x01\"",
                                             "\"\t\"",
                                             "{}",
                                             "{ }",
                                             "[]",
                                             "[ ]",
                                             "[1]",
                                             "[{}]",
                                             "[true]",
                                             "[1,2 , 3]",
                                             "[1,]",
                                             "{\"a\":1,\"a\":2}",
                                             "{\"\\u0061\":1}",
                                             "{\"a\"}",
                                             "{\"a\":}",
                                             "{1:1}",
                                             "\"/Date(7)/\"",
                                             "\"/Date(007)/\"",
                                             "\"/Date(7)/ \"",
                                             "\"/Date(x)/\"",
                                             "\"\\/Date(7)\\/\"",
                                             std::string(40, '[') + std::string(40, ']')};
    std::set<std::pair<int, bool>> kinds; // of fields that were tried
    for (const RecordClass& recordClass : RecordCatalogue::classes()) {
        const PayloadDecoder decoder(&recordClass);
        for (const std::string& value : values) {
            isDecodedPrinted(&recordClass, decoder, value);
        }
        for (const Telvane::RecordField& field : recordClass.table().fields()) {
            const bool isText = field.nested != nullptr && field.nested->table().textForm() != nullptr;
            if (!kinds.emplace(static_cast<int>(field.kind), isText).second) {
                continue;
            }
            std::string error;
            const JsonTree changed = parseJson(golden(recordClass, "filled"), error);
            cJSON_ReplaceItemInObjectCaseSensitive(changed.get(), field.key, cJSON_CreateString("%"));
            const std::string text = printJson(changed.get());
            for (const std::string& value : values) {
                std::string payload = text;
                isDecodedPrinted(&recordClass, decoder, payload.replace(payload.find("\"%\""), 3, value));
            }
        }
    }
    EXPECT_GE(kinds.size(), 8U);
    for (const std::string& value : values) {
        isDecodedPrinted(nullptr, value);
        isDecodedPrinted(nullptr, "[" + value + "]");
        isDecodedPrinted(nullptr, "{\"key\": " + value + "\n}");
    }
}

TEST(MqttPayloadDecoder, KnowsTheIdentifiersOfARecord)
{
    const auto check = [](const std::string& more) {
        return isDecodedPrinted(&classNamed("UnitValuePair"),
                                "{\n\t\t\"Unit\":\t\"A\",\n\t\t\"Value\":\t5" + more + "\n\t}");
    };
    EXPECT_TRUE(check(""));
    EXPECT_TRUE(check(R"(,"_id":"x")"));
    EXPECT_TRUE(check(R"(,"_sequence_tag":0)"));
    EXPECT_TRUE(check(R"(,"_id":"x","_sequence_tag":1)"));
    EXPECT_FALSE(check(R"(,"_id":"")"));
    EXPECT_FALSE(check(",\n\t\t\"_id\":\t\"\""));
    EXPECT_FALSE(check(R"(,"_id":1)"));
    EXPECT_FALSE(check(R"(,"_sequence_tag":-1)"));
    EXPECT_FALSE(check(R"(,"_sequence_tag":1.5)"));
    EXPECT_FALSE(check(R"(,"_sequence_tag":1,"_id":"x")"));
    EXPECT_FALSE(check(R"(,"_id":"x","_id":"y")"));
    EXPECT_FALSE(check(R"(,"more":1)"));
    EXPECT_FALSE(check(","));
    EXPECT_FALSE(check("}"));
}

TEST(MqttPayloadDecoder, ReadsNothingAfterThePayload)
{
    // On the heap, where a sanitizer guards the end.
    const std::string payload = printed(golden(classNamed("UnitValuePair"), "filled"));
    const PayloadDecoder decoder(&classNamed("UnitValuePair"));
    const PayloadDecoder any(nullptr);
    std::string json;
    for (std::size_t size = 0; size <= payload.size(); ++size) {
        const std::vector<char> bytes(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(decoder.decodePrinted({bytes.data(), size}, json), size == payload.size());
        EXPECT_EQ(any.decodePrinted({bytes.data(), size}, json), size == payload.size());
    }
}

} // namespace
} // namespace TelvaneTool::Mqtt
