#pragma once

#include "common/bus/BusConnection.h"
#include "recording/RecordingReader.h"

#include <map>
#include <string>
#include <vector>

namespace TelvaneTool
{

class Pacer;
class ProgressBar;

/// Publishes what a recording holds.
class Replay
{
public:
    struct Settings
    {
        double speed = 1.0;                         ///< times the recorded pace; 0 for no waiting
        Nanoseconds from = 0;                       ///< since the first record
        Nanoseconds until = -1;                     ///< the same; negative for the end
        bool loop = false;                          ///< begin anew at the end
        std::vector<std::string> only;              ///< patterns of channels; none for all
        std::map<std::string, std::string> renames; ///< recorded channel to the one to publish on
    };

    Replay(BusConnection& session, std::string path, Settings settings)
        : m_session(session), m_path(std::move(path)), m_settings(std::move(settings))
    {}

    /// \return an exit code
    int run();

    std::uint64_t published() const { return m_published; }

private:
    int pass(Pacer& pacer, ProgressBar& bar);
    bool publish(const RecordedMessage& message);
    void show(ProgressBar& bar, const RecordingReader& reader, Nanoseconds time) const;

    BusConnection& m_session;
    const std::string m_path;
    const Settings m_settings;
    std::uint64_t m_published = 0;
    std::uint64_t m_refused = 0; ///< payloads that cannot be published
};

} // namespace TelvaneTool
