#pragma once

#include "common/bus/BusConnection.h"
#include "recording/RecordingInput.h"

#include <map>
#include <string>
#include <vector>

namespace TelvaneTool
{

class Pacer;
class ProgressBar;

/// Publishes the messages of a recording at their recorded pace.
class Replay
{
public:
    struct Settings
    {
        double speed = 1.0; ///< factor on the recorded pace; 0 for no delays
        RecordingRange range;
        bool loop = false;                          ///< start again at the end
        std::vector<std::string> only;              ///< channel patterns; empty for all channels
        std::map<std::string, std::string> renames; ///< from recorded to published channel
    };

    Replay(BusConnection& session, std::vector<std::string> paths, Settings settings)
        : m_session(session), m_paths(std::move(paths)), m_settings(std::move(settings))
    {}

    /// \return an exit code
    int run();

    std::uint64_t published() const { return m_published; }

private:
    int pass(Pacer& pacer, ProgressBar& bar);
    bool publish(const RecordedMessage& message);
    void show(ProgressBar& bar, const RecordingInput& input, Nanoseconds time) const;

    BusConnection& m_session;
    const std::vector<std::string> m_paths;
    const Settings m_settings;
    std::uint64_t m_published = 0;
    std::uint64_t m_refused = 0; ///< messages that cannot be published
};

} // namespace TelvaneTool
