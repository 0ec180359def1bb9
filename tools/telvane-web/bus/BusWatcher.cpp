// Only the two requests for the server's status are ever published. Channels are watched only if the server reports that
// they exist: a subscription to any other name would create it.

#include "telvane-web/bus/BusWatcher.h"

#include "common/bus/DecodedRecord.h"
#include "common/bus/RecordBuilder.h"
#include "common/support/Json.h"
#include "telvane-web/live/ShortTurns.h"

#include <Telvane/DeviceRecords.h>
#include <Telvane/ModuleRecords.h>
#include <Telvane/RequestType.h>

#include <algorithm>
#include <thread>
#include <unistd.h>

namespace TelvaneTool
{

using Telvane::BusEvent;
using Telvane::Delivery;
using Telvane::TelvaneDataTypeBase;

namespace
{

constexpr Nanoseconds kWatchedInterval = kSecond;
constexpr Nanoseconds kIdleInterval = 5 * kSecond;
constexpr Nanoseconds kUnused = 10 * kSecond;
/// A server that does not read must not hold up the pages.
constexpr auto kPublishTimeout = std::chrono::milliseconds(20);
/// What a page shows of a bus with very many channels or clients.
constexpr std::size_t kMaxRows = 500;

Telvane::BusOptions optionsFor(std::function<void(const BusEvent&)> onEvent)
{
    Telvane::BusOptions options;
    options.run = Telvane::Run::Direct;
    options.firstPause = std::chrono::milliseconds(100);
    options.longestPause = std::chrono::seconds(2);
    options.onEvent = std::move(onEvent);
    return options;
}

JsonTree toJson(const TopModel::ChannelRow& row)
{
    JsonTree item(cJSON_CreateObject());
    addText(item.get(), "name", row.status.name);
    addText(item.get(), "class", row.recordClass);
    addNumber(item.get(), "rate", row.rate);
    addNumber(item.get(), "bytesPerSecond", row.bytesPerSecond);
    addNumber(item.get(), "subscribers", row.status.subscribers);
    addNumber(item.get(), "publications", row.status.publications);
    addNumber(item.get(), "missed", row.status.missed);
    return item;
}

JsonTree toJson(const TopModel::ClientRow& row)
{
    JsonTree item(cJSON_CreateObject());
    addText(item.get(), "program", row.status.program);
    addNumber(item.get(), "pid", row.status.process);
    addText(item.get(), "user", row.status.userName);
    addNumber(item.get(), "relayed", row.relayed);
    addNumber(item.get(), "missed", row.missed);
    addNumber(item.get(), "unread", row.status.bytesBehind);
    cJSON* const missing = cJSON_AddArrayToObject(item.get(), "missing");
    for (const Telvane::EventServerSubscriptionStatus& subscription : row.status.subscriptions) {
        if (subscription.missed != 0) {
            cJSON* const channel = cJSON_CreateObject();
            addText(channel, "channel", subscription.channel);
            addNumber(channel, "missed", subscription.missed);
            cJSON_AddItemToArray(missing, channel);
        }
    }
    return item;
}

template <class Rows>
void addRows(cJSON* root, const char* key, const Rows& rows)
{
    cJSON* const array = cJSON_AddArrayToObject(root, key);
    for (std::size_t i = 0; i < std::min(rows.size(), kMaxRows); ++i) {
        cJSON_AddItemToArray(array, toJson(rows[i]).release());
    }
}

} // namespace

BusWatcher::BusWatcher(const std::string& path)
    : m_live(realTimeNow()),
      m_model(getpid()),
      m_bus(path, optionsFor([this](const BusEvent& event) { report(event); }))
{
    subscribe();
}

BusWatcher::~BusWatcher()
{
    m_bus.close(); // callbacks use the other members
}

template <class Record, class Take>
void BusWatcher::follow(Take take)
{
    m_subscriptions.push_back(m_bus.subscribe<Record>([this, take](const Record& record) {
        const std::lock_guard<std::mutex> guard(m_lock);
        takeSamples();
        take(record);
    }));
}

/// Does not wait for the lock.
void BusWatcher::take(const Telvane::WeldTraceData& record, Nanoseconds now)
{
    thread_local bool asked = false;
    if (!asked) {
        asked = true;
        askForShortTurns();
    }
    const std::unique_lock<std::mutex> guard(m_lock, std::try_to_lock);
    if (guard.owns_lock()) {
        takeSamples();
        m_live.take(record, now, realTimeNow());
    } else {
        const std::lock_guard<std::mutex> samplesGuard(m_samplesLock);
        m_samples.push_back({record, now, realTimeNow()});
    }
}

/// Takes the samples that were put aside. The caller holds the lock.
void BusWatcher::takeSamples()
{
    {
        const std::lock_guard<std::mutex> guard(m_samplesLock);
        m_takenSamples.clear(); // after an exception
        m_takenSamples.swap(m_samples);
    }
    for (const Sample& sample : m_takenSamples) {
        m_live.take(sample.record, sample.now, sample.wallClock);
    }
    m_takenSamples.clear();
}

template <class Item>
void BusWatcher::followStatus(const char* channel, StatusResponse<Item>& response, std::uint64_t& count)
{
    m_subscriptions.push_back(
        m_bus.subscribe(channel, DecodedRecord(nullptr),
                        [this, &response, &count](TelvaneDataTypeBase& record, const Delivery&) {
                            const std::lock_guard<std::mutex> guard(m_statusLock);
                            if (response.take(static_cast<DecodedRecord&>(record).text())) {
                                ++count;
                                m_statusTime = monotonicNow();
                            }
                        }));
}

void BusWatcher::subscribe()
{
    follow<Telvane::WeldTriggerStart>([this](const auto& record) {
        m_pause.reset();
        m_live.take(record, monotonicNow(), realTimeNow());
    });
    // After each sample the thread may pause, so that it wakes less often.
    m_subscriptions.push_back(
        m_bus.subscribe<Telvane::WeldTraceData>([this](const Telvane::WeldTraceData& record) {
            const Nanoseconds now = monotonicNow();
            take(record, now);
            const Nanoseconds pause = m_pause.after(now);
            if (pause != 0) {
                std::this_thread::sleep_for(std::chrono::nanoseconds(pause));
            }
        }));
    follow<Telvane::WeldTriggerEnd>([this](const auto& record) { m_live.take(record, realTimeNow()); });
    follow<Telvane::TelvaneError>(
        [this](const auto& record) { m_live.takeError("TelvaneError", "", record.Message, realTimeNow()); });
    follow<Telvane::ApiErrorMessage>([this](const auto& record) {
        m_live.takeError("ApiErrorMessage", std::to_string(record.ErrorCode), record.ErrorString,
                         realTimeNow());
    });
    follow<Telvane::ErrorLogType>([this](const auto& record) {
        m_live.takeError("ErrorLogType", record.code, record.message, realTimeNow());
    });
    followStatus(kChannelsStatus, m_channels, m_channelResponses);
    followStatus(kClientsStatus, m_clients, m_clientResponses);
}

void BusWatcher::report(const BusEvent& event)
{
    if (event.kind != BusEvent::Kind::StateChanged && event.kind != BusEvent::Kind::AttemptFailed) {
        return;
    }
    const bool connected = event.state == Telvane::ConnectionState::Connected;
    const std::lock_guard<std::mutex> guard(m_lock);
    takeSamples();
    m_live.busChanged(connected      ? std::string()
                      : event.reason ? event.reason.message()
                                     : "connecting",
                      realTimeNow());
}

void BusWatcher::tick(Nanoseconds now)
{
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        takeSamples();
        m_live.tick(now, realTimeNow());
    }
    const bool used = now - m_statusUsed < kUnused;
    if (now - m_asked >= (used ? kWatchedInterval : kIdleInterval) &&
        m_bus.state() == Telvane::ConnectionState::Connected) {
        m_asked = now;
        const RawRecord nothing;
        m_bus.publish(Telvane::kRequestPrefix + std::string(kChannelsStatus), nothing, kPublishTimeout);
        m_bus.publish(Telvane::kRequestPrefix + std::string(kClientsStatus), nothing, kPublishTimeout);
    }
    updateModel();
    for (auto watch = m_watches.begin(); watch != m_watches.end();) {
        watch = now - watch->second.used > kUnused ? m_watches.erase(watch) : std::next(watch);
    }
}

