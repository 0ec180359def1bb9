// Subscribes and unsubscribes channels at the server.
//
// A thread that adds or removes a subscription marks its channel. One thread at a time works through the marked
// channels and sends the requests that the server needs, so requests of two threads cannot overtake each other. If
// the server does not accept a request within kSendDeadline, the bus disconnects: its knowledge of the server's
// subscriptions would no longer be certain. While kWindow subscribe requests are unanswered, the marked channels wait; the
// receiver goes on when an answer arrives.

#include "client/BusState.h"

namespace Telvane::Detail
{

namespace
{

constexpr auto kSendDeadline = std::chrono::seconds(1);
constexpr auto kAnswersLost = std::chrono::seconds(1); ///< without any answer while the window is full

} // namespace

std::string printRequest(const JsonTree& request)
{
    const JsonText text(request != nullptr ? cJSON_Print(request.get()) : nullptr);
    if (text == nullptr) {
        throw std::bad_alloc();
    }
    return text.get();
}

BusState::Channels::iterator BusState::findOrAddChannel(const std::string& name)
{
    m_dirtyChannels.reserve(m_channels.size() + 1); // so that marking a channel allocates nothing
    return m_channels.try_emplace(name).first;
}

void BusState::markDirty(Channels::value_type& channel)
{
    if (!channel.second.dirty) {
        channel.second.dirty = true;
        m_dirtyChannels.push_back(&channel);
    }
}

void BusState::eraseIfIdle(Channels::iterator channel)
{
    if (channel->second.idle()) {
        m_channels.erase(channel);
    }
}

/// Finds the next channel that needs a request to the server.
/// \param[out] message the request
/// \return false if there is none
bool BusState::takeDirtyChannel(std::string& message, Channels::value_type*& channel)
{
    while (!m_dirtyChannels.empty()) {
        Channels::value_type* const next = m_dirtyChannels.back();
        Channel& entry = next->second;
        const bool wanted = entry.wanted();
        if (wanted != entry.asked) {
            message = printRequest(wanted ? makeSubscribeRequest(next->first)
                                          : makeUnsubscribeRequest(next->first));
        }
        m_dirtyChannels.pop_back();
        entry.dirty = false;
        if (wanted == entry.asked) {
            eraseIfIdle(m_channels.find(next->first));
            continue;
        }
        entry.asked = wanted;
        entry.active = entry.refused = false;
        if (wanted) {
            ++entry.answersDue;
            if (++m_answersDue == kWindow) {
                m_windowFull = true;
                m_windowEnd = Clock::now() + kAnswersLost;
            }
        }
        channel = next;
        return true;
    }
    return false;
}

void BusState::updateServer(Held& held)
{
    if (m_link == nullptr || m_closed) {
        return;
    }
    if (!m_linkUp) {
        wakeUp(m_wake.get()); // the receiver sends the requests
        return;
    }
    if (m_updating) {
        return; // the updating thread will find the mark
    }
    m_updating = true;
    Channels::value_type* channel = nullptr;
    std::string message;
    while (m_linkUp && m_answersDue < kWindow) {
        const LinkPointer link = m_link;
        std::error_code sent;
        try {
            if (!takeDirtyChannel(message, channel)) {
                break;
            }
            channel->second.sending = true;
            held.unlock();
            sent = send(*link, message.data(), static_cast<int>(message.size()), kSendDeadline);
            held.lock();
            channel->second.sending = false;
            eraseIfIdle(m_channels.find(channel->first));
        } catch (const std::bad_alloc&) {
            sent = BusError::OutOfMemory;
        }
        if (sent) {
            link->shutDown();
            break;
        }
    }
    m_updating = false;
    changed.notify_all();
}

} // namespace Telvane::Detail
