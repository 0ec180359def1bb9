// Power cuts at hundreds of moments. The archive works once, while everything that it does to files is noted: by SQLite's
// own interface for file systems, and by redirecting the calls of the sample files. Then a disk is made for each moment
// and each seed, and an archive is opened on it. kill -9 cannot try this, because the kernel keeps what was not
// synchronised.

#include "archive/PowerLossWork.h"
#include "archive/RecordingVfs.h"
#include "archive/follow/WeldImporter.h"

#include <functional>
#include <map>
#include <set>

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;

namespace
{

/// TELVANE_ARCHIVE_POWER_CUTS multiplies the number of power cuts.
unsigned cutsOf(unsigned usual)
{
    const char* const wanted = std::getenv("TELVANE_ARCHIVE_POWER_CUTS");
    return wanted != nullptr ? usual * static_cast<unsigned>(std::atoi(wanted)) : usual;
}

constexpr std::int32_t kNextSamples = 30;

std::string soundnessOf(ArchiveStore& store)
{
    std::vector<Row> rows;
    const Status status = store.database().run("PRAGMA integrity_check", {}, &rows);
    return !status ? status.text : textOf(rows[0][0]) == "ok" ? "" : textOf(rows[0][0]);
}

/// \return what is wrong with a weld, given what was confirmed of it and what was about to be
std::string faultOf(ArchiveReader& reader, const Weld& weld, const Confirmed& least, const Confirmed& most)
{
    std::uint64_t damaged = 0;
    const std::vector<Sample> samples = samplesOf(reader, weld.id, &damaged);
    const auto count = static_cast<std::int32_t>(samples.size());
    std::string difference = differenceOf(samples);
    if (damaged != 0) {
        return std::to_string(damaged) + " damaged chunks";
    }
    if (!difference.empty()) {
        return difference;
    }
    const bool deletes = most.samples < least.samples; // all or nothing
    const bool isExpected = deletes ? count == least.samples || count == most.samples
                                    : count >= least.samples && count <= most.samples;
    if (!isExpected) {
        return std::to_string(count) + " samples, not " + std::to_string(least.samples) + " to " +
               std::to_string(most.samples);
    }
    const std::string& ending = weld.text(Column::Ending);
    if (ending != "complete" && (least.isComplete || ending != "power")) {
        return "it ended as " + ending;
    }
    if (!deletes && most.samples != 0 && weld.whole(Column::Samples) != count) {
        return "its row has another number of samples";
    }
    std::vector<Finding> findings;
    if (!reader.findings(weld.id, findings) || findings.size() != 1 ||
        weld.text(Column::Verdict) != "warning") {
        return "no verdict";
    }
    std::vector<ArchiveReader::Event> events;
    const Status status = reader.events(weld.id, events);
    std::set<std::string> different;
    for (const auto& event : events) {
        different.insert(event.record);
    }
    if (!status || different.size() != events.size() ||
        events.size() < static_cast<std::size_t>(least.events) ||
        events.size() > static_cast<std::size_t>(most.events)) {
        return std::to_string(events.size()) + " events";
    }
    return {};
}

/// \return what is wrong with the welds of an archive
std::string faultOf(const std::string& path, const State& least, const State& most)
{
    const auto reader = openReader(path);
    std::set<std::string> found;
    for (const Weld& weld : listWelds(*reader)) {
        const std::string& uid = weld.text(Column::Uid);
        const auto had = least.find(uid);
        const auto gets = most.find(uid);
        if (!found.insert(uid).second || (had == least.end() && gets == most.end())) {
            return uid + " is there twice, or should not be there";
        }
        // A weld that is being deleted may have lost its samples, a new one may have none yet.
        const Confirmed low = had != least.end() ? had->second : Confirmed();
        const Confirmed high = gets != most.end() ? gets->second : Confirmed{0, true, low.events};
        const std::string fault = faultOf(*reader, weld, low, high);
        if (!fault.empty()) {
            return std::string(uid).append(": ").append(fault);
        }
    }
    for (const auto& [uid, confirmed] : least) {
        if (found.count(uid) == 0 && most.count(uid) != 0) {
            return uid + " is missing";
        }
    }
    return {};
}

/// Opens an archive after a power cut and goes on with a weld.
/// \return what is wrong with it
std::string faultAfterRestart(const std::string& path, const State& least, const State& most,
                              const std::string& next = "next")
{
    Status status;
    const auto store = ArchiveStore::open(path, withoutBallast(), status, &judgeAll);
    if (!store) {
        return "not opened: " + status.text;
    }
    if (std::string fault = faultOf(path, least, most); !fault.empty()) {
        return fault;
    }
    keepWeld(*store, weldBeforeTheCut(next), kNextSamples);
    const auto reader = openReader(path);
    WeldFilter filter;
    filter.add(Column::Uid, Condition::Comparison::Equal, next);
    const std::vector<Weld> welds = listWelds(*reader, filter);
    if (welds.size() != 1 || samplesOf(*reader, welds[0].id).size() != kNextSamples) {
        return "the next weld is not kept";
    }
    return soundnessOf(*store);
}

/// Tries a number of power cuts.
/// \param check  opens what is left, and returns what is wrong with it
/// \return all faults
std::vector<std::string>
cutPower(unsigned cuts,
         const std::function<std::string(const std::string& folder, std::size_t operations)>& check)
{
    std::vector<std::string> faults;
    PowerCut cut(recordedDisk);
    const std::size_t all = recordedDisk.operations().size();
    for (unsigned i = 0; i < cuts; ++i) {
        const std::size_t operations = all * (i + 1) / cuts;
        cut.advance(operations);
        const TemporaryDirectory folder;
        cut.write(folder.path(""), i);
        const std::string fault = check(folder.path(""), operations);
        if (!fault.empty()) {
            faults.push_back("cut " + std::to_string(i) + " after " + std::to_string(operations) + " of " +
                             std::to_string(all) + " operations: " + fault);
        }
    }
    return faults;
}

std::string print(const std::vector<std::string>& faults)
{
    constexpr std::size_t kMaxShown = 5;
    std::string text = faults.size() > kMaxShown ? std::to_string(faults.size()) + " faults, such as\n" : "";
    for (std::size_t i = 0; i < std::min(faults.size(), kMaxShown); ++i) {
        text += faults[i] + "\n";
    }
    return text;
}

class PowerLoss : public ::testing::Test
{
protected:
    PowerLoss() { startRecording(); }
    ~PowerLoss() override { recordedDisk.stop(); }

