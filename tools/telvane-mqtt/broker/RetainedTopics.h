#pragma once

#include "telvane-mqtt/channels/Payload.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace TelvaneTool::Mqtt
{

/// What the broker retains of each topic: the newest message that it accepted. The backlog goes out after newer messages,
/// which it must not replace. Messages are identified by their topic and by when the queue accepted them.
class RetainedTopics
{
public:
    /// \return whether the broker may be asked to retain a message: it has not been asked for a newer one
    bool isNewest(const std::string& topic, std::int64_t queued) const;

    /// Notes that the broker was asked to retain a message.
    void noteAsked(const std::string& topic, std::int64_t queued);
    /// Notes that the broker has a message which it was to retain and does.
    void noteAccepted(const std::string& topic, std::int64_t queued);
    /// Notes that the broker has refused a message.
    void noteRefused(const std::string& topic, std::int64_t queued);
    /// Notes a message that is to be retained, that the broker has, and that it was not asked to retain, because of a newer
    /// one. It is the newest after all if the newer ones are refused.
    void notePassed(OutgoingMessage message);

    /// Notes that the connection has ended. Messages without answer are sent again, unless they are dropped.
    void noteLost();

    /// \return the message that was passed, if it is the newest of its topic by now: to be sent once more and retained
    std::optional<OutgoingMessage> takeNewest(const std::string& topic);
    /// \return those of all topics
    std::vector<OutgoingMessage> takeNewest();

private:
    struct Topic
    {
        std::optional<std::int64_t> accepted;  ///< the newest that the broker retains
        std::set<std::int64_t> asked;          ///< newer ones without answer
        std::optional<OutgoingMessage> passed; ///< the newest that was passed
    };

    std::map<std::string, Topic> m_topics;
};

} // namespace TelvaneTool::Mqtt
