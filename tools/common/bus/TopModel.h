#pragma once

#include "common/bus/StatusPayload.h"
#include "common/support/Clock.h"

#include <map>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// The contents of `telvane top`, computed from successive status responses.
class TopModel
{
public:
    struct ChannelRow
    {
        ChannelStatus status;
        double rate = 0.0;            ///< messages per second since the previous update
        double bytesPerSecond = 0.0;  ///< since the previous update
        double missedPerSecond = 0.0; ///< since the previous update
        std::string recordClass;      ///< empty if unknown
        std::string value;            ///< the latest payload, as JSON; empty if there is none
    };
    struct ClientRow
    {
        ClientStatus status;
        std::uint64_t relayed = 0;    ///< on all its channels
        std::uint64_t missed = 0;     ///< on all its channels
        double missedPerSecond = 0.0; ///< since the previous update
    };
    enum class Order
    {
        Name,
        Rate,
        Bytes,
        Missed,
    };

    /// \param observer the process to leave out: this one
    explicit TopModel(pid_t observer) : m_observer(observer) {}

    /// Takes a response of the server.
    /// \param time on the monotonic clock
    void update(std::vector<ChannelStatus> channels, std::vector<ClientStatus> clients, Nanoseconds time);

    /// Sets the latest payload of a channel. The first one determines the class.
    void setValue(const std::string& channel, const std::string& payload);

    std::vector<ChannelRow> channels(Order order) const;
    const std::vector<ClientRow>& clients() const { return m_clients; }

    double rate() const;
    double bytesPerSecond() const;
    /// \return whether there were two updates, so that rates are known
    bool hasRates() const { return m_updates > 1; }

private:
    const pid_t m_observer;
    std::map<std::string, ChannelRow> m_channels;
    std::vector<ClientRow> m_clients;
    Nanoseconds m_time = 0;
    int m_updates = 0;
};

/// \return the record class of a channel, or an empty text: the class with the channel's name, or else the only class
///         with exactly the payload's keys
std::string guessClass(const std::string& channel, const std::string& payload);

} // namespace TelvaneTool