    /// \param prepare  makes the files that are there at first
    void startRecording(const std::function<void()>& prepare = [] {})
    {
        recordedDisk.stop();
        std::filesystem::remove_all(m_folder);
        std::filesystem::create_directory(m_folder);
        prepare();
        recordedDisk.start(m_folder);
    }

    /// Keeps welds on the disk that is recorded.
    /// \param setting  a PRAGMA
    std::unique_ptr<Work> keep(const Sql& setting = "PRAGMA synchronous") const
    {
        auto work = std::make_unique<Work>(m_path);
        std::vector<Row> ignored;
        EXPECT_TRUE(work->store().database().run(setting, {}, &ignored));
        keepWelds(*work);
        recordedDisk.stop();
        return work;
    }

    /// \return what was lost or damaged
    static std::vector<std::string> cutPowerOf(const Work& work, unsigned cuts)
    {
        return cutPower(cuts, [&work](const std::string& folder, std::size_t operations) {
            const auto [least, most] = work.statesAt(operations);
            return faultAfterRestart(folder + "welds.db", least, most);
        });
    }

    TemporaryDirectory m_directory;
    // SQLite asks for paths without links.
    const std::string m_folder = std::filesystem::canonical(m_directory.path("")).string() + "/recorded";
    const std::string m_path = m_folder + "/welds.db";
    RecordingVfs m_vfs{recordedDisk};
};

} // namespace

TEST_F(PowerLoss, LosesNothingThatWasCommitted)
{
    const auto work = keep();
    EXPECT_EQ(print(cutPowerOf(*work, cutsOf(150))), "");
}

