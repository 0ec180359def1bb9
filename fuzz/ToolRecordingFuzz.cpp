// Recordings as the tool reads them. The input is the text of the options, parted by the byte 0x1E, and
// behind them the file: current, voltage, time, group, delimiter, file.
//
// Every row of a file is either delivered or told of, and none is lost; time never runs backwards; and what
// the detector of welds makes of the samples is a sequence of whole welds.

#include "FuzzSupport.h"

#include "common/support/CsvFields.h"
#include "weld/CsvRecording.h"
#include "weld/WeldDetector.h"
#include "weld/WeldSummary.h"

#include <algorithm>
#include <cmath>
#include <sys/mman.h>
#include <unistd.h>

using Telvane::require;

namespace TelvaneTool
{
namespace
{

/// A file that lives in memory and ends with the process, whatever becomes of that.
class MemoryFile
{
public:
    explicit MemoryFile(std::string_view content) : m_fd(memfd_create("recording", MFD_CLOEXEC))
    {
        require(m_fd >= 0, "a file in memory can be had");
        while (!content.empty()) {
            const ssize_t written = write(m_fd, content.data(), content.size());
            require(written > 0, "a file in memory takes everything");
            content.remove_prefix(static_cast<std::size_t>(written));
        }
    }
    ~MemoryFile() { close(m_fd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(m_fd); }

private:
    int m_fd;
};

/// The lines of a file, without their ends and without the mark that some programs begin it with.
std::vector<std::string_view> linesOf(std::string_view content)
{
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    std::vector<std::string_view> lines;
    while (!content.empty()) {
        const std::size_t end = std::min(content.find('\n'), content.size());
        std::string_view line = content.substr(0, end);
        content.remove_prefix(std::min(end + 1, content.size()));
        if (lines.empty() && line.substr(0, kMark.size()) == kMark) {
            line.remove_prefix(kMark.size());
        }
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        lines.push_back(line);
    }
    return lines;
}

/// Follows the welds that a detector tells of.
class WeldFollower : public WeldDetector::Listener
{
public:
    void arcStarted(const WeldSample& first) override
    {
        require(!m_welding, "a weld starts when none goes on");
        m_welding = true;
        m_summary = WeldSummary(false);
        m_time = first.time;
    }
    void arcSample(const WeldSample& sample, bool burning) override
    {
        take(sample);
        m_summary.add(sample, burning);
    }
    void arcEnded(const WeldSample& end) override
    {
        take(end);
        m_summary.end(end);
        m_welding = false;
        require(m_summary.samples() > 0, "a weld has samples");
        require(m_summary.arcTime() >= 0, "an arc burns for some time");
    }

    bool welding() const { return m_welding; }

private:
    void take(const WeldSample& sample)
    {
        require(m_welding, "samples belong to a weld");
        require(sample.time >= m_time, "a weld is told in order of time");
        m_time = sample.time;
    }

    bool m_welding = false;
    WeldSummary m_summary{false};
    Nanoseconds m_time = 0;
};

/// \return the number of samples delivered
std::size_t replay(SampleSource& samples)
{
    WeldFollower welds;
    WeldDetector detector({}, welds);
    WeldSample sample;
    Nanoseconds period = 0;
    Nanoseconds previous = 0;
    for (std::size_t count = 0;; ++count) {
        const SampleSource::Next next = samples.next(sample);
        if (next != SampleSource::Next::Sample) {
            detector.finish(period);
            require(!welds.welding(), "a weld ends with its group");
        }
        if (next == SampleSource::Next::End) {
            return count;
        }
        require(count > 0 || next == SampleSource::Next::NewGroup, "a recording begins with a group");
        require(next == SampleSource::Next::NewGroup || sample.time >= previous,
                "time does not run backwards");
        previous = sample.time;
        period = samples.traits().period;
        require(period >= 0, "a sample does not last less than no time");
        detector.push(sample);
    }
}

void checkFields(std::string_view line, char delimiter)
{
    std::vector<std::string_view> fields;
    const bool split = splitFields(line, delimiter, fields);
    const auto delimiters = static_cast<std::size_t>(std::count(line.begin(), line.end(), delimiter));
    if (line.find('"') == std::string_view::npos) {
        require(split && fields.size() == delimiters + 1, "each delimiter outside quotes parts two fields");
    }
    require(fields.size() <= delimiters + 1, "only delimiters part fields");
    for (const std::string_view field : fields) {
        require(field.empty() ||
                    (field.data() >= line.data() && field.data() + field.size() <= line.data() + line.size()),
                "fields are parts of their line");
        double number = 0.0;
        if (readDecimal(field, number)) {
            require(std::isfinite(number) && number == std::strtod(std::string(field).c_str(), nullptr),
                    "a number reads as the C library reads it");
        }
    }
}

void check(const CsvRecording::Options& options, std::string_view content)
{
    const std::vector<std::string_view> lines = linesOf(content);
    for (const std::string_view line : lines) {
        checkFields(line, options.delimiter);
    }

    std::size_t told = 0;
    CsvRecording recording(options, [&](const std::string& message) {
        ++told;
        require(message.rfind(options.path + ":", 0) == 0, "a bad row is named by its place");
    });
    std::string error;
    if (!recording.open(error)) {
        require(!error.empty(), "whoever cannot read says why");
        return;
    }
    require(!lines.empty(), "a recording has a header line");
    const auto rows =
        std::count_if(lines.begin() + 1, lines.end(), [](std::string_view line) { return !line.empty(); });
    const std::size_t delivered = replay(recording);
    require(recording.readError() == 0, "a file in memory can be read");
    require(recording.invalidRows() == told, "each bad row is told of");
    require(delivered + told == static_cast<std::size_t>(rows), "no row is lost");
}

} // namespace
} // namespace TelvaneTool

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace TelvaneTool;
    // An hour that exists twice and one that does not.
    static const int zone = setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    static_cast<void>(zone);

    const std::vector<std::string_view> parts = Telvane::packetsOf(Telvane::textOf(data, size));
    const MemoryFile file(parts.back());
    const auto option = [&parts](std::size_t index) {
        return index + 1 < parts.size() ? std::string(parts[index]) : std::string();
    };
    CsvRecording::Options options;
    options.path = file.path();
    options.period = kMillisecond;
    options.text(Quantity::Amps) = option(0);
    options.text(Quantity::Volts) = option(1);
    options.time = option(2);
    options.group = option(3);
    options.delimiter = option(4).empty() ? ',' : option(4).front();
    check(options, parts.back());
    return 0;
}
