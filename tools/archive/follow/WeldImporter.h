#pragma once

#include "archive/follow/Context.h"
#include "archive/store/ArchiveStore.h"
#include "common/weld/WeldMatcher.h"

#include <Telvane/WeldRecords.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace TelvaneArchive
{

/// Puts welds from a file into an archive. A weld that is already there is left out, however often it comes.
class WeldImporter
{
public:
    struct Settings
    {
        std::string module;
        std::string source; ///< "recording" or "csv"
        std::string file;
        bool absoluteTime = true; ///< the file has times of day; otherwise starts are those of the import
        bool groupIsPart = false; ///< the name of a weld in the file is its part number
        Context context;
    };

    WeldImporter(ArchiveStore& store, Settings settings) : m_store(store), m_settings(std::move(settings)) {}

    void setAbsoluteTime(bool absolute) { m_settings.absoluteTime = absolute; }

    /// \param group  name of the weld in the file; may be empty
    void add(const Telvane::WeldTriggerStart& start, const std::string& group);
    void add(const Telvane::WeldTraceData& trace);
    Status add(const Telvane::WeldTriggerEnd& end);
    /// Stores the welds whose ends are not in the file.
    Status finish();

    std::uint64_t imported() const { return m_imported; }
    std::uint64_t known() const { return m_known; }
    std::uint64_t samples() const { return m_samples; }
    std::uint64_t strays() const { return m_strays; }

private:
    struct Open
    {
        Telvane::WeldTriggerStart start;
        std::string group;
        std::vector<Sample> samples;
        std::uint64_t missed = 0;
    };

    Status store(Open& open, const Telvane::WeldTriggerEnd* end);
    Status isKnown(const Weld& weld, std::size_t samples, bool& known);
    std::string uidOf(const Open& open, const Weld& weld) const;

    ArchiveStore& m_store;
    Settings m_settings;
    TelvaneTool::WeldMatcher m_matcher;
    std::map<std::size_t, Open> m_open;
    std::size_t m_next = 0;
    std::uint64_t m_imported = 0;
    std::uint64_t m_known = 0;
    std::uint64_t m_samples = 0;
    std::uint64_t m_strays = 0;
};

} // namespace TelvaneArchive