TEST_F(PowerLoss, LosesNothingWhenThePowerGoesAgainDuringTheNextStart)
{
    const auto work = keep();
    PowerCut cut(recordedDisk);
    const std::size_t all = recordedDisk.operations().size();
    constexpr std::size_t kFirst = 10;
    for (std::size_t i = 1; i <= kFirst; ++i) {
        const std::size_t operations = all * i / kFirst - 1;
        auto [least, most] = work->statesAt(operations);
        startRecording([&] {
            cut.advance(operations);
            cut.write(m_folder + "/", static_cast<unsigned>(i));
        });
        ASSERT_EQ(faultAfterRestart(m_path, least, most), "") << operations;
        recordedDisk.stop();
        most["next"] = {kNextSamples, true, 0};
        const auto check = [&states = std::as_const(least),
                            &after = std::as_const(most)](const std::string& folder, std::size_t) {
            return faultAfterRestart(folder + "welds.db", states, after, "second");
        };
        EXPECT_EQ(print(cutPower(cutsOf(4), check)), "") << operations;
    }
}

// The tests above can fail.
TEST_F(PowerLoss, IsNoticedIfALogIsNotSynchronised)
{
    for (const Sql& setting : {Sql("PRAGMA synchronous = NORMAL"), Sql("PRAGMA synchronous = OFF")}) {
        startRecording();
        const auto work = keep(setting);
        EXPECT_FALSE(cutPowerOf(*work, 20).empty());
    }
}

namespace
{

constexpr int kImportedWelds = 4;
constexpr int kImportedSamples = 200;

/// Imports the same recording each time.
/// \param imported  is called after each weld
void importWelds(ArchiveStore& store, const std::function<void(int welds)>& imported)
{
    WeldImporter::Settings settings;
    settings.module = "bench";
    WeldImporter importer(store, settings);
    for (int i = 0; i < kImportedWelds; ++i) {
        const auto timeOf = [i](int number) {
            return timespec{1'704'164'645 + i * 10, number * 500'000L};
        };
        Telvane::WeldTriggerStart start;
        start.samplePeriodus = 500;
        start.messageSerial = i * 1000;
        start.timestamp.time = timeOf(0);
        importer.add(start, "");
        for (int k = 0; k < kImportedSamples; ++k) {
            Telvane::WeldTraceData trace;
            trace.sequence = k;
            trace.messageSerial = i * 1000 + 1 + k;
            trace.timestamp.time = timeOf(k);
            trace.data.amps = 180.0 + k % 7;
            importer.add(trace);
        }
        EXPECT_TRUE(importer.finish());
        imported(i + 1);
    }
}

} // namespace

TEST_F(PowerLoss, LeavesAnImportThatCanBeRepeated)
{
    std::map<std::size_t, int> confirmed = {{0, 0}}; // welds after so many operations
    {
        const auto store = openStore(m_path, withoutBallast());
        std::vector<Row> ignored;
        ASSERT_TRUE(store->database().run("PRAGMA wal_autocheckpoint = 20", {}, &ignored));
        importWelds(*store, [&](int welds) { confirmed[recordedDisk.operations().size()] = welds; });
        recordedDisk.stop();
    }
    const auto check = [&](const std::string& folder, std::size_t operations) -> std::string {
        const std::string path = folder + "welds.db";
        Status status;
        const auto store = ArchiveStore::open(path, withoutBallast(), status);
        if (!store) {
            return "not opened: " + status.text;
        }
        const auto reader = openReader(path);
        const auto welds = static_cast<int>(listWelds(*reader).size());
        const int least = std::prev(confirmed.upper_bound(operations))->second;
        if (welds < least || welds > least + 1) {
            return std::to_string(welds) + " welds, not " + std::to_string(least);
        }
        importWelds(*store, [](int) {});
        const std::vector<Weld> all = listWelds(*reader);
        for (const Weld& weld : all) {
            if (samplesOf(*reader, weld.id).size() != kImportedSamples) {
                return weld.text(Column::Uid) + " lacks samples";
            }
        }
        return all.size() == kImportedWelds ? soundnessOf(*store) : std::to_string(all.size()) + " welds";
    };
    EXPECT_EQ(print(cutPower(cutsOf(50), check)), "");
}