bool BusWatcher::updateModel()
{
    const std::lock_guard<std::mutex> guard(m_statusLock);
    const std::uint64_t responses = std::min(m_channelResponses, m_clientResponses);
    if (responses != m_modelResponses) {
        m_modelResponses = responses;
        m_model.update(m_channels.items(), m_clients.items(), m_statusTime);
    }
    return responses != 0;
}

std::string BusWatcher::busJson()
{
    m_statusUsed = monotonicNow();
    const bool known = updateModel();
    const JsonTree root(cJSON_CreateObject());
    cJSON_AddBoolToObject(root.get(), "known", known ? 1 : 0);
    addNumber(root.get(), "rate", m_model.rate());
    addNumber(root.get(), "bytesPerSecond", m_model.bytesPerSecond());
    const auto channels = m_model.channels(TopModel::Order::Name);
    addNumber(root.get(), "channelCount", channels.size());
    addNumber(root.get(), "clientCount", m_model.clients().size());
    addRows(root.get(), "channels", channels);
    addRows(root.get(), "clients", m_model.clients());
    return printJson(root.get());
}

std::string BusWatcher::recordJson(const std::string& channel)
{
    const auto channels = m_model.channels(TopModel::Order::Name);
    const auto row = std::find_if(channels.begin(), channels.end(), [&](const TopModel::ChannelRow& item) {
        return item.status.name == channel;
    });
    if (row == channels.end()) {
        return {};
    }
    m_statusUsed = monotonicNow();
    Watch& watch = m_watches[channel];
    watch.used = m_statusUsed;
    if (watch.latest == nullptr) {
        watch.latest = std::make_shared<LatestPayload>();
        watch.subscription = m_bus.subscribe(channel, LatestRecord(watch.latest),
                                             [](TelvaneDataTypeBase&, const Delivery&) {});
        while (m_watches.size() > kMaxWatched) {
            m_watches.erase(
                std::min_element(m_watches.begin(), m_watches.end(),
                                 [](const auto& a, const auto& b) { return a.second.used < b.second.used; }));
        }
    }
    std::string payload;
    Nanoseconds time = 0;
    {
        LatestPayload& latest = *m_watches.at(channel).latest;
        const std::lock_guard<std::mutex> guard(latest.lock);
        latest.wanted = true;
        payload = latest.text;
        time = latest.time;
    }
    const JsonTree root(cJSON_CreateObject());
    addText(root.get(), "channel", channel);
    const std::string name = payload.empty() ? row->recordClass : guessClass(channel, payload);
    addText(root.get(), "class", name);
    if (payload.empty()) {
        return printJson(root.get());
    }
    addNumber(root.get(), "time", time / kMillisecond);
    std::string error;
    const JsonTree tree = parseJson(payload, error);
    DecodedRecord record(Telvane::RecordCatalogue::find(name));
    if (tree != nullptr && record.Unpackage(tree.get()) == 0) {
        addText(root.get(), "error", record.decodeError());
        cJSON_AddItemToObject(root.get(), "record", parseJson(record.text(), error).release());
    }
    return printJson(root.get());
}

Nanoseconds BusWatcher::status(std::vector<ChannelStatus>& channels, std::vector<ClientStatus>& clients)
{
    const std::lock_guard<std::mutex> guard(m_statusLock);
    channels = m_channels.items();
    clients = m_clients.items();
    return monotonicNow() - m_statusTime;
}

} // namespace TelvaneTool
