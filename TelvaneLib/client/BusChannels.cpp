// What the server has been asked for, and what is wanted.
//
// A thread that changes what is wanted marks the channel. One thread at a time works through the marks and
// sends what brings the server in line, so two threads that subscribe and unsubscribe cannot overtake each
// other. A server that does not take such a request within kSendDeadline is left: after that it would no
// longer be known what it has been asked for.

#include "client/BusState.h"

namespace Telvane::Detail
{

namespace
{

constexpr auto kSendDeadline = std::chrono::seconds(1);

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
    m_dirtyChannels.reserve(m_channels.size() + 1); // marking a channel takes no memory
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

/// Finds the next channel for which the server has to be asked for something.
/// \return whether there is one; \p message is then the request
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
            ++m_answersDue;
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
        wakeUp(m_wake.get()); // the receiver does it
        return;
    }
    if (m_updating) {
        return; // the thread that does it will find the mark
    }
    m_updating = true;
    Channels::value_type* channel = nullptr;
    std::string message;
    while (m_linkUp) {
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
