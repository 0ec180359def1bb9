#pragma once

#include "common/bus/BusConnection.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace TelvaneTool
{

/// Samples the payloads of channels.
///
/// Only the first payload after each take() is printed to text, so a busy channel costs little.
class LatestPayloads
{
public:
    /// \return an exit code
    int subscribe(BusConnection& bus, const std::string& channel);

    /// \return for each channel, the first payload since the previous call
    std::map<std::string, std::string> take();

private:
    friend class SampledRecord;
    struct Slot
    {
        std::mutex lock;
        bool wanted = true;
        std::string text;
    };
    std::map<std::string, std::shared_ptr<Slot>> m_slots;
};

} // namespace TelvaneTool
