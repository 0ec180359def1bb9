#pragma once

// The last message of each remembered channel.

#include <Telvane/EventServerStatus.h>

#include <list>
#include <map>
#include <string>
#include <string_view>

namespace Telvane
{

/// Relays by channel, within the limits of EventServerMemory. The handler lock guards it.
class LastValues
{
public:
    explicit LastValues(EventServerMemory settings) : m_settings(std::move(settings)) {}

    bool remembers(std::string_view channel) const;

    /// Replaces the channel's relay. A relay that cannot be kept leaves the channel without one: an older relay would
    /// be wrong.
    void put(std::string_view channel, std::string_view relay);

    void forget(std::string_view channel);

    /// \return the channel's relay, or null
    const std::string* find(std::string_view channel) const;

private:
    struct Entry
    {
        std::string channel;
        std::string relay;
    };
    using Entries = std::list<Entry>;

    Entries::iterator entryOf(std::string_view channel);

    void erase(Entries::iterator entry);
    static std::size_t sizeOf(const Entry& entry) { return entry.channel.size() + entry.relay.size(); }

    const EventServerMemory m_settings;
    Entries m_entries; ///< the channel that was published on longest ago first
    std::map<std::string_view, Entries::iterator> m_byChannel;
    std::size_t m_bytes = 0;
};

} // namespace Telvane
