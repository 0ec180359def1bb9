// A small weld monitor: a line for each weld, and an alarm, on the bus as well, when the arc leaves its limits.
// docs/tutorial.md goes through it.
#include <Telvane/Telvane.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>

namespace
{

using Telvane::EventClient;
using Telvane::TelvaneDataTypeBase;

struct Limits
{
    double least; ///< volts
    double most;  ///< volts
};

/// What there is to say of one weld.
class Weld
{
public:
    explicit Weld(const Telvane::WeldTriggerStart& start) : m_tag(start.tag) {}

    /// \return whether the mean voltage has just left the limits, for the first time in this weld
    bool add(const Telvane::WeldTraceData& sample, const Limits& limits)
    {
        m_lost += sample.sequence - m_next;
        m_next = sample.sequence + 1;
        // The arc of a short-circuiting process goes out a hundred times a second, which is no fault: what
        // counts is the mean of some tenths of a second, once there has been so much of the weld.
        constexpr double kShare = 1.0 / 500;
        m_volts += (sample.data.volts - m_volts) * (m_samples == 0 ? 1 : kShare);
        ++m_samples;
        const bool outside = m_samples > 1000 && (m_volts < limits.least || m_volts > limits.most);
        const bool news = outside && !m_alarmed;
        m_alarmed = m_alarmed || outside;
        return news;
    }

    std::string alarm() const
    {
        return "weld " + std::to_string(m_tag) + ": the arc is at " + std::to_string(m_volts) + " V";
    }

    void print(const Telvane::WeldTriggerEnd& end) const
    {
        std::printf("weld %d: %.1f s, %.1f V, %d A, %d samples, %d lost%s\n", m_tag,
                    end.metrics.ArcDuration.Value, end.metrics.AverageVoltage.Value,
                    end.metrics.AverageAmperage.Value, m_samples, m_lost, m_alarmed ? ", ALARM" : "");
        std::fflush(stdout);
    }

private:
    int m_tag;
    int m_samples = 0;
    int m_next = 0; ///< number of the sample that is due
    int m_lost = 0;
    double m_volts = 0.0;
    bool m_alarmed = false;
};

/// Its callbacks all run on the client's one receiver thread, so that they need no lock among themselves.
class Monitor
{
public:
    Monitor(EventClient& client, const Limits& limits) : m_client(client), m_limits(limits) {}

    /// \return 0 or the result of the subscription that failed
    int begin()
    {
        int result = on<Telvane::WeldTriggerStart>("WeldTriggerStart", &Monitor::started);
        if (result == 0) {
            result = on<Telvane::WeldTraceData>("WeldTraceData", &Monitor::sampled);
        }
        if (result == 0) {
            result = on<Telvane::WeldTriggerEnd>("WeldTriggerEnd", &Monitor::ended);
        }
        return result;
    }

private:
    /// Has a member called for each record of a class.
    template <class Record>
    int on(const char* channel, void (Monitor::*member)(const Record& record))
    {
        const auto call = [this, member](void*, TelvaneDataTypeBase* record, int, void*) {
            (this->*member)(static_cast<const Record&>(*record));
        };
        return m_client.Subscribe(channel, call, Record(), nullptr);
    }

    void started(const Telvane::WeldTriggerStart& start) { m_weld = std::make_unique<Weld>(start); }

    void sampled(const Telvane::WeldTraceData& sample)
    {
        if (m_weld != nullptr && m_weld->add(sample, m_limits)) {
            Telvane::LogData alarm;
            alarm.log = m_weld->alarm();
            m_client.Publish("WeldAlarm", alarm); // which a callback may do
        }
    }

    void ended(const Telvane::WeldTriggerEnd& end)
    {
        if (m_weld != nullptr) {
            m_weld->print(end);
            m_weld.reset();
        }
    }

    EventClient& m_client;
    const Limits m_limits;
    std::unique_ptr<Weld> m_weld; ///< null until a start has been seen: the monitor may come in the middle
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: weld_monitor PATH LEAST-VOLTS MOST-VOLTS\n");
        return 2;
    }
    EventClient client;
    std::promise<void> over;
    client.install_OnConnectionLost([&](EventClient&) { over.set_value(); });
    if (const int result = client.Connect(argv[1]); result != 0) {
        std::fprintf(stderr, "cannot connect to %s (%d)\n", argv[1], result);
        return 1;
    }
    Monitor monitor(client, {std::atof(argv[2]), std::atof(argv[3])});
    if (const int result = monitor.begin(); result != 0) {
        std::fprintf(stderr, "cannot subscribe (%d)\n", result);
        return 1;
    }
    over.get_future().wait();
    std::fprintf(stderr, "the server has gone\n");
    client.Disconnect();
    return 1;
}
