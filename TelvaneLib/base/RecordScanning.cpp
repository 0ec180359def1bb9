// Reads records from text, directly into their members.
//
// A relay nearly always has the layout of the JSON library: the keys in the order of the list, one line each. While that
// is so, each key is the first that matches its field, and the member gets the value that parsing the text would give.
// If anything differs, the caller parses the text and reads the tree instead, which also reports errors.

#include "base/RecordEngine.h"
#include "support/JsonScanner.h"

namespace Telvane
{

bool RecordEngine::scan(TelvaneDataTypeBase& record, JsonScanner& input, int depth)
{
    const RecordTable* const table = record._recordTable();
    return table != nullptr && scanFields(record, *table, input, depth);
}

bool RecordEngine::scanFields(TelvaneDataTypeBase& record, const RecordTable& table, JsonScanner& input,
                              int depth)
{
    if (const TextForm* const form = table.textForm()) {
        std::string_view text;
        return input.plainString(text) && form->read(record, text.data(), text.data() + text.size());
    }
    const int inside = depth + 1;
    bool first = true;
    if (!input.skip("{")) {
        return false;
    }
    for (const RecordField& field : table.fields()) {
        if (!input.key({field.key, field.keyLength}, first, inside) ||
            !scanField(record, field, input, inside)) {
            return false;
        }
        first = false;
    }
    if (input.key(kIdKey, first, inside)) {
        first = false;
        if (!input.string(record._id)) {
            return false;
        }
    }
    if (input.key(kSequenceTagKey, first, inside) && !input.integer(record._sequence_tag)) {
        return false;
    }
    return input.newLine(depth) && input.skip("}");
}

bool RecordEngine::scanField(TelvaneDataTypeBase& record, const RecordField& field, JsonScanner& input,
                             int depth)
{
    switch (field.kind) {
    case FieldKind::Integer:
        return input.integer(fieldOf<int>(record, field));
    case FieldKind::Number:
        return input.number(fieldOf<double>(record, field));
    case FieldKind::Flag:
        return input.flag(fieldOf<bool>(record, field));
    case FieldKind::Text:
        return input.string(fieldOf<std::string>(record, field));
    case FieldKind::Record:
        return scan(fieldOf<TelvaneDataTypeBase>(record, field), input, depth);
    case FieldKind::Value:
        return scanValue(record, field, input);
    default:
        return scanArray(record, field, input, depth);
    }
}

bool RecordEngine::scanValue(TelvaneDataTypeBase& record, const RecordField& field, JsonScanner& input)
{
    // Anything but a number is only read from a tree.
    double number = 0.0;
    return field.value->fromNumber != nullptr && input.number(number) &&
           field.value->fromNumber(addressOf(record, field), number);
}

bool RecordEngine::scanArray(TelvaneDataTypeBase& record, const RecordField& field, JsonScanner& input,
                             int depth)
{
    std::size_t size = 0;
    if (!input.skip("[")) {
        return false;
    }
    if (!input.skip("]")) {
        do {
            if (size == field.limit || !scanElement(record, field, size, input, depth + 1)) {
                return false;
            }
            ++size;
        } while (input.skip(", "));
        if (!input.skip("]")) {
            return false;
        }
    }
    if (field.kind == FieldKind::RecordVector) {
        field.nested->resize(addressOf(record, field), size);
    }
    return size > 0 || field.kind == FieldKind::RecordVector;
}

bool RecordEngine::scanElement(TelvaneDataTypeBase& record, const RecordField& field, std::size_t index,
                               JsonScanner& input, int depth)
{
    void* const first = addressOf(record, field);
    switch (field.kind) {
    case FieldKind::FlagArray:
        return input.flag(static_cast<bool*>(first)[index]);
    case FieldKind::IntegerArray:
        return input.integer(static_cast<int*>(first)[index]);
    case FieldKind::RecordArray: {
        struct Source
        {
            JsonScanner& input;
            int depth;
        } source = {input, depth};
        const auto read = [](void* from, TelvaneDataTypeBase& element) {
            const auto* const text = static_cast<Source*>(from);
            return scan(element, text->input, text->depth);
        };
        return field.nested->readElement(first, index, read, &source);
    }
    default:
        if (index >= field.nested->size(first)) {
            field.nested->resize(first, index + 1);
        }
        return scan(field.nested->element(first, index), input, depth);
    }
}

} // namespace Telvane
