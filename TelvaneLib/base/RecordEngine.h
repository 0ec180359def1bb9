#pragma once

// Writes and reads records by their lists of fields.

#include <Telvane/RecordTable.h>

namespace Telvane
{

class JsonScanner;
class JsonWriter;

inline constexpr char kIdKey[] = "_id";
inline constexpr char kSequenceTagKey[] = "_sequence_tag";

/// Writes and reads records. A friend of the base class, because it uses the protected operations for array
/// elements.
class RecordEngine
{
public:
    static bool write(TelvaneDataTypeBase& record, const RecordTable& table, cJSON* output);
    static bool read(TelvaneDataTypeBase& record, const RecordTable& table, cJSON* input);
    /// Writes a record as text, the same text as the JSON library prints for the tree of write().
    /// \param depth number of objects and arrays around the record
    /// \return whether every field could be written; if memory ran out, \p output has failed
    static bool print(TelvaneDataTypeBase& record, JsonWriter& output, int depth);
    /// Reads a record from text, as read() does from a tree. Reports nothing.
    /// \return false if the text has to be parsed, for any reason; some fields of \p record may have changed
    static bool scan(TelvaneDataTypeBase& record, JsonScanner& input, int depth);
    static bool readNested(cJSON* item, TelvaneDataTypeBase& target);

private:
    static bool writeField(TelvaneDataTypeBase& record, const RecordField& field, cJSON* output);
    static bool writeArray(TelvaneDataTypeBase& record, const RecordField& field, cJSON* output);
    static bool writeBaseMembers(const TelvaneDataTypeBase& record, cJSON* output);

    static bool printFields(TelvaneDataTypeBase& record, const RecordTable& table, JsonWriter& output,
                            int depth);
    static bool printField(TelvaneDataTypeBase& record, const RecordField& field, JsonWriter& output,
                           int depth);
    static bool printValue(TelvaneDataTypeBase& record, const RecordField& field, JsonWriter& output,
                           int depth);
    static bool printArray(TelvaneDataTypeBase& record, const RecordField& field, JsonWriter& output,
                           int depth);

    static bool printElement(TelvaneDataTypeBase& element, JsonWriter& output, int depth);

    static bool scanFields(TelvaneDataTypeBase& record, const RecordTable& table, JsonScanner& input,
                           int depth);
    static bool scanField(TelvaneDataTypeBase& record, const RecordField& field, JsonScanner& input,
                          int depth);
    static bool scanValue(TelvaneDataTypeBase& record, const RecordField& field, JsonScanner& input);
    static bool scanElement(TelvaneDataTypeBase& record, const RecordField& field, std::size_t index,
                            JsonScanner& input, int depth);
    static bool scanArray(TelvaneDataTypeBase& record, const RecordField& field, JsonScanner& input,
                          int depth);

    static bool readField(TelvaneDataTypeBase& record, const RecordField& field, cJSON* item,
                          const cJSON* input);
    static bool readElement(cJSON* item, TelvaneDataTypeBase& element);
    static bool readVector(TelvaneDataTypeBase& record, const RecordField& field, const cJSON* array);
};

inline void* addressOf(TelvaneDataTypeBase& record, const RecordField& field)
{
    return reinterpret_cast<char*>(&record) + field.offset;
}

template <class T>
T& fieldOf(TelvaneDataTypeBase& record, const RecordField& field)
{
    return *static_cast<T*>(addressOf(record, field));
}

/// \return whether the field is left out, because it is an optional value without one
inline bool isAbsent(TelvaneDataTypeBase& record, const RecordField& field)
{
    return field.kind == FieldKind::Value && field.value->isAbsent != nullptr &&
           field.value->isAbsent(addressOf(record, field));
}

/// \return the start of the line that reports a field that could not be written
inline const char* writeFailure(FieldKind kind)
{
    switch (kind) {
    case FieldKind::Record:
        return "FAIL! _toJson Object";
    case FieldKind::RecordVector:
        return "FAIL! _toJson Vector Array ";
    case FieldKind::Value:
        return "FAIL! _toJson Value ";
    default:
        return "FAIL! _toJson Array";
    }
}

} // namespace Telvane
