#pragma once

#include "weld/CsvRecording.h"
#include "weld/SimulatedWeld.h"

#include <memory>

namespace TelvaneTool
{

/// Samples of a CSV file or a simulated weld, with error reports.
class WeldSource
{
public:
    struct Options
    {
        CsvRecording::Options recording; ///< with an empty path, a weld is simulated
        SimulatedWeld::Settings simulation;
        double periodMicroseconds = 0.0; ///< between samples; 0 if not given
        double duration = 10.0;          ///< arc time of a simulated weld, s
    };

    /// \param options  must outlive the source
    /// \param waiter   see TextLines::open()
    WeldSource(const Options& options, TextLines::Waiter waiter)
        : m_options(options), m_waiter(std::move(waiter))
    {}

    /// Opens the file or starts the simulation. Prints the reason if it fails.
    /// \return an exit code
    int open();

    SampleSource& samples() { return *m_samples; }

    /// Reports invalid rows and read errors.
    /// \return an exit code
    int finish() const;

private:
    Nanoseconds period() const;
    std::string missingOption() const;
    void reportInvalidRow(const std::string& message);

    const Options& m_options;
    TextLines::Waiter m_waiter;
    std::unique_ptr<SampleSource> m_samples;
    CsvRecording* m_recording = nullptr; ///< null for a simulated weld
};

} // namespace TelvaneTool
