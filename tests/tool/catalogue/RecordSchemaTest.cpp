#include "catalogue/RecordSchema.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace TelvaneTool
{
namespace
{

using Telvane::RecordCatalogue;
using testing::HasSubstr;

std::string schemaOf(const char* className)
{
    return printJson(recordSchema(*RecordCatalogue::find(className)).get());
}

TEST(RecordSchema, DescribesAClassOfScalars)
{
    EXPECT_EQ(schemaOf("UnitValuePair"),
              R"({"$schema":"https://json-schema.org/draft/2020-12/schema","title":"UnitValuePair",)"
              R"("type":"object","properties":{"Unit":{"type":"string","default":""},)"
              R"("Value":{"type":"integer","minimum":-2147483648,"maximum":2147483647,"default":0},)"
              R"("_id":{"type":"string"},)"
              R"("_sequence_tag":{"type":"integer","minimum":-2147483648,"maximum":2147483647}},)"
              R"("required":["Unit","Value"]})");
}

TEST(RecordSchema, DefinesTheClassesThatAClassHolds)
{
    const JsonTree schema = recordSchema(*RecordCatalogue::find("WeldTriggerStart"));
    std::set<std::string> defined;
    const cJSON* const definitions = cJSON_GetObjectItem(schema.get(), "$defs");
    for (const cJSON* item = definitions->child; item != nullptr; item = item->next) {
        defined.insert(item->string);
    }
    EXPECT_EQ(defined, (std::set<std::string>{"DateTime", "MachineSettings", "UnitValueDoublePair",
                                              "WeldTraceDataPointDefinition"}));
}

TEST(RecordSchema, DescribesATimeAsAText)
{
    EXPECT_THAT(schemaOf("DateTime"), HasSubstr(R"("type":"string")"));
    EXPECT_THAT(schemaOf("DateTime"), HasSubstr(R"("pattern":"^/Date\\([0-9]+\\)/$")"));
}

TEST(RecordSchema, GivesTheDefaultsOfTheClassItself)
{
    EXPECT_THAT(schemaOf("PSCommand"), HasSubstr(R"("mLabel":{"type":"string","default":"PSCommand"})"));
    EXPECT_THAT(schemaOf("PSCommandBase"), HasSubstr(R"("mLabel":{"type":"string","default":""})"));
}

TEST(RecordSchema, LimitsSequences)
{
    EXPECT_THAT(schemaOf("PSCommand"),
                HasSubstr(R"("mModes":{"type":"array","items":{"$ref":"#/$defs/ValueLabelType"},)"
                          R"("minItems":0,"maxItems":100)"));
}

/// Every reference in the tree leads to a definition.
void expectReferencesResolve(const cJSON* tree, const cJSON* definitions)
{
    for (const cJSON* item = tree->child; item != nullptr; item = item->next) {
        if (item->string != nullptr && std::string(item->string) == "$ref") {
            const std::string name = std::string(item->valuestring).substr(std::string("#/$defs/").size());
            EXPECT_NE(cJSON_GetObjectItemCaseSensitive(definitions, name.c_str()), nullptr) << name;
        }
        expectReferencesResolve(item, definitions);
    }
}

TEST(RecordSchema, OfTheCatalogueDefinesEveryClassOnce)
{
    const JsonTree schema = catalogueSchema();
    const cJSON* const definitions = cJSON_GetObjectItem(schema.get(), "$defs");
    EXPECT_EQ(cJSON_GetArraySize(definitions), static_cast<int>(RecordCatalogue::classes().size()));
    for (const auto& recordClass : RecordCatalogue::classes()) {
        const cJSON* const definition = cJSON_GetObjectItemCaseSensitive(definitions, recordClass.name);
        ASSERT_NE(definition, nullptr) << recordClass.name;
        if (const cJSON* const required = cJSON_GetObjectItem(definition, "required")) {
            EXPECT_EQ(cJSON_GetArraySize(required), static_cast<int>(recordClass.table().fields().size()));
        }
    }
    expectReferencesResolve(schema.get(), definitions);
}

} // namespace
} // namespace TelvaneTool
