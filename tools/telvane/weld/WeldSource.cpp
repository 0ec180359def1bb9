#include "weld/WeldSource.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <cstring>

namespace TelvaneTool
{

namespace
{

constexpr std::uint64_t kMaxReportedRows = 20;

} // namespace

int WeldSource::open()
{
    if (m_options.recording.path.empty()) {
        SimulatedWeld::Settings settings = m_options.simulation;
        settings.duration = nanoseconds(m_options.duration);
        if (m_options.periodMicroseconds > 0.0) {
            settings.period = period();
        }
        m_samples = std::make_unique<SimulatedWeld>(settings);
        return kSuccess;
    }
    if (const std::string missing = missingOption(); !missing.empty()) {
        printError(missing);
        return kWrongUsage;
    }
    CsvRecording::Options recording = m_options.recording;
    recording.period = period();
    recording.waiter = m_waiter;
    auto samples = std::make_unique<CsvRecording>(
        std::move(recording), [this](const std::string& message) { reportInvalidRow(message); });
    m_recording = samples.get();
    m_samples = std::move(samples);
    std::string error;
    if (!m_recording->open(error)) {
        if (!error.empty()) {
            printError(error);
        }
        return kWrongInput;
    }
    return kSuccess;
}

std::string WeldSource::missingOption() const
{
    const CsvRecording::Options& recording = m_options.recording;
    if (recording.text(Quantity::Amps).empty() || recording.text(Quantity::Volts).empty()) {
        return "--amps COLUMN and --volts COLUMN are required with --csv";
    }
    if (recording.time.empty() && m_options.periodMicroseconds <= 0.0) {
        return "--time COLUMN or --period-us N is required with --csv";
    }
    return {};
}

Nanoseconds WeldSource::period() const
{
    return static_cast<Nanoseconds>(m_options.periodMicroseconds * static_cast<double>(kMicrosecond));
}

void WeldSource::reportInvalidRow(const std::string& message)
{
    if (m_recording->invalidRows() <= kMaxReportedRows) {
        printError(message + "; skipped the row");
    } else if (m_recording->invalidRows() == kMaxReportedRows + 1) {
        printError("further invalid rows are only counted");
    }
}

int WeldSource::finish() const
{
    if (m_recording == nullptr) {
        return kSuccess;
    }
    if (m_recording->readError() != 0) {
        printError("cannot read " + m_options.recording.path + ": " +
                   std::strerror(m_recording->readError()));
    }
    if (m_recording->invalidRows() != 0) {
        printError(std::to_string(m_recording->invalidRows()) + " invalid rows were skipped");
    }
    return m_recording->readError() != 0 || m_recording->invalidRows() != 0 ? kWrongInput : kSuccess;
}

} // namespace TelvaneTool
