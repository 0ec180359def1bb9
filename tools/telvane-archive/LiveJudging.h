#pragma once

#include "archive/follow/WeldFollower.h"
#include "archive/judge/JudgeRules.h"
#include "archive/judge/WeldVerdict.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace TelvaneTool
{
class Command;
} // namespace TelvaneTool

namespace TelvaneArchive
{

/// Judges welds when they end, and publishes the verdicts on the bus. A verdict waits in the archive until it is published.
class LiveJudging
{
public:
    struct Options
    {
        std::string rules;   ///< file; empty to judge nothing
        std::string channel; ///< for the verdicts; empty to publish none
    };

    /// Reads the rules and the references, and sets the judge of the archive. Prints what is wrong.
    /// \param learns  whether the archive keeps welds that can be references
    /// \return an exit code
    int start(const Options& options, ArchiveStore& store, bool learns);

    /// Publishes the verdicts of welds whose rows are in the archive, as soon as there is a bus.
    /// \return when to call it again, on the monotonic clock; -1 for the end of the next weld
    TelvaneTool::Nanoseconds publish(ArchiveStore& store, WeldFollower& follower);

private:
    void judge(Weld& weld, ArchiveStore::Judgement& judgement);
    std::error_code publishOne(const ArchiveStore::Unpublished& waiting, WeldFollower& follower) const;
    void report(const std::string& text);

    std::string m_channel;
    std::string m_reported;             ///< the last error of the database
    bool m_waits = false;               ///< reported: there is no bus
    std::set<std::int64_t> m_published; ///< verdicts that could not be deleted after they were published
    std::vector<std::string> m_remarks;
    std::unique_ptr<ArchiveReader> m_reader;
    std::unique_ptr<RuleJudge> m_judge;
    TelvaneTool::Nanoseconds m_due = 0; ///< when to publish; at first, what an earlier run has left
};

/// Reads a file with rules. Prints what is wrong.
/// \return an exit code
int readRulesFile(const std::string& path, std::vector<JudgeRule>& rules);

void addRulesOption(TelvaneTool::Command& command, LiveJudging::Options& options);
void addLiveJudgingOptions(TelvaneTool::Command& command, LiveJudging::Options& options);

} // namespace TelvaneArchive
