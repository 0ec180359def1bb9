#pragma once

#include "telvane-mqtt/broker/MqttClient.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace TelvaneTool::Mqtt
{

/// What the broker retains of each topic: the newest message that it accepted. The backlog goes out after newer messages,
/// which it must not replace. Messages are identified by their topic and by when the queue accepted them.
class RetainedTopics
{
public:
    /// A message that was sent, but not to be retained.
    struct Replacement
    {
        Publication publication;
        std::int64_t queued = 0;
    };

    /// \return whether the broker may be asked to retain a message: it has not been asked for a newer one
    bool isNewest(const std::string& topic, std::int64_t queued) const;

    /// Notes that the broker was asked to retain a message.
    void noteAsked(const std::string& topic, std::int64_t queued);
    /// Notes a message that the broker was not asked to retain, because of a newer one without answer yet.
    void notePassed(const Publication& publication, std::int64_t queued);
    /// Notes that the broker has a message.
    void noteAccepted(const std::string& topic, std::int64_t queued);

    /// Notes that the broker has refused a message.
    /// \return a message to send again, to be retained in place of the refused one; nothing if there is none
    std::optional<Replacement> noteRefused(const std::string& topic, std::int64_t queued);

    /// Notes that the connection has ended. Messages without answer are sent again, unless they are dropped.
    void noteLost();

private:
    struct Topic
    {
        std::optional<std::int64_t> accepted; ///< the newest that the broker has
        std::set<std::int64_t> asked;         ///< newer ones without answer
        std::optional<Replacement> passed;    ///< the newest that was sent while those had no answer
    };

    std::map<std::string, Topic> m_topics;
};

} // namespace TelvaneTool::Mqtt
