// A message is limited to 16 KiB, so a response has several parts. One thread sends all responses, so the parts of one
// response are consecutive.

#include "common/bus/StatusPayload.h"

#include "common/bus/RecordBuilder.h"
#include "common/support/ChannelPattern.h"
#include "common/support/Json.h"

#include <Telvane/RequestType.h>

#include <algorithm>
#include <limits>

namespace TelvaneTool
{

namespace
{

/// The client sends indented JSON, which is up to twice as long.
constexpr std::size_t kMaxPerPart = kMaxPublicationSize / 2 - 512;
constexpr std::size_t kMaxSubscriptionsPerItem = 40;

double numberOf(const cJSON* object, const char* key)
{
    const cJSON* const item = cJSON_GetObjectItemCaseSensitive(object, key);
    return cJSON_IsNumber(item) ? item->valuedouble : 0.0;
}

/// Limits received numbers to the range of their type.
template <class Number>
Number wholeNumber(const cJSON* object, const char* key)
{
    constexpr double kMax =
        sizeof(Number) > 4 ? 9e15 : static_cast<double>(std::numeric_limits<Number>::max());
    constexpr double kMin = Number(-1) < Number(0) ? -kMax : 0.0;
    const double value = numberOf(object, key);
    return static_cast<Number>(value > kMin ? std::min(value, kMax) : kMin);
}

template <class Status, class Counters>
void addCounters(cJSON* object, const Status& status, const Counters& counters)
{
    for (const auto& counter : counters) {
        addNumber(object, counter.name, status.*counter.member);
    }
}

template <class Status, class Counters>
void readCounters(const cJSON* object, Status& status, const Counters& counters)
{
    for (const auto& counter : counters) {
        status.*counter.member = wholeNumber<std::uint64_t>(object, counter.name);
    }
}

std::string readText(const cJSON* object, const char* key)
{
    const char* const value = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, key));
    return value != nullptr ? value : "";
}

JsonTree toJson(const ChannelStatus& channel)
{
    JsonTree item(cJSON_CreateObject());
    addText(item.get(), "channel", channel.name);
    addNumber(item.get(), "subscribers", channel.subscribers);
    addCounters(item.get(), channel, Telvane::kChannelCounters);
    addNumber(item.get(), "lastSequence", channel.lastSequence);
    return item;
}

JsonTree toJson(const ClientStatus& client)
{
    JsonTree item(cJSON_CreateObject());
    addNumber(item.get(), "client", client.descriptor);
    addNumber(item.get(), "pid", client.process);
    addText(item.get(), "program", client.program);
    addNumber(item.get(), "uid", client.user);
    addNumber(item.get(), "gid", client.group);
    addText(item.get(), "user", client.userName);
    addNumber(item.get(), "bytesBehind", client.bytesBehind);
    cJSON* const subscriptions = cJSON_AddArrayToObject(item.get(), "subscriptions");
    for (const Telvane::EventServerSubscriptionStatus& subscription : client.subscriptions) {
        cJSON* const object = cJSON_CreateObject();
        addText(object, "channel", subscription.channel);
        addCounters(object, subscription, Telvane::kSubscriptionCounters);
        cJSON_AddItemToArray(subscriptions, object);
    }
    return item;
}

/// \return false if the server could not have sent the item
bool read(const cJSON* item, ChannelStatus& channel)
{
    channel.name = readText(item, "channel");
    if (!checkChannel(channel.name).empty()) {
        return false;
    }
    channel.subscribers = wholeNumber<std::size_t>(item, "subscribers");
    readCounters(item, channel, Telvane::kChannelCounters);
    channel.lastSequence = wholeNumber<int>(item, "lastSequence");
    return true;
}

bool read(const cJSON* item, ClientStatus& client)
{
    client.descriptor = wholeNumber<int>(item, "client");
    client.process = wholeNumber<pid_t>(item, "pid");
    client.program = readText(item, "program");
    client.user = wholeNumber<uid_t>(item, "uid");
    client.group = wholeNumber<gid_t>(item, "gid");
    client.userName = readText(item, "user");
    client.bytesBehind = wholeNumber<std::size_t>(item, "bytesBehind");
    const cJSON* object = nullptr;
    cJSON_ArrayForEach(object, cJSON_GetObjectItemCaseSensitive(item, "subscriptions"))
    {
        Telvane::EventServerSubscriptionStatus subscription;
        subscription.channel = readText(object, "channel");
        readCounters(object, subscription, Telvane::kSubscriptionCounters);
        if (checkChannel(subscription.channel).empty()) {
            client.subscriptions.push_back(std::move(subscription));
        }
    }
    return true;
}

void add(std::vector<ChannelStatus>& items, ChannelStatus&& item)
{
    items.push_back(std::move(item));
}

