#pragma once

#include "common/bus/BusConnection.h"

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace TelvaneTool
{

/// The latest payload of each channel, looked at now and then.
///
/// Most records of a busy channel are not looked at, and so not turned to text either.
class LatestPayloads
{
public:
    /// \return an exit code
    int subscribe(BusConnection& session, const std::string& channel);

    /// \return by channel, the text of the first payload after the call before
    std::map<std::string, std::string> take();

private:
    friend class GlimpsedRecord;
    struct Slot
    {
        std::mutex lock;
        bool wanted = true;
        std::string text;
    };
    std::map<std::string, std::shared_ptr<Slot>> m_slots;
};

} // namespace TelvaneTool
