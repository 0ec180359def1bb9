#pragma once

// Relays that are read without a tree, as a client does if it can, and the comparison with those that are read with one.

#include "helpers/MessagesByTree.h"

#include "support/JsonScanner.h"
#include "transport/Envelope.h"

#include <Telvane/DateTime.h>
#include <Telvane/EventClient.h>
#include <Telvane/RecordTable.h>

#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace Telvane::Testing
{

/// \return nothing when the text has to be parsed
inline std::optional<ReadRelay> relayStraight(const std::string& text, const TelvaneDataTypeBase& prototype)
{
    static EventClient client;
    ReadRelay relay;
    const auto keep = [&relay](void*, TelvaneDataTypeBase* record, int sequence, void*) {
        relay.record.reset(record->BuildNewDataType());
        relay.record->copy(record);
        relay.sequence = sequence;
    };
    EventClient::SubscriptionCallbackClosure subscription(prototype.BuildNewDataType(), nullptr, keep);
    JsonScanner scanner(text.c_str());
    std::string_view channel;
    int sequence = 0;
    if (!beginRelay(scanner, channel, sequence) || !subscription.deliver(client, scanner, sequence)) {
        return std::nullopt;
    }
    relay.isJson = true;
    relay.channel = channel;
    return relay;
}

inline bool haveSameValues(TelvaneDataTypeBase& left, TelvaneDataTypeBase& right, const RecordTable& table);

inline bool haveSameValue(void* left, void* right, const RecordField& field)
{
    switch (field.kind) {
    case FieldKind::Integer:
        return std::memcmp(left, right, sizeof(int)) == 0;
    case FieldKind::Number:
        return std::memcmp(left, right, sizeof(double)) == 0; // zeros of both signs are different
    case FieldKind::Flag:
        return std::memcmp(left, right, sizeof(bool)) == 0;
    case FieldKind::Text:
        return *static_cast<std::string*>(left) == *static_cast<std::string*>(right);
    case FieldKind::Record:
        return haveSameValues(*static_cast<TelvaneDataTypeBase*>(left),
                              *static_cast<TelvaneDataTypeBase*>(right), field.nested->table());
    case FieldKind::FlagArray:
        return std::memcmp(left, right, field.limit * sizeof(bool)) == 0;
    case FieldKind::IntegerArray:
        return std::memcmp(left, right, field.limit * sizeof(int)) == 0;
    default:
        break;
    }
    const std::size_t size = field.nested->size(left);
    for (std::size_t i = 0; i < size && size == field.nested->size(right); ++i) {
        if (!haveSameValues(field.nested->element(left, i), field.nested->element(right, i),
                            field.nested->table())) {
            return false;
        }
    }
    return size == field.nested->size(right);
}

/// \return whether two records of one class are the same to the bit
inline bool haveSameValues(TelvaneDataTypeBase& left, TelvaneDataTypeBase& right, const RecordTable& table)
{
    const auto* const leftTime = dynamic_cast<DateTime*>(&left);
    const auto* const rightTime = dynamic_cast<DateTime*>(&right);
    if (leftTime != nullptr && (leftTime->time.tv_sec != rightTime->time.tv_sec ||
                                leftTime->time.tv_nsec != rightTime->time.tv_nsec)) {
        return false;
    }
    for (const RecordField& field : table.fields()) {
        if (!haveSameValue(reinterpret_cast<char*>(&left) + field.offset,
                           reinterpret_cast<char*>(&right) + field.offset, field)) {
            return false;
        }
    }
    return left._id == right._id && left._sequence_tag == right._sequence_tag;
}

} // namespace Telvane::Testing
