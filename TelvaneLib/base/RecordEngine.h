#pragma once

// Writes, reads and rewrites records by their lists of fields.

#include <Telvane/RecordTable.h>

namespace Telvane
{

// One address each: a member with such a key is known by it.
inline constexpr char kIdKey[] = "_id";
inline constexpr char kSequenceTagKey[] = "_sequence_tag";

/// The operations on a record and its list. A friend of the base class, because array elements go through the
/// field operations that derived classes use.
class RecordEngine
{
public:
    static bool write(TelvaneDataTypeBase& record, const RecordTable& table, cJSON* output);
    /// \param output the object that an earlier record of the class was written to
    static bool rewrite(TelvaneDataTypeBase& record, const RecordTable& table, cJSON* output);
    static bool read(TelvaneDataTypeBase& record, const RecordTable& table, cJSON* input);
    static bool readNested(cJSON* item, TelvaneDataTypeBase& target);

private:
    static bool writeField(TelvaneDataTypeBase& record, const RecordField& field, cJSON* output);
    static bool writeArray(TelvaneDataTypeBase& record, const RecordField& field, cJSON* output);
    static bool writeBaseMembers(const TelvaneDataTypeBase& record, cJSON* output);
    static bool writeSequenceTag(const TelvaneDataTypeBase& record, cJSON* output);

    static bool rewriteField(TelvaneDataTypeBase& record, const RecordField& field, cJSON& item,
                             cJSON* output);
    static bool rewriteNested(TelvaneDataTypeBase& record, const RecordField& field, cJSON& item,
                              cJSON* output);
    static void rewriteArray(TelvaneDataTypeBase& record, const RecordField& field, cJSON& array);

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

/// \return the beginning of the line that tells of a field that could not be written
inline const char* writeFailure(FieldKind kind)
{
    switch (kind) {
    case FieldKind::Record:
        return "FAIL! _toJson Object";
    case FieldKind::RecordVector:
        return "FAIL! _toJson Vector Array ";
    default:
        return "FAIL! _toJson Array";
    }
}

} // namespace Telvane
