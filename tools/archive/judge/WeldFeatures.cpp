// The main phase is what lies between ignition and crater fill. Metrics of the main phase are those of WeldMeasures over
// its samples; the time and the energy are those of the whole weld, once per seam.

#include "archive/judge/Judge.h"
#include "archive/welds/WeldMeasures.h"
#include "common/support/Saturating.h"

#include <algorithm>

namespace TelvaneArchive
{

namespace
{

constexpr double kNanosecond = 1e-9;
constexpr double kLargestSkip = 0.2; ///< of the weld
constexpr double kWindowSamples = 5.0;

constexpr Column kOfMainPhase[] = {Column::MeanAmps,    Column::SdAmps,  Column::MeanVolts, Column::SdVolts,
                                   Column::MeanWfs,     Column::SdWfs,   Column::MeanGas,   Column::SdGas,
                                   Column::MeanMotor,   Column::SdMotor, Column::ShortRate, Column::ShortTime,
                                   Column::ArcStability};
constexpr Column kOfWholeWeld[] = {Column::ArcTime, Column::Energy};

/// Collects means of windows.
class Windows
{
public:
    Windows(double from, double window) : m_from(from), m_window(window) {}

    void add(double seconds, const Sample& sample)
    {
        const auto index = static_cast<std::size_t>(std::max(0.0, (seconds - m_from) / m_window));
        constexpr std::size_t kMaxWindows = 1'000'000;
        if (index >= kMaxWindows) {
            return;
        }
        if (index >= m_counts.size()) {
            m_counts.resize(index + 1);
            for (auto& sums : m_sums) {
                sums.resize(index + 1);
            }
        }
        ++m_counts[index];
        for (std::size_t i = 0; i < kChannels; ++i) {
            m_sums[i][index] += sample.values[i];
        }
    }

    /// \return the means; a window without samples has that of the window before
    std::vector<double> means(std::size_t channel) const
    {
        std::vector<double> means;
        for (std::size_t k = 0; k < m_counts.size(); ++k) {
            const bool empty = m_counts[k] == 0;
            means.push_back(!empty ? m_sums[channel][k] / m_counts[k] : means.empty() ? 0.0 : means.back());
        }
        return means;
    }

private:
    double m_from;
    double m_window;
    std::vector<unsigned> m_counts;
    std::array<std::vector<double>, kChannels> m_sums;
};

} // namespace

Status readFeatures(ArchiveReader& reader, std::int64_t id, const JudgeSettings& settings,
                    WeldFeatures& features)
{
    std::optional<Weld> weld;
    Status status = reader.weld(id, weld);
    if (!status || !weld) {
        return status ? Status::failed(Status::Code::Failed, "there is no weld " + std::to_string(id))
                      : status;
    }
    return readFeatures(reader, *weld, settings, features);
}

Status readFeatures(ArchiveReader& reader, const Weld& weld, const JudgeSettings& settings,
                    WeldFeatures& features)
{
    const double whole =
        (static_cast<double>(weld.whole(Column::EndNs)) - static_cast<double>(weld.whole(Column::StartNs))) *
        kNanosecond;
    const double from = std::min(settings.skipStart, whole * kLargestSkip);
    const double to = whole - std::min(settings.skipEnd, whole * kLargestSkip);
    const std::int64_t periodUs = weld.whole(Column::SamplePeriodUs);
    features.start = from;
    features.window = std::max(settings.window, kWindowSamples * static_cast<double>(periodUs) * 1e-6);

    const std::int64_t start = weld.whole(Column::StartNs);
    WeldMeasures measures(SampleClock(start, periodUs));
    Windows windows(from, features.window);
    constexpr std::size_t kPage = 50'000;
    std::vector<Sample> samples;
    const ArchiveReader::SampleRange range = {TelvaneTool::toSaturated<std::int64_t>(from / kNanosecond),
                                              TelvaneTool::toSaturated<std::int64_t>(to / kNanosecond)};
    ArchiveReader::SamplePosition position;
    Status status;
    do {
        samples.clear();
        status = reader.samples(weld.id, range, kPage, position, samples);
        for (Sample& sample : samples) {
            windows.add(static_cast<double>(sample.time) * kNanosecond, sample);
            sample.time = TelvaneTool::addSaturated(sample.time, start);
            measures.add(sample);
        }
    } while (status && samples.size() == kPage);
    if (!status) {
        return status;
    }
    Weld main;
    main[Column::StartRecord] = weld[Column::StartRecord];
    measures.finish(main);
    for (const Column column : kOfMainPhase) {
        if (main.has(column)) {
            features.metrics[column] = main.number(column);
        }
    }
    for (const Column column : kOfWholeWeld) {
        if (weld.has(column)) {
            features.metrics[column] = weld.number(column);
        }
    }
    constexpr std::pair<Channel, Column> kMeasured[] = {{Channel::Amps, Column::MeanAmps},
                                                        {Channel::Volts, Column::MeanVolts},
                                                        {Channel::Wfs, Column::MeanWfs},
                                                        {Channel::Gas, Column::MeanGas},
                                                        {Channel::Motor, Column::MeanMotor}};
    for (const auto& [channel, metric] : kMeasured) {
        if (main.has(metric)) {
            features.courses[static_cast<std::size_t>(channel)] =
                windows.means(static_cast<std::size_t>(channel));
        }
    }
    return status;
}

} // namespace TelvaneArchive
