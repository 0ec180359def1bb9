#pragma once

// An archive at work while its disk is recorded.

#include "archive/ArchiveTestSupport.h"
#include "archive/RecordedCalls.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TelvaneArchive::Testing
{

inline ArchiveStore::Settings withoutBallast()
{
    ArchiveStore::Settings settings;
    settings.ballast = 0;
    return settings;
}

/// Gives each weld a warning.
inline Status judgeAll(ArchiveStore& store)
{
    store.setJudge([](Weld& weld, ArchiveStore::Judgement& judgement) {
        weld[Column::Verdict] = std::string("warning");
        judgement.findings.push_back({"warning", "mean_amps", 1, 2, 3, 0, 1, "test"});
        judgement.record = "{}";
    });
    return {};
}

/// \return a weld whose machine was started again since
inline Weld weldBeforeTheCut(const std::string& uid)
{
    Weld weld = makeWeld(uid);
    weld[Column::Boot] = std::string("before the power cut");
    return weld;
}

/// What an archive has confirmed of a weld.
struct Confirmed
{
    std::int32_t samples = 0;
    bool isComplete = false;
    int events = 0;
};
using State = std::map<std::string, Confirmed>; ///< by uid

/// An archive at work, with all that it confirms and when.
class Work
{
public:
    explicit Work(const std::string& path) : m_store(openStore(path, withoutBallast()))
    {
        std::vector<Row> ignored; // so that the log is copied into the database and used again
        m_store->database().run("PRAGMA wal_autocheckpoint = 20", {}, &ignored);
        judgeAll(*m_store);
        m_states.emplace_back(0, State());
    }

    ArchiveStore& store() { return *m_store; }

    void begin(const std::string& uid, std::int64_t start = kStart)
    {
        Weld weld = weldBeforeTheCut(uid);
        weld[Column::StartNs] = start;
        m_handles[uid] = m_store->begin(weld);
        m_state[uid] = {};
    }
    void addSamples(const std::string& uid, int count)
    {
        for (int i = 0; i < count; ++i) {
            m_store->add(m_handles[uid], makeSample(m_state[uid].samples++), 0);
        }
    }
    void addEvent(const std::string& uid)
    {
        m_store->add({m_handles[uid], kStart, "bench", "Errors", std::to_string(m_state[uid].events++)});
    }
    void end(const std::string& uid)
    {
        m_store->end(m_handles[uid], "complete");
        m_state[uid].isComplete = true;
    }
    void commit()
    {
        const Status status = m_store->commit();
        ASSERT_TRUE(status) << status.text;
        confirm();
    }
    void deleteSamplesBefore(std::int64_t time)
    {
        ArchiveStore::Retained retained;
        ArchiveStore::Retention retention;
        retention.samplesAge = 1;
        ASSERT_TRUE(m_store->retain(retention, time, retained));
    }
    void forgetSamples(const std::string& uid)
    {
        m_state[uid].samples = 0;
        confirm();
    }
    void deleteWeld(const std::string& uid)
    {
        ASSERT_TRUE(m_store->deleteWelds({m_store->takeClosed().back()}));
        m_state.erase(uid);
        confirm();
    }

    /// \return the last state that was confirmed after some operations, and the next one, which may be there too
    std::pair<State, State> statesAt(std::size_t operations) const
    {
        std::size_t i = 0;
        while (i + 1 < m_states.size() && m_states[i + 1].first <= operations) {
            ++i;
        }
        return {m_states[i].second, m_states[std::min(i + 1, m_states.size() - 1)].second};
    }

private:
    void confirm() { m_states.emplace_back(recordedDisk.operations().size(), m_state); }

    std::unique_ptr<ArchiveStore> m_store;
    std::map<std::string, std::int64_t> m_handles;
    State m_state;
    std::vector<std::pair<std::size_t, State>> m_states;
};

/// Keeps welds, two at a time, and deletes some.
inline void keepWelds(Work& work)
{
    constexpr std::int64_t kMonth = 31LL * 86'400 * TelvaneTool::kSecond;
    work.begin("august", kStart - kMonth);
    work.addSamples("august", 50);
    work.end("august");
    work.commit();
    for (const char* const uid : {"one", "two", "three"}) {
        const std::string other = uid + std::string(" too");
        work.begin(uid);
        for (int second = 0; second < 3; ++second) {
            work.addSamples(uid, 60);
            if (second == 1) {
                work.begin(other);
                work.addEvent(uid);
            }
            if (second > 0) {
                work.addSamples(other, 40);
            }
            work.commit();
        }
        work.end(uid);
        work.end(other);
        work.commit();
    }
    work.deleteSamplesBefore(kStart - 1);
    work.forgetSamples("august");
    work.deleteWeld("three too");
    work.begin("last");
    work.addSamples("last", 60);
    work.commit();
    work.addSamples("last", 60);
    work.commit();
}

} // namespace TelvaneArchive::Testing
