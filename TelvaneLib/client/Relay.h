#pragma once

// A message of the server, as the receiver thread of a bus reads it.

#include "base/RecordEngine.h"
#include "client/BusState.h"
#include "client/PayloadText.h"
#include "support/JsonScanner.h"
#include "support/JsonTree.h"
#include "transport/Envelope.h"

#include <cerrno>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

namespace Telvane::Detail
{

/// A relay whose payload is read from its text as long as the text is as a server prints it, else from a tree.
class Relay
{
public:
    /// \return whether \p text begins as a printed relay
    bool begin(const char* text)
    {
        JsonScanner start(text);
        if (beginRelay(start, channel, sequence)) {
            m_payload.emplace(start);
            m_text = text;
        }
        return m_payload.has_value();
    }

    /// \param text what \p message was parsed from
    void begin(JsonTree message, const char* text)
    {
        m_text = text;
        channel = headerOf(message.get());
        sequence = sequenceOf(message.get());
        m_tree = std::move(message);
    }

    bool hasPayload() const { return m_payload || payloadOf(m_tree.get()) != nullptr; }
    /// \return false if a read() has found that the text is not JSON
    bool isJson() const { return m_isJson; }

    /// \return the payload as a record of the class of \p prototype, or null
    std::unique_ptr<TelvaneDataTypeBase> read(const TelvaneDataTypeBase& prototype)
    {
        std::unique_ptr<TelvaneDataTypeBase> record;
        try {
            record = newRecord(prototype);
            if (m_payload && prototype._recordTable() != nullptr) {
                if (scan(*record)) {
                    return record;
                }
                record = newRecord(prototype);
            }
            parse();
            cJSON* const payload = payloadOf(m_tree.get());
            const int result = payload != nullptr ? record->Unpackage(payload) : -EINVAL;
            if (result == -ENOMEM) {
                throw std::bad_alloc();
            }
            if (result != 0) {
                record.reset();
            }
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception&) {
            record.reset(); // for example a time without digits
        }
        return record;
    }

    /// Reads the payload only from its text.
    /// \return the record; null if this needs read()
    std::unique_ptr<TelvaneDataTypeBase> readText(const TelvaneDataTypeBase& prototype)
    {
        try {
            std::unique_ptr<TelvaneDataTypeBase> record = newRecord(prototype);
            return scan(*record) ? std::move(record) : nullptr;
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception&) {
            return nullptr;
        }
    }

    /// \return what the endpoint takes: the payload as a record of its class, or as text; null if the payload is
    ///         neither
    std::unique_ptr<TelvaneDataTypeBase> readFor(const Endpoint& endpoint)
    {
        if (!endpoint.takesText) {
            return read(*endpoint.prototype);
        }
        std::string_view text = m_payload ? printedPayload(*m_payload) : std::string_view();
        if (text.empty()) {
            parse();
            if (payloadOf(m_tree.get()) == nullptr) {
                return nullptr;
            }
            text = payloadTextIn(m_text);
        }
        return std::make_unique<PayloadText>(text, !endpoint.inReceiver());
    }

    /// The same without parsing, for an endpoint in the receiver.
    /// \return null if this needs readFor()
    std::unique_ptr<TelvaneDataTypeBase> readPrintedFor(const Endpoint& endpoint)
    {
        if (!endpoint.takesText) {
            return readText(*endpoint.prototype);
        }
        const std::string_view text = printedPayload(*m_payload);
        return !text.empty() ? std::make_unique<PayloadText>(text, false) : nullptr;
    }

    /// Parses the text, unless that was done. Needed for identifier() if the payload was not read into a record.
    void parse()
    {
        if (m_tree == nullptr) {
            m_tree.reset(cJSON_Parse(m_text));
            m_isJson = m_tree != nullptr;
        }
    }

    /// \return whether the payload is the answer to one request. \p record is what read() made of it.
    bool isAddressed(const TelvaneDataTypeBase& record) const
    {
        return identifier(record).substr(0, kRequestId.size()) == kRequestId;
    }

    std::string_view identifier(const TelvaneDataTypeBase& record) const
    {
        if (m_tree == nullptr) {
            return record._id;
        }
        const char* const id = cJSON_GetStringValue(cJSON_GetObjectItem(payloadOf(m_tree.get()), "_id"));
        return id != nullptr ? id : "";
    }

    std::string_view channel;
    int sequence = 0;

private:
    bool scan(TelvaneDataTypeBase& record) const
    {
        JsonScanner payload = *m_payload;
        return RecordEngine::scan(record, payload, 1) && endRelay(payload);
    }

    static std::unique_ptr<TelvaneDataTypeBase> newRecord(const TelvaneDataTypeBase& prototype)
    {
        std::unique_ptr<TelvaneDataTypeBase> record(prototype.BuildNewDataType());
        if (record == nullptr) {
            throw std::bad_alloc();
        }
        return record;
    }

    const char* m_text = nullptr;
    bool m_isJson = true;
    std::optional<JsonScanner> m_payload;
    JsonTree m_tree;
};

/// Describes a message to an endpoint, and notes its number there. Only for the receiver thread.
/// \param record what readFor() made of it; may be null
inline Delivery noteDelivery(Endpoint& endpoint, Relay& relay, const TelvaneDataTypeBase* record,
                             std::uint64_t epoch, Clock::time_point arrival)
{
    Delivery delivery;
    delivery.sequence = relay.sequence;
    delivery.epoch = epoch;
    delivery.arrival = arrival;
    // The answer from a server's memory has the number that it had before.
    const auto step = static_cast<unsigned>(relay.sequence - endpoint.lastSequence) & 0xFFFFU;
    bool isOld = endpoint.lastEpoch == epoch && (step == 0 || step > 0x8000U) && record != nullptr;
    if (isOld) {
        if (endpoint.takesText) {
            relay.parse();
        }
        isOld = relay.isAddressed(*record);
    }
    if (!isOld) {
        delivery.skippedNumbers = endpoint.lastEpoch == epoch ? (step - 1) & 0xFFFFU : 0;
        endpoint.lastEpoch = epoch;
        endpoint.lastSequence = relay.sequence;
    }
    return delivery;
}

} // namespace Telvane::Detail
