// Writes records as text, directly from their members.
//
// Building, printing and freeing a tree for each record would cost ten times as much. A record that overrides
// `_packageData` still needs a tree, even if it is nested: it packages itself, and its tree is written in its place. A
// test checks that both ways write the same text.

#include "base/RecordEngine.h"

#include "support/Diagnostics.h"
#include "support/JsonTree.h"
#include "support/JsonWriter.h"

#include <new>

namespace Telvane
{

bool RecordEngine::print(TelvaneDataTypeBase& record, JsonWriter& output, int depth)
{
    if (const RecordTable* const table = record._recordTable()) {
        return printFields(record, *table, output, depth);
    }
    const JsonTree object(cJSON_CreateObject());
    if (object == nullptr) {
        output.fail();
        return true;
    }
    if (!record._packageData(object.get())) {
        return false;
    }
    output.tree(object.get(), depth);
    return true;
}

bool RecordEngine::printFields(TelvaneDataTypeBase& record, const RecordTable& table, JsonWriter& output,
                               int depth)
{
    if (const TextForm* const form = table.textForm()) {
        output.shortString([&](char* text) { return form->write(record, text); });
        return true;
    }
    const int inside = depth + 1;
    bool first = true;
    output.put("{");
    for (const RecordField& field : table.fields()) {
        if (isAbsent(record, field)) {
            continue;
        }
        output.key({field.key, field.keyLength}, first, inside);
        first = false;
        if (!printField(record, field, output, inside)) {
            writeErrorLine(writeFailure(field.kind), field.key);
            return false;
        }
    }
    if (!record._id.empty()) {
        output.key(kIdKey, first, inside);
        first = false;
        output.string(record._id.c_str());
    }
    if (record._sequence_tag >= 0) {
        output.key(kSequenceTagKey, first, inside);
        output.integer(record._sequence_tag);
    }
    output.newLine(depth);
    output.put("}");
    return true;
}

bool RecordEngine::printField(TelvaneDataTypeBase& record, const RecordField& field, JsonWriter& output,
                              int depth)
{
    switch (field.kind) {
    case FieldKind::Integer:
        output.integer(fieldOf<int>(record, field));
        return true;
    case FieldKind::Number:
        output.number(fieldOf<double>(record, field));
        return true;
    case FieldKind::Flag:
        output.flag(fieldOf<bool>(record, field));
        return true;
    case FieldKind::Text:
        output.string(fieldOf<std::string>(record, field).c_str());
        return true;
    case FieldKind::Record:
        return print(fieldOf<TelvaneDataTypeBase>(record, field), output, depth);
    case FieldKind::Value:
        return printValue(record, field, output, depth);
    default:
        return printArray(record, field, output, depth);
    }
}

bool RecordEngine::printValue(TelvaneDataTypeBase& record, const RecordField& field, JsonWriter& output,
                              int depth)
{
    const void* const member = addressOf(record, field);
    if (field.value->toNumber != nullptr) {
        double number = 0.0;
        const bool written = field.value->toNumber(member, number);
        output.number(number);
        return written;
    }
    const JsonTree value(field.value->write(member));
    if (value == nullptr) {
        return false;
    }
    output.tree(value.get(), depth);
    return true;
}

bool RecordEngine::printArray(TelvaneDataTypeBase& record, const RecordField& field, JsonWriter& output,
                              int depth)
{
    void* const first = addressOf(record, field);
    const std::size_t size = field.nested != nullptr ? field.nested->size(first) : field.limit;
    std::size_t written = 0;
    output.put("[");
    for (std::size_t i = 0; i < size; ++i) {
        const std::size_t before = output.position();
        output.put(written > 0 ? ", " : "");
        if (field.kind == FieldKind::FlagArray) {
            output.flag(static_cast<const bool*>(first)[i]);
        } else if (field.kind == FieldKind::IntegerArray) {
            output.integer(static_cast<const int*>(first)[i]);
        } else if (field.nested == nullptr ||
                   !printElement(field.nested->element(first, i), output, depth + 1)) {
            output.rewind(before);
            continue;
        }
        ++written;
    }
    output.put("]");
    // Without one element the others of an array would be in places that are not theirs.
    return written == size || field.kind == FieldKind::RecordVector;
}

bool RecordEngine::printElement(TelvaneDataTypeBase& element, JsonWriter& output, int depth)
{
    try {
        return print(element, output, depth);
    } catch (const std::bad_alloc&) {
        return false; // left out, as any other that cannot be written
    }
}

} // namespace Telvane
