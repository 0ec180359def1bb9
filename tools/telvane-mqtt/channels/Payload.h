#pragma once

#include "common/support/Json.h"

#include <Telvane/RecordCatalogue.h>

#include <cstdint>
#include <string>

namespace TelvaneTool::Mqtt
{

/// The bridge's session: everything that it sends carries the number.
struct Session
{
    std::uint64_t number = 0; ///< time of the start in milliseconds since 1970, at least 1
    std::string started;      ///< the same as text
};

/// When something happened, by the clock of the machine.
struct WallTime
{
    std::string text;              ///< ISO 8601, UTC, with milliseconds
    bool isSet = false;            ///< whether the clock has been set since the machine started
    std::int64_t milliseconds = 0; ///< since 1970
};

/// \return the session that begins now
Session startSession();

/// \return the session with a number
Session sessionWithNumber(std::uint64_t number);

/// \return the time now
WallTime wallTimeNow();

/// One message that leaves, before it is printed.
struct OutgoingMessage
{
    std::string channel;   ///< empty for messages that are not about a channel
    std::string topic;     ///< where it goes
    std::string className; ///< empty for any JSON object
    std::string body;      ///< the members with the data: "record":{...}
    std::string text;      ///< the whole payload, instead of one made from the members above; empty for none
    WallTime time;
    std::uint64_t number = 0;  ///< 0 for messages without a number
    std::uint64_t session = 0; ///< of a message from the spool; 0 for the session that runs
    std::int64_t stored = 0;   ///< identifies the message in the spool; 0 if it is in memory only
    std::int64_t queued = 0;   ///< when the queue accepted it, on the monotonic clock
    int qos = 1;
    bool retain = false;
    std::string correlation;   ///< of an answer
    std::uint64_t dropped = 0; ///< messages of the channel that were dropped before this one

    /// \return what the message counts for in the bounds of the queue, in bytes
    std::size_t size() const
    {
        return channel.size() + topic.size() + body.size() + text.size() + correlation.size() + 256;
    }
};

/// \return the payload: the record, and beside it class, session, number and time, so that it can be understood alone
std::string payloadOf(const OutgoingMessage& message, const Session& session);

/// Sets \p text to the same payload, in the memory that it has.
void setToPayload(std::string& text, const OutgoingMessage& message, const Session& session);

/// \return the record alone
std::string barePayloadOf(const OutgoingMessage& message);

/// A consumer's wish to get messages again.
struct RepeatRequest
{
    std::uint64_t session = 0;
    std::uint64_t from = 0; ///< first number
    std::uint64_t to = 0;   ///< last number
};

/// Reads {"session":S,"from":N,"to":N}.
/// \return whether the payload asks for messages again, and the numbers are plausible
bool readRepeatRequest(const std::string& payload, RepeatRequest& request);

/// Reads a payload that is to be published on the bus: a record, or an object with a record as payloadOf() prints it.
/// \param[out] error set if the result is null; begins with the path of the wrong key, if any
/// \return null on error
std::unique_ptr<Telvane::TelvaneDataTypeBase>
readRecord(const std::string& payload, const Telvane::RecordClass& recordClass, std::string& error);

} // namespace TelvaneTool::Mqtt
