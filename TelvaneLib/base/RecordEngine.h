#pragma once

// What writing, reading and rewriting records by their lists of fields have in common.

#include <Telvane/RecordTable.h>

namespace Telvane
{

// One address each: a member with such a key is known by it.
inline constexpr char kIdKey[] = "_id";
inline constexpr char kSequenceTagKey[] = "_sequence_tag";

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
