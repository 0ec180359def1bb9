// Every record class against every JSON text. The first byte picks the class, the rest are texts, parted by
// the byte 0x1E.
//
// What must hold: a record is read when every key of its class is there with the right type, and only then;
// it does not matter whether the keys arrive in the order of the class, which takes a short cut, or whether
// each has to be searched for; what was read prints, reads again, and prints the same; so does a copy; and
// what is published are these prints.

#include <Telvane/RecordCatalogue.h>

#include "FuzzSupport.h"
#include "bus/PublicationWriter.h"
#include "helpers/MessagesByTree.h"
#include "support/JsonTree.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

namespace Telvane
{
namespace
{

using Record = std::unique_ptr<TelvaneDataTypeBase>;

constexpr const char* kChannel = "weld";

enum class Outcome
{
    Read,
    Refused,
    Threw, ///< documented for times alone: no digit, or more than 64 bits
};

struct Reading
{
    Outcome outcome = Outcome::Threw;
    Record record; ///< also after a failure: with the fields before the one that failed
};

Reading read(const RecordClass& recordClass, cJSON* input)
{
    Reading reading;
    reading.record.reset(recordClass.build());
    try {
        reading.outcome = reading.record->Unpackage(input) == 0 ? Outcome::Read : Outcome::Refused;
    } catch (const std::out_of_range&) {
        reading.outcome = Outcome::Threw;
    }
    return reading;
}

bool isReadable(const RecordTable& table, const cJSON* input);

/// \return whether there are so many elements and each is what it has to be
template <class Predicate>
bool isArrayOf(const cJSON* array, std::uint32_t min, std::uint32_t max, Predicate isElement)
{
    std::uint32_t size = 0;
    bool allFit = cJSON_IsArray(array) != 0;
    for (const cJSON* item = allFit ? array->child : nullptr; item != nullptr; item = item->next) {
        allFit = allFit && isElement(item);
        ++size;
    }
    return allFit && size >= min && size <= max;
}

bool isReadable(const RecordField& field, const cJSON* item)
{
    const auto isRecord = [&field](const cJSON* element) {
        return cJSON_IsObject(element) != 0 && isReadable(field.nested->table(), element);
    };
    switch (field.kind) {
    case FieldKind::Integer:
    case FieldKind::Number:
        return cJSON_IsNumber(item) != 0;
    case FieldKind::Flag:
        return cJSON_IsBool(item) != 0;
    case FieldKind::Text:
        return cJSON_IsString(item) != 0;
    case FieldKind::Record:
        return item != nullptr && isReadable(field.nested->table(), item);
    case FieldKind::FlagArray:
        return isArrayOf(item, 1, field.limit, cJSON_IsBool);
    case FieldKind::IntegerArray:
        return isArrayOf(item, 1, field.limit, cJSON_IsNumber);
    case FieldKind::RecordArray:
        return isArrayOf(item, 1, field.limit, isRecord);
    case FieldKind::RecordVector:
        return isArrayOf(item, 0, field.limit, isRecord);
    case FieldKind::Value:
        break; // not in the catalogue
    }
    return false;
}

/// What the table of a class says of a JSON value.
bool isReadable(const RecordTable& table, const cJSON* input)
{
    if (table.className() == std::string_view("DateTime")) {
        return cJSON_IsString(input) != 0;
    }
    const auto& fields = table.fields();
    return std::all_of(fields.begin(), fields.end(), [input](const RecordField& field) {
        return isReadable(field, cJSON_GetObjectItem(input, field.key));
    });
}

/// Puts a member that no record asks for before all others, in every object.
void addStrangers(cJSON* tree)
{
    for (cJSON* child = tree->child; child != nullptr; child = child->next) {
        addStrangers(child);
    }
    if (cJSON_IsObject(tree) != 0) {
        static char noKey[] = "";
        cJSON* const stranger = cJSON_CreateNull();
        stranger->string = noKey;
        stranger->type |= cJSON_StringIsConst;
        cJSON_InsertItemInArray(tree, 0, stranger);
    }
}

bool holdsNull(const cJSON* tree)
{
    if (cJSON_IsNull(tree) != 0) {
        return true;
    }
    for (const cJSON* child = tree->child; child != nullptr; child = child->next) {
        if (holdsNull(child)) {
            return true;
        }
    }
    return false;
}

void checkFactory(const RecordClass& recordClass, cJSON* input, const Reading& expected)
{
    const Record prototype(recordClass.build());
    const std::string before = prototype->GetString();
    Outcome outcome = Outcome::Threw;
    try {
        TelvaneDataTypeBase* built = nullptr;
        outcome = prototype->Unpackage(input, &built) == 0 ? Outcome::Read : Outcome::Refused;
        if (outcome == Outcome::Read) {
            const Record owned(built);
            requireSame(owned->GetString(), expected.record->GetString(), "both forms of reading agree");
        }
    } catch (const std::out_of_range&) {
        outcome = Outcome::Threw;
    }
    require(outcome == expected.outcome, "both forms of reading agree");
    requireSame(prototype->GetString(), before, "a prototype is not changed");
}

void checkPrinting(const RecordClass& recordClass, TelvaneDataTypeBase& record)
{
    const std::string printed = record.GetString();
    const Record copied(recordClass.build());
    require(copied->copy(&record) == 0, "a record can be copied");
    requireSame(copied->GetString(), printed, "a copy prints as its original");

    const JsonTree parsed(cJSON_Parse(printed.c_str()));
    require(parsed != nullptr, "a record prints as JSON");
    const Reading again = read(recordClass, parsed.get());
    if (holdsNull(parsed.get())) {
        // JSON has no infinity, which is what a number beyond the largest double reads as.
        require(again.outcome == Outcome::Refused, "null is no number");
        return;
    }
    require(again.outcome == Outcome::Read, "what a record prints can be read");
    requireSame(again.record->GetString(), printed, "a record survives being printed and read");
}

/// Also of a record that was read in part: an application may publish that.
void checkPublication(PublicationWriter& writer, TelvaneDataTypeBase& record)
{
    const char* text = nullptr;
    require(writer.write(kChannel, record, text) == 0, "a record can be published");
    requireSame(text, Testing::publicationByTree(kChannel, record).value_or("nothing"),
                "a publication holds what the record prints");
}

void check(const RecordClass& recordClass, const std::string& text, PublicationWriter& writer)
{
    const JsonTree input(cJSON_Parse(text.c_str()));
    if (input == nullptr) {
        require(!Record(recordClass.build())->FromJson(text), "what is not JSON cannot be read");
        return;
    }
    const Reading inStep = read(recordClass, input.get());
    require(inStep.outcome == Outcome::Threw ||
                (inStep.outcome == Outcome::Read) == isReadable(recordClass.table(), input.get()),
            "a record is read when its keys are there with their types, and only then");
    checkFactory(recordClass, input.get(), inStep);
    addStrangers(input.get());
    const Reading searched = read(recordClass, input.get());
    require(inStep.outcome == searched.outcome, "the order of keys decides nothing");
    requireSame(searched.record->GetString(), inStep.record->GetString(),
                "the order of keys decides nothing");
    if (inStep.outcome == Outcome::Read) {
        checkPrinting(recordClass, *inStep.record);
    }
    checkPublication(writer, *inStep.record);
}

} // namespace
} // namespace Telvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace Telvane;
    silenceDiagnostics();
    if (size == 0) {
        return 0;
    }
    const auto& classes = RecordCatalogue::classes();
    const RecordClass& recordClass = classes[data[0] % classes.size()];
    PublicationWriter writer;
    for (const std::string_view text : packetsOf(textOf(data + 1, size - 1))) {
        check(recordClass, std::string(text), writer);
    }
    checkPublication(writer, *Record(recordClass.build()));
    return 0;
}
