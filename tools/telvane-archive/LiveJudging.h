#pragma once

#include "archive/follow/WeldFollower.h"
#include "archive/judge/JudgeRules.h"
#include "archive/judge/WeldVerdict.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace TelvaneTool
{
class Command;
} // namespace TelvaneTool

namespace TelvaneArchive
{

/// Judges welds when they end, and publishes the verdicts on the bus.
class LiveJudging
{
public:
    struct Options
    {
        std::string rules;   ///< file; empty to judge nothing
        std::string channel; ///< for the verdicts; empty to publish none
    };

    /// Reads the rules and the references. Prints what is wrong.
    /// \param learns  whether the archive keeps welds that can be references
    /// \return an exit code
    int start(const Options& options, ArchiveStore& store, bool learns);

    /// Publishes the verdicts of welds whose rows are in the archive.
    void publish(const std::vector<std::int64_t>& closed, WeldFollower& follower);

private:
    void judge(Weld& weld, std::vector<ArchiveStore::Finding>& findings);

    std::string m_channel;
    std::string m_reported;
    std::unique_ptr<ArchiveReader> m_reader;
    std::unique_ptr<RuleJudge> m_judge;
    std::map<std::int64_t, WeldVerdict> m_verdicts; ///< not published yet, by the id of the weld
};

/// Reads a file with rules. Prints what is wrong.
/// \return an exit code
int readRulesFile(const std::string& path, std::vector<JudgeRule>& rules);

void addLiveJudgingOptions(TelvaneTool::Command& command, LiveJudging::Options& options);

/// \return the findings as the archive stores them
std::vector<ArchiveStore::Finding> findingsOf(const Judge::Verdict& verdict);

} // namespace TelvaneArchive
