#pragma once

// What the tests of the record classes share: a record as one line of JSON, arrays of many items, the tree
// that a failed read leaves alone, and memory that runs out while a record is written.

#include <Telvane/RecordCatalogue.h>
#include <Telvane/TelvaneDataTypeBase.h>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Telvane
{

/// \return the names of all record classes
inline std::vector<std::string> classNames()
{
    std::vector<std::string> names;
    for (const RecordClass& entry : RecordCatalogue::classes()) {
        names.emplace_back(entry.name);
    }
    return names;
}

/// \return the record's JSON on one line, without blanks
inline std::string compactJson(TelvaneDataTypeBase& record)
{
    cJSON* packaged = nullptr;
    EXPECT_EQ(record.Package(&packaged), 0);
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object(packaged, &cJSON_Delete);
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(object.get()),
                                                            &cJSON_free);
    return text != nullptr ? text.get() : "";
}

template <class Record>
std::string defaultJson()
{
    Record record;
    return compactJson(record);
}

/// \return a JSON array of \p count times \p item
inline std::string jsonArray(std::size_t count, const std::string& item)
{
    std::string text = "[";
    for (std::size_t i = 0; i < count; ++i) {
        text += (i == 0 ? "" : ",") + item;
    }
    return text + "]";
}

/// The outcome of one read.
struct ReadOutcome
{
    bool success;
    std::string errors; ///< what was written to standard error
    std::string output; ///< what was written to standard output
};

inline ReadOutcome read(TelvaneDataTypeBase& record, const std::string& json)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    const bool success = record.FromJson(json);
    return {success, testing::internal::GetCapturedStderr(), testing::internal::GetCapturedStdout()};
}

/// Lets the JSON library's allocations fail from a given one on.
class FailingJsonMemory
{
public:
    explicit FailingJsonMemory(int allocationsThatSucceed)
    {
        s_left = allocationsThatSucceed;
        cJSON_Hooks hooks = {&allocate, &std::free};
        cJSON_InitHooks(&hooks);
    }
    ~FailingJsonMemory() { cJSON_InitHooks(nullptr); }
    FailingJsonMemory(const FailingJsonMemory&) = delete;
    FailingJsonMemory& operator=(const FailingJsonMemory&) = delete;

private:
    static void* allocate(std::size_t size) { return s_left-- > 0 ? std::malloc(size) : nullptr; }
    static inline int s_left = 0;
};

/// Writes the record again and again, with ever more memory, until it succeeds.
/// \return the distinct texts that the failed attempts wrote to standard error
inline std::set<std::string> writeFailures(TelvaneDataTypeBase& record)
{
    std::set<std::string> failures;
    for (int memory = 0;; ++memory) {
        const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object(cJSON_CreateObject(), &cJSON_Delete);
        testing::internal::CaptureStderr();
        bool complete = false;
        {
            const FailingJsonMemory failing(memory);
            complete = record._packageData(object.get());
        }
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_EQ(errors.empty(), complete) << errors;
        if (complete) {
            return failures;
        }
        failures.insert(errors);
    }
}

} // namespace Telvane