/// A client with many subscriptions has several items.
void add(std::vector<ClientStatus>& items, ClientStatus&& item)
{
    if (!items.empty() && items.back().descriptor == item.descriptor) {
        std::move(item.subscriptions.begin(), item.subscriptions.end(),
                  std::back_inserter(items.back().subscriptions));
    } else {
        items.push_back(std::move(item));
    }
}

template <class Item>
constexpr const char* kItemsKey = "channels";
template <>
constexpr const char* kItemsKey<ClientStatus> = "clients";

/// Prints items into as few payloads as possible.
class PartPrinter
{
public:
    explicit PartPrinter(const char* key) : m_key(key) {}

    void add(const cJSON* item)
    {
        std::string text = printJson(item);
        if (text.size() > kMaxPerPart) {
            return;
        }
        if (m_parts.empty() || m_parts.back().size() + text.size() + 1 > kMaxPerPart) {
            m_parts.push_back(std::move(text));
        } else {
            m_parts.back() += "," + text;
        }
    }

    std::vector<std::string> finish()
    {
        if (m_parts.empty()) {
            m_parts.emplace_back();
        }
        const std::string count = std::to_string(m_parts.size());
        for (std::size_t i = 0; i < m_parts.size(); ++i) {
            m_parts[i] = R"({"part":)" + std::to_string(i + 1) + R"(,"parts":)" + count + ",\"" + m_key +
                         "\":[" + m_parts[i] + "]}";
        }
        return std::move(m_parts);
    }

private:
    const char* m_key;
    std::vector<std::string> m_parts;
};

} // namespace

bool isStatusChannel(std::string_view channel)
{
    constexpr std::string_view kPrefix = Telvane::kRequestPrefix;
    if (channel.substr(0, kPrefix.size()) == kPrefix) {
        channel.remove_prefix(kPrefix.size());
    }
    return channel == kChannelsStatus || channel == kClientsStatus;
}

std::vector<std::string> encodeStatus(const std::vector<ChannelStatus>& channels)
{
    PartPrinter printer(kItemsKey<ChannelStatus>);
    for (const ChannelStatus& channel : channels) {
        printer.add(toJson(channel).get());
    }
    return printer.finish();
}

std::vector<std::string> encodeStatus(const std::vector<ClientStatus>& clients)
{
    PartPrinter printer(kItemsKey<ClientStatus>);
    for (const ClientStatus& client : clients) {
        ClientStatus piece = client;
        std::size_t done = 0;
        do {
            const std::size_t count = std::min(kMaxSubscriptionsPerItem, client.subscriptions.size() - done);
            const auto first = client.subscriptions.begin() + static_cast<std::ptrdiff_t>(done);
            piece.subscriptions.assign(first, first + static_cast<std::ptrdiff_t>(count));
            printer.add(toJson(piece).get());
            done += count;
        } while (done < client.subscriptions.size());
    }
    return printer.finish();
}

bool isPlausible(const std::vector<ChannelStatus>& channels)
{
    return std::any_of(channels.begin(), channels.end(), [](const ChannelStatus& channel) {
        return channel.name == kChannelsStatus && channel.subscribers != 0;
    });
}

bool isPlausible(const std::vector<ClientStatus>& clients)
{
    const auto isSubscribed = [](const Telvane::EventServerSubscriptionStatus& subscription) {
        return subscription.channel == kClientsStatus;
    };
    return std::any_of(clients.begin(), clients.end(), [&isSubscribed](const ClientStatus& client) {
        return std::any_of(client.subscriptions.begin(), client.subscriptions.end(), isSubscribed);
    });
}

template <class Item>
bool StatusResponse<Item>::take(const std::string& payload)
{
    std::string error;
    const JsonTree tree = parseJson(payload, error);
    const int part = wholeNumber<int>(tree.get(), "part");
    if (part == 1) {
        m_partial.clear();
        m_nextPart = 1;
        m_size = 0;
    }
    m_size += payload.size();
    if (part != m_nextPart || m_size > kMaxSize) {
        m_partial.clear();
        m_nextPart = 1;
        return false; // a part was missed; wait for the next response
    }
    ++m_nextPart;
    const cJSON* object = nullptr;
    cJSON_ArrayForEach(object, cJSON_GetObjectItemCaseSensitive(tree.get(), kItemsKey<Item>))
    {
        Item item;
        if (read(object, item)) {
            add(m_partial, std::move(item));
        }
    }
    if (part != wholeNumber<int>(tree.get(), "parts")) {
        return false;
    }
    m_complete.swap(m_partial);
    m_partial.clear();
    m_nextPart = 1;
    return true;
}

template class StatusResponse<ChannelStatus>;
template class StatusResponse<ClientStatus>;

} // namespace TelvaneTool
