// A small weld monitor. Prints a line for each weld and publishes an alarm if the arc voltage leaves its limits.
// docs/tutorial.md explains it.
#include <Telvane/Telvane.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <unistd.h>

namespace
{

using Telvane::Run;

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

/// Its callbacks all run on the receiver thread of the bus, in the order of the messages, and need no lock.
class Monitor
{
public:
    Monitor(Telvane::Bus& bus, const Limits& limits) : m_bus(bus), m_limits(limits)
    {
        m_starts = bus.subscribe<Telvane::WeldTriggerStart>([this](const auto& start) { started(start); },
                                                            Run::Direct);
        m_samples = bus.subscribe<Telvane::WeldTraceData>([this](const auto& sample) { sampled(sample); },
                                                          Run::Direct);
        m_ends = bus.subscribe<Telvane::WeldTriggerEnd>([this](const auto& end) { ended(end); }, Run::Direct);
    }

private:
    void started(const Telvane::WeldTriggerStart& start) { m_weld = std::make_unique<Weld>(start); }

    void sampled(const Telvane::WeldTraceData& sample)
    {
        if (m_weld != nullptr && m_weld->add(sample, m_limits)) {
            Telvane::LogData alarm;
            alarm.log = m_weld->alarm();
            m_bus.publish("WeldAlarm", alarm); // allowed in a callback
        }
    }

    void ended(const Telvane::WeldTriggerEnd& end)
    {
        if (m_weld != nullptr) {
            m_weld->print(end);
            m_weld.reset();
        }
    }

    Telvane::Bus& m_bus;
    const Limits m_limits;
    std::unique_ptr<Weld> m_weld;   ///< null until a start has been seen: the monitor may come in the middle
    Telvane::Subscription m_starts; ///< ended first, before what their callbacks use
    Telvane::Subscription m_samples;
    Telvane::Subscription m_ends;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: weld_monitor PATH MIN-VOLTS MAX-VOLTS\n");
        return 2;
    }
    Telvane::BusOptions options;
    options.onEvent = [](const Telvane::BusEvent& event) {
        const bool connected = event.state == Telvane::ConnectionState::Connected;
        const std::string text = connected ? "connected" : "not connected: " + event.reason.message();
        std::fprintf(stderr, "%s\n", text.c_str());
    };
    Telvane::Bus bus(argv[1], options);
    const Monitor monitor(bus, {std::atof(argv[2]), std::atof(argv[3])});
    for (;;) {
        pause();
    }
}
