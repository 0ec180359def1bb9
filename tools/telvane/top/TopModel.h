#pragma once

#include "common/bus/StatusPayload.h"
#include "common/support/Clock.h"

#include <map>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// What is going on on a bus, computed from what the server tells from time to time.
class TopModel
{
public:
    struct ChannelRow
    {
        ChannelStatus status;
        double rate = 0.0;           ///< messages per second since the last look
        double bytesPerSecond = 0.0; ///< the same
        std::string recordClass;     ///< empty when none is known
        std::string value;           ///< the last payload seen, JSON; empty when none was
    };
    struct ClientRow
    {
        ClientStatus status;
        std::uint64_t relayed = 0; ///< of all its subscriptions
        std::uint64_t missed = 0;
    };
    enum class Order
    {
        Name,
        Rate,
        Bytes,
    };

    /// \param observer the process that looks, which is left out
    explicit TopModel(pid_t observer) : m_observer(observer) {}

    /// Takes what the server has told.
    /// \param time on the monotonic clock
    void update(std::vector<ChannelStatus> channels, std::vector<ClientStatus> clients, Nanoseconds time);

    /// Notes the last payload of a channel; its class is found once.
    void setValue(const std::string& channel, const std::string& payload);

    std::vector<ChannelRow> channels(Order order) const;
    const std::vector<ClientRow>& clients() const { return m_clients; }

    double rate() const;
    double bytesPerSecond() const;
    /// \return true when there have been two looks, so that rates are known
    bool hasRates() const { return m_looks > 1; }

private:
    const pid_t m_observer;
    std::map<std::string, ChannelRow> m_channels;
    std::vector<ClientRow> m_clients;
    Nanoseconds m_time = 0;
    int m_looks = 0;
};

/// \return the name of the class whose records look like a payload, or an empty text: the class named like
///         the channel if there is one, else the only one that has just these keys
std::string guessClass(const std::string& channel, const std::string& payload);

} // namespace TelvaneTool
