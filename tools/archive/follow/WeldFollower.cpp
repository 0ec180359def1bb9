// The receiver thread must not wait for a disk, so it only queues. The queue is bounded; what it drops shows as missed
// in the weld, by the gap in the numbers of the samples.

#include "archive/follow/WeldFollower.h"

#include "archive/follow/WeldRecords.h"

#include <algorithm>
#include <sys/eventfd.h>

namespace TelvaneArchive
{

using TelvaneTool::Nanoseconds;

WeldFollower::WeldFollower(ArchiveStore& store, Settings settings, Report report)
    : m_store(store),
      m_settings(std::move(settings)),
      m_report(std::move(report)),
      m_event(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      m_bus(m_settings.bus, [this] {
          Telvane::BusOptions options;
          options.run = Telvane::Run::Direct;
          options.onEvent = [this](const Telvane::BusEvent& event) {
              if (event.kind == Telvane::BusEvent::Kind::StateChanged &&
                  event.state == Telvane::ConnectionState::Connecting) {
                  queue(Lost());
              }
          };
          return options;
      }())
{
    follow<Telvane::WeldTriggerStart>();
    follow<Telvane::WeldTraceData>();
    follow<Telvane::WeldTriggerEnd>();
    note<Telvane::TelvaneError>("TelvaneError");
    note<Telvane::ApiErrorMessage>("ApiErrorMessage");
    note<Telvane::PowerDownStatus>("PowerDownStatus");
    note<Telvane::DeviceIdentity>("DeviceIdentity");
    m_subscriptions.push_back(m_bus.subscribe<Telvane::HALInfo>([this](const Telvane::HALInfo& info) {
        queue(Identity{info.machineType, info.serialNumber});
    }));
}

template <class Record>
void WeldFollower::follow()
{
    m_subscriptions.push_back(m_bus.subscribe<Record>([this](const Record& record) { queue(record); }));
}

template <class Record>
void WeldFollower::note(const char* channel)
{
    m_subscriptions.push_back(m_bus.subscribe<Record>(channel, [this, channel](const Record& record) {
        Record copy = record;
        queue(Noted{channel, copy.GetString(), TelvaneTool::realTimeNow()});
    }));
}

void WeldFollower::queue(Item item)
{
    bool first = false;
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_queue.size() >= m_settings.maxQueued) {
            ++m_dropped;
            return;
        }
        first = m_queue.empty();
        m_queue.push_back(std::move(item));
    }
    if (first) {
        eventfd_write(m_event.get(), 1);
    }
}

Nanoseconds WeldFollower::nextWork() const
{
    if (m_ended) {
        return 0;
    }
    if (m_store.isDirty()) {
        return m_lastCommit + m_settings.interval;
    }
    Nanoseconds next = -1;
    for (const auto& [handle, open] : m_open) {
        next = std::max(next, open.lastRecord + m_settings.silence);
    }
    return next;
}

void WeldFollower::work()
{
    eventfd_t ignored = 0;
    eventfd_read(m_event.get(), &ignored);
    std::vector<Item> items;
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        items.swap(m_queue);
    }
    for (const Item& item : items) {
        std::visit([this](const auto& record) { take(record); }, item);
    }
    const Nanoseconds now = TelvaneTool::monotonicNow();
    endSilent(now);
    if (m_store.isDirty() && (m_ended || now >= m_lastCommit + m_settings.interval)) {
        const Status status = m_store.commit();
        report(status ? std::string() : status.text);
        m_lastCommit = TelvaneTool::monotonicNow();
        m_ended = false; // a failed commit is repeated after the interval
    }
}

void WeldFollower::take(const Telvane::WeldTriggerStart& start)
{
    Weld weld;
    takeStart(weld, start);
    weld[Column::Uid] = newUid();
    weld[Column::Module] = m_settings.module;
    weld[Column::Source] = std::string("bus");
    weld[Column::SourceName] = m_settings.bus;
    weld[Column::Boot] = bootId();
    const Nanoseconds now = TelvaneTool::monotonicNow();
    weld[Column::MonotonicNs] = now;
    weld[Column::ClockSet] = std::int64_t{clockIsSet() ? 1 : 0};
    weld[Column::UtcOffsetS] = utcOffset(weld.whole(Column::StartNs));
    if (!m_identity.type.empty()) {
        weld[Column::MachineType] = m_identity.type;
    }
    if (!m_identity.serial.empty()) {
        weld[Column::MachineSerial] = m_identity.serial;
    }
    report(m_settings.context.apply(weld));
    const std::int64_t handle = m_store.begin(std::move(weld));
    m_matcher.addStart(static_cast<std::size_t>(handle), start);
    m_open[handle].lastRecord = now;
}

void WeldFollower::take(const Telvane::WeldTraceData& trace)
{
    const auto match = m_matcher.addSample(trace);
    if (!match) {
        ++m_strays;
        return;
    }
    const auto handle = static_cast<std::int64_t>(match->weld);
    m_store.add(handle, sampleOf(trace), match->missing);
    Open& open = m_open[handle];
    open.lastRecord = TelvaneTool::monotonicNow();
    open.lost = false;
}

void WeldFollower::take(const Telvane::WeldTriggerEnd& end)
{
    const auto match = m_matcher.addEnd(end);
    if (!match) {
        return;
    }
    const auto handle = static_cast<std::int64_t>(*match);
    if (Weld* weld = m_store.find(handle)) {
        takeEnd(*weld, end);
    }
    m_store.end(handle, "complete");
    m_open.erase(handle);
    m_ended = true;
}

void WeldFollower::take(const Lost& /*lost*/)
{
    for (auto& [handle, open] : m_open) {
        open.lost = true;
    }
}

void WeldFollower::take(const Noted& noted)
{
    Event event;
    // With several welds at once it is not known which one the event belongs to.
    event.weld = m_open.size() == 1 ? m_open.begin()->first : 0;
    event.time = noted.time;
    event.module = m_settings.module;
    event.channel = noted.channel;
    event.record = noted.record;
    m_store.add(std::move(event));
}

void WeldFollower::take(const Identity& identity)
{
    m_identity = identity;
}

void WeldFollower::endSilent(Nanoseconds now)
{
    for (auto entry = m_open.begin(); entry != m_open.end();) {
        const auto& [handle, open] = *entry;
        if (now - open.lastRecord < m_settings.silence) {
            ++entry;
            continue;
        }
        m_store.end(handle, open.lost ? "bus" : "no_end");
        m_matcher.drop(static_cast<std::size_t>(handle));
        entry = m_open.erase(entry);
        m_ended = true;
    }
}

void WeldFollower::stop()
{
    work();
    for (const auto& [handle, open] : m_open) {
        m_store.end(handle, open.lost ? "bus" : "stopped");
    }
    m_open.clear();
    const Status status = m_store.commit();
    report(status ? std::string() : status.text);
}

void WeldFollower::report(const std::string& text)
{
    if (text != m_reported) {
        m_reported = text;
        m_report(text.empty() ? "the archive works again" : text);
    }
}

} // namespace TelvaneArchive
