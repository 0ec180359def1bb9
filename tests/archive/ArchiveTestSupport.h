#pragma once

// Welds that tests keep in archives.

#include "archive/reader/ArchiveReader.h"
#include "archive/reader/WeldText.h"
#include "archive/store/ArchiveStore.h"
#include "helpers/ProcessTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

namespace TelvaneArchive::Testing
{

constexpr std::int64_t kStart = 1'790'000'000'000'000'000; ///< in September 2026

/// \return a weld that begins at kStart
inline Weld makeWeld(const std::string& uid, std::int64_t periodUs = 500)
{
    Weld weld;
    weld[Column::Uid] = uid;
    weld[Column::Module] = std::string("bench");
    weld[Column::Boot] = bootId();
    weld[Column::StartNs] = kStart;
    weld[Column::SamplePeriodUs] = periodUs;
    return weld;
}

/// \return a sample whose values depend on its number only
inline Sample makeSample(std::int32_t number, std::int64_t periodUs = 500)
{
    Sample sample;
    sample.number = number;
    sample.serial = number + 2;
    sample.time = kStart + number * periodUs * 1000;
    sample[Channel::Amps] = 180.0 + number % 7;
    sample[Channel::Volts] = 18.5 + number % 5 * 0.1;
    sample[Channel::Power] = sample[Channel::Amps] * sample[Channel::Volts];
    return sample;
}

/// \return samples as a careless publisher sends them, for a weld without a known period: up to 64 share a stamp, stamps
///         go back now and then, and the first ones are before the start of the weld
inline std::vector<Sample> makeUnevenSamples(std::int32_t count)
{
    std::vector<Sample> samples;
    for (std::int32_t number = 0; number < count; ++number) {
        Sample sample = makeSample(number);
        const std::int32_t block = number / 64;
        sample.time = kStart + (block % 7 == 3 ? block - 20 : block) * std::int64_t{10'000'000};
        samples.push_back(sample);
    }
    return samples;
}

/// Keeps a weld with samples that have stamps of their own.
inline void keepSamples(ArchiveStore& store, const std::vector<Sample>& samples)
{
    const std::int64_t handle = store.begin(makeWeld("uneven", 0));
    for (const Sample& sample : samples) {
        store.add(handle, sample, 0);
    }
    store.end(handle, "complete");
    const Status status = store.commit();
    EXPECT_TRUE(status) << status.text;
}

/// \return the first line in which an exported file differs from what was published; empty if there is none
inline std::string differenceOfExport(const std::string& path, const std::vector<Sample>& published)
{
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line) || line + "\n" != sampleCsvHeading()) {
        return "no heading";
    }
    for (Sample sample : published) {
        sample.time -= kStart;
        line.clear();
        std::getline(file, line);
        if (line + "\n" != sampleCsvLine(sample)) {
            return "\"" + line + "\" instead of " + sampleCsvLine(sample);
        }
    }
    return std::getline(file, line) ? "more: " + line : "";
}

inline std::unique_ptr<ArchiveStore> openStore(const std::string& path,
                                               const ArchiveStore::Settings& settings = {})
{
    Status status;
    auto store = ArchiveStore::open(path, settings, status);
    EXPECT_TRUE(store) << status.text;
    return store;
}

inline std::unique_ptr<ArchiveReader> openReader(const std::string& path)
{
    Status status;
    auto reader = ArchiveReader::open(path, status);
    EXPECT_TRUE(reader) << status.text;
    return reader;
}

/// Keeps a weld from its start to its end.
inline void keepWeld(ArchiveStore& store, const Weld& weld, std::int32_t samples)
{
    const std::int64_t handle = store.begin(weld);
    for (std::int32_t i = 0; i < samples; ++i) {
        store.add(handle, makeSample(i, weld.whole(Column::SamplePeriodUs)), 0);
    }
    store.end(handle, "complete");
    const Status status = store.commit();
    EXPECT_TRUE(status) << status.text;
}

inline std::vector<Weld> listWelds(ArchiveReader& reader, const WeldFilter& filter = {})
{
    ArchiveReader::Query query;
    query.filter = filter;
    query.ascending = true;
    std::vector<Weld> welds;
    const Status status = reader.list(query, welds);
    EXPECT_TRUE(status) << status.text;
    return welds;
}

inline std::vector<Sample> samplesOf(ArchiveReader& reader, std::int64_t id, std::uint64_t* damaged = nullptr)
{
    std::vector<Sample> samples;
    ArchiveReader::SamplePosition position;
    const Status status = reader.samples(id, {}, 10'000'000, position, samples, damaged);
    EXPECT_TRUE(status) << status.text;
    return samples;
}

/// \return the first difference between samples and those of makeSample(); empty if there is none
inline std::string differenceOf(const std::vector<Sample>& samples)
{
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const Sample expected = makeSample(static_cast<std::int32_t>(i));
        if (samples[i].number != expected.number || samples[i].serial != expected.serial ||
            samples[i].values != expected.values) {
            return "sample " + std::to_string(i) + " has the number " + std::to_string(samples[i].number);
        }
    }
    return {};
}

} // namespace TelvaneArchive::Testing
