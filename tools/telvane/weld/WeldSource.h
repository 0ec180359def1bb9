#pragma once

#include "weld/CsvRecording.h"
#include "weld/SimulatedWeld.h"

#include <memory>

namespace TelvaneTool
{

/// The samples of a recording or of a simulated weld, and what there is to say about them.
class WeldSource
{
public:
    struct Options
    {
        CsvRecording::Options recording; ///< without a path, a weld is simulated
        SimulatedWeld::Settings simulation;
        double periodMicroseconds = 0.0; ///< between samples, of either; 0 for none given
        double duration = 10.0;          ///< of a simulated arc, s
    };

    /// \param options outlives the source
    /// \param waiter see TextLines::open()
    WeldSource(const Options& options, TextLines::Waiter waiter)
        : m_options(options), m_waiter(std::move(waiter))
    {}

    /// Opens the recording or makes up a weld, or complains.
    /// \return an exit code
    int open();

    SampleSource& samples() { return *m_samples; }

    /// Complains about what was wrong with the recording.
    /// \return the exit code that it deserves
    int conclude() const;

private:
    Nanoseconds period() const;
    std::string missingOption() const;
    void reportInvalidRow(const std::string& message);

    const Options& m_options;
    TextLines::Waiter m_waiter;
    std::unique_ptr<SampleSource> m_samples;
    CsvRecording* m_recording = nullptr; ///< when the samples come from one
};

} // namespace TelvaneTool
