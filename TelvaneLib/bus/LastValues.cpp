#include "bus/LastValues.h"

#include "transport/SeqpacketSocket.h"

#include <new>

namespace Telvane
{

bool LastValues::remembers(std::string_view channel) const
{
    return m_settings.remembers(channel);
}

const std::string* LastValues::find(std::string_view channel) const
{
    const auto found = m_byChannel.find(channel);
    return found != m_byChannel.end() ? &found->second->relay : nullptr;
}

void LastValues::put(std::string_view channel, std::string_view relay)
{
    const bool isCut = relay.size() >= static_cast<std::size_t>(kMessageLimit);
    if (isCut || m_settings.channels == 0 || channel.size() + relay.size() > m_settings.bytes) {
        forget(channel);
        return;
    }
    try {
        const auto entry = entryOf(channel);
        m_bytes -= entry->relay.size();
        m_entries.splice(m_entries.end(), m_entries, entry);
        entry->relay.clear();
        entry->relay.assign(relay);
        m_bytes += relay.size();
    } catch (const std::bad_alloc&) {
        forget(channel);
        return;
    }
    while (m_bytes > m_settings.bytes || m_entries.size() > m_settings.channels) {
        erase(m_entries.begin());
    }
}

/// Adds an empty entry if the channel has none.
LastValues::Entries::iterator LastValues::entryOf(std::string_view channel)
{
    const auto found = m_byChannel.find(channel);
    if (found != m_byChannel.end()) {
        return found->second;
    }
    const auto entry = m_entries.insert(m_entries.end(), {std::string(channel), {}});
    try {
        m_byChannel.emplace(entry->channel, entry);
    } catch (const std::bad_alloc&) {
        m_entries.erase(entry);
        throw;
    }
    m_bytes += channel.size();
    return entry;
}

void LastValues::forget(std::string_view channel)
{
    const auto found = m_byChannel.find(channel);
    if (found != m_byChannel.end()) {
        erase(found->second);
    }
}

void LastValues::erase(Entries::iterator entry)
{
    m_bytes -= sizeOf(*entry);
    m_byChannel.erase(entry->channel);
    m_entries.erase(entry);
}

} // namespace Telvane
