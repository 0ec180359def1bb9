// A small weld monitor. Prints a line for each weld and publishes an alarm if the arc voltage leaves its limits.
// docs/tutorial.md explains it.
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
    double min; ///< V
    double max; ///< V
};

/// The statistics of one weld.
class Weld
{
public:
    explicit Weld(const Telvane::WeldTriggerStart& start) : m_tag(start.tag) {}

    /// \return true if the average voltage leaves the limits for the first time in this weld
    bool add(const Telvane::WeldTraceData& sample, const Limits& limits)
    {
        m_lost += sample.sequence - m_next;
        m_next = sample.sequence + 1;
        // In a short-circuiting process the arc goes out a hundred times a second, which is normal. So check a
        // moving average over some tenths of a second, after the start of the weld.
        constexpr double kWeight = 1.0 / 500;
        m_volts += (sample.data.volts - m_volts) * (m_samples == 0 ? 1 : kWeight);
        ++m_samples;
        const bool outside = m_samples > 1000 && (m_volts < limits.min || m_volts > limits.max);
        const bool isNew = outside && !m_alarmed;
        m_alarmed = m_alarmed || outside;
        return isNew;
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
    int m_next = 0; ///< number of the next sample
    int m_lost = 0;
    double m_volts = 0.0;
    bool m_alarmed = false;
};

/// All callbacks run on the receiver thread of the client, so they need no locks.
class Monitor
{
public:
    Monitor(EventClient& client, const Limits& limits) : m_client(client), m_limits(limits) {}

    /// \return 0, or the result of the subscription that failed
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
    /// Subscribes to a channel; a member function receives its records.
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
            m_client.Publish("WeldAlarm", alarm); // allowed in a callback
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
    std::unique_ptr<Weld> m_weld; ///< null before the first start: the monitor may start during a weld
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: weld_monitor PATH MIN-VOLTS MAX-VOLTS\n");
        return 2;
    }
    EventClient client;
    std::promise<void> lost;
    client.install_OnConnectionLost([&](EventClient&) { lost.set_value(); });
    if (const int result = client.Connect(argv[1]); result != 0) {
        std::fprintf(stderr, "cannot connect to %s (%d)\n", argv[1], result);
        return 1;
    }
    Monitor monitor(client, {std::atof(argv[2]), std::atof(argv[3])});
    if (const int result = monitor.begin(); result != 0) {
        std::fprintf(stderr, "cannot subscribe (%d)\n", result);
        return 1;
    }
    lost.get_future().wait();
    std::fprintf(stderr, "the server has gone\n");
    client.Disconnect();
    return 1;
}
