// Packaging a record into the tree of an earlier one of its class.
//
// The tree was made by the same list of fields, so its members stand in step with the list, and their keys
// are the list's own: values are exchanged, and only vectors whose length changed gain or lose members.
// Should the two not be in step, for want of memory the time before, what follows is dropped and written
// anew. Texts are referenced, not copied: the tree is printed while the record stands still.

#include "base/RecordEngine.h"
#include "base/Repackaging.h"

#include "support/Diagnostics.h"
#include "support/JsonTree.h"

namespace Telvane
{

namespace
{

// In the library's own static thread storage: asked for each record and each nested one.
__attribute__((tls_model("initial-exec"))) thread_local Repackaging* current = nullptr;

void setNumber(cJSON& item, double value)
{
    item.type = cJSON_Number | (item.type & cJSON_StringIsConst);
    item.valuestring = nullptr;
    cJSON_SetNumberHelper(&item, value);
}

void setFlag(cJSON& item, bool value)
{
    item.type = (value ? cJSON_True : cJSON_False) | (item.type & cJSON_StringIsConst);
}

void setText(cJSON& item, const std::string& value)
{
    if ((item.type & cJSON_IsReference) == 0) {
        cJSON_free(item.valuestring);
    }
    item.type = cJSON_String | cJSON_IsReference | (item.type & cJSON_StringIsConst);
    item.valuestring = const_cast<char*>(value.c_str());
}

/// Deletes \p item and all members behind it.
void dropFrom(cJSON* parent, cJSON* item)
{
    while (item != nullptr) {
        cJSON* const next = item->next;
        cJSON_Delete(cJSON_DetachItemViaPointer(parent, item));
        item = next;
    }
}

const cJSON* lastMember(const cJSON* object)
{
    const cJSON* member = object != nullptr ? object->child : nullptr;
    if (member != nullptr && member->prev != nullptr) {
        member = member->prev; // where newer versions of the library keep the last one
    }
    while (member != nullptr && member->next != nullptr) {
        member = member->next;
    }
    return member;
}

} // namespace

Repackaging::Repackaging(const TelvaneDataTypeBase& record, cJSON* tree)
    : m_record(record), m_tree(tree), m_last(lastMember(tree)), m_outer(current)
{
    current = this;
}

Repackaging::~Repackaging()
{
    current = m_outer;
}

bool Repackaging::begins(const TelvaneDataTypeBase& record, const cJSON* output, bool exactClass)
{
    if (current == nullptr || &current->m_record != &record) {
        return false;
    }
    // With members that the record has written by itself, in front, the list does not tell all.
    current->m_listTellsAll = exactClass && lastMember(output) == current->m_last;
    return current->m_listTellsAll && current->m_tree == output && output != nullptr;
}

bool RecordEngine::rewrite(TelvaneDataTypeBase& record, const RecordTable& table, cJSON* output)
{
    cJSON* item = output->child;
    for (const RecordField& field : table.fields()) {
        bool written = false;
        if (item != nullptr && item->string == field.key) {
            cJSON* const next = item->next;
            written = rewriteField(record, field, *item, output);
            item = next;
        } else {
            dropFrom(output, item);
            item = nullptr;
            written = writeField(record, field, output);
        }
        if (!written) {
            writeErrorLine(writeFailure(field.kind), field.key);
            return false;
        }
    }
    if (!record._id.empty() && item != nullptr && item->string == kIdKey) {
        setText(*item, record._id);
        item = item->next;
        if (record._sequence_tag >= 0 && item != nullptr && item->string == kSequenceTagKey) {
            setNumber(*item, record._sequence_tag);
            item = item->next;
            dropFrom(output, item);
            return true;
        }
        dropFrom(output, item);
        return writeSequenceTag(record, output);
    }
    dropFrom(output, item);
    return writeBaseMembers(record, output);
}

bool RecordEngine::rewriteField(TelvaneDataTypeBase& record, const RecordField& field, cJSON& item,
                                cJSON* output)
{
    switch (field.kind) {
    case FieldKind::Integer:
        setNumber(item, fieldOf<int>(record, field));
        return true;
    case FieldKind::Number:
        setNumber(item, fieldOf<double>(record, field));
        return true;
    case FieldKind::Flag:
        setFlag(item, fieldOf<bool>(record, field));
        return true;
    case FieldKind::Text:
        setText(item, fieldOf<std::string>(record, field));
        return true;
    case FieldKind::Record:
        return rewriteNested(record, field, item, output);
    default:
        rewriteArray(record, field, item);
        return true;
    }
}

bool RecordEngine::rewriteNested(TelvaneDataTypeBase& record, const RecordField& field, cJSON& item,
                                 cJSON* output)
{
    auto& nested = fieldOf<TelvaneDataTypeBase>(record, field);
    if (field.nested->table().tellsAllOf(*field.nested->recordClass)) {
        return rewrite(nested, field.nested->table(), &item);
    }
    // A class with a form of its own, such as a time stamp, gets a new node to write itself to.
    JsonTree object(cJSON_CreateObject());
    if (object == nullptr || !nested._packageData(object.get())) {
        return false;
    }
    object->string = item.string;
    object->type |= cJSON_StringIsConst;
    if (cJSON_ReplaceItemViaPointer(output, &item, object.get()) == 0) {
        object->string = nullptr;
        return false;
    }
    object.release();
    return true;
}

void RecordEngine::rewriteArray(TelvaneDataTypeBase& record, const RecordField& field, cJSON& array)
{
    cJSON* item = array.child;
    void* const first = addressOf(record, field);
    if (field.nested == nullptr) {
        for (std::uint32_t i = 0; i < field.limit && item != nullptr; ++i, item = item->next) {
            if (field.kind == FieldKind::FlagArray) {
                setFlag(*item, static_cast<const bool*>(first)[i]);
            } else {
                setNumber(*item, static_cast<const int*>(first)[i]);
            }
        }
        return;
    }
    const RecordTable& table = field.nested->table();
    if (!table.tellsAllOf(*field.nested->recordClass)) {
        dropFrom(&array, item);
        item = nullptr;
    }
    const std::size_t size = field.nested->size(first);
    for (std::size_t i = 0; i < size; ++i) {
        TelvaneDataTypeBase& element = field.nested->element(first, i);
        if (item != nullptr) {
            cJSON* const next = item->next;
            rewrite(element, table, item);
            item = next;
        } else {
            record._addItemToJsonArray(&array, element);
        }
    }
    dropFrom(&array, item);
}

} // namespace Telvane
