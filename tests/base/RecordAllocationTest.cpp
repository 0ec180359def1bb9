// Records while memory runs out: every allocation of every operation fails once, alone and for good, in every
// class of the catalogue. The result says so, nothing is thrown, nothing leaks, and with memory back the next
// call does all that it should.

#include "helpers/AllocationFaults.h"

#include "bus/PublicationWriter.h"
#include "helpers/ProcessTestSupport.h"
#include "helpers/TestPaths.h"
#include "helpers/ValueRecords.h"
#include "support/JsonTree.h"

#include <Telvane/Telvane.h>

#include <cerrno>
#include <fstream>
#include <iterator>

namespace Application
{
TELVANE_DEFINE_RECORD(Defect)
TELVANE_DEFINE_RECORD(Inspection)
} // namespace Application

namespace Telvane
{
namespace
{

using namespace Testing;

/// The record of a class with every field set, and its JSON.
class FilledRecord
{
public:
    explicit FilledRecord(const std::string& name) : m_name(name), m_record(RecordCatalogue::build(name))
    {
        std::ifstream file(sourceDirectory() + "/tests/golden/records/" + name + ".filled.json");
        const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        m_json.reset(cJSON_Parse(text.c_str()));
        if (m_record->Unpackage(m_json.get()) != 0) {
            throw std::runtime_error("no golden file of " + name);
        }
    }

    TelvaneDataTypeBase& operator*() const { return *m_record; }
    TelvaneDataTypeBase* operator->() const { return m_record.get(); }
    TelvaneDataTypeBase* get() const { return m_record.get(); }
    cJSON* json() const { return m_json.get(); }
    const std::string& name() const { return m_name; }
    /// \return whether its JSON is no object, so that it is no text of its own
    bool hasFormOfItsOwn() const { return cJSON_IsObject(json()) == 0; }

    /// Shows that the record is still what it was.
    void expectUnchanged() const { EXPECT_TRUE(isPackagedAs(*m_record, m_json.get())); }

    static bool isPackagedAs(TelvaneDataTypeBase& record, const cJSON* json)
    {
        cJSON* packaged = nullptr;
        const int result = record.Package(&packaged);
        const JsonTree owned(packaged);
        return result == 0 && cJSON_Compare(packaged, json, 1) != 0;
    }

private:
    std::string m_name;
    std::unique_ptr<TelvaneDataTypeBase> m_record;
    JsonTree m_json;
};

/// All classes, both kinds of shortage. The lines that failures write are not looked at here.
class RecordMemory : public UnderShortage
{
protected:
    template <class Operation>
    void forEachClass(Operation operation)
    {
        const StreamCapture errors(STDERR_FILENO);
        const StreamCapture output(STDOUT_FILENO);
        for (const RecordClass& entry : RecordCatalogue::classes()) {
            SCOPED_TRACE(entry.name);
            entry.table(); // made on first use, kept for good
            const FilledRecord record(entry.name);
            const std::ptrdiff_t before = liveBlocks();
            const int allocations = failEachAllocation(
                Caller::Application, GetParam(), [&](AllocationFault& fault) { operation(record, fault); });
            EXPECT_EQ(liveBlocks(), before);
            m_allocations += allocations;
        }
        EXPECT_GT(m_allocations, 0);
    }

private:
    int m_allocations = 0;
};

TEST_P(RecordMemory, RunsOutWhilePackaging)
{
    forEachClass([](const FilledRecord& record, AllocationFault& fault) {
        cJSON* packaged = nullptr;
        const int result = fault.during([&] { return record->Package(&packaged); });
        const JsonTree owned(packaged);
        if (packaged == nullptr) {
            EXPECT_EQ(result, -ENOMEM);
        } else if (fault.triggered()) {
            EXPECT_TRUE(result == 0 || result == -1) << result; // a scalar is left out, an array fails
        } else {
            EXPECT_EQ(result, 0);
        }
        record.expectUnchanged();
    });
}

TEST_P(RecordMemory, IsNeverMissingForOnlyAPartOfAnArray)
{
    forEachClass([](const FilledRecord& record, AllocationFault& fault) {
        cJSON* packaged = nullptr;
        const int result = fault.during([&] { return record->Package(&packaged); });
        const JsonTree owned(packaged);
        for (const RecordField& field : RecordCatalogue::find(record.name())->table().fields()) {
            const cJSON* const array = cJSON_GetObjectItem(packaged, field.key);
            if (result == 0 && array != nullptr && field.limit != 0 &&
                field.kind != FieldKind::RecordVector) {
                EXPECT_EQ(cJSON_GetArraySize(array), static_cast<int>(field.limit)) << field.key;
            }
        }
    });
}

TEST_P(RecordMemory, RunsOutWhileUnpackagingANewRecord)
{
    forEachClass([](const FilledRecord& record, AllocationFault& fault) {
        TelvaneDataTypeBase* unpackaged = nullptr;
        const int result = fault.during([&] { return record->Unpackage(record.json(), &unpackaged); });
        EXPECT_EQ(result, fault.triggered() ? -ENOMEM : 0);
        if (result == 0) {
            const std::unique_ptr<TelvaneDataTypeBase> owned(unpackaged);
            EXPECT_TRUE(FilledRecord::isPackagedAs(*owned, record.json()));
        }
    });
}

TEST_P(RecordMemory, RunsOutWhileUnpackagingIntoARecord)
{
    forEachClass([](const FilledRecord& record, AllocationFault& fault) {
        const std::unique_ptr<TelvaneDataTypeBase> target(record->BuildNewDataType());
        const int result = fault.during([&] { return target->Unpackage(record.json()); });
        EXPECT_EQ(result, fault.triggered() ? -ENOMEM : 0);
        EXPECT_EQ(target->Unpackage(record.json()), 0);
        EXPECT_TRUE(FilledRecord::isPackagedAs(*target, record.json()));
    });
}

TEST_P(RecordMemory, RunsOutWhilePrinting)
{
    forEachClass([](const FilledRecord& record, AllocationFault& fault) {
        std::string text = "untouched, and long enough to be allocated";
        const bool printed = fault.during([&] { return record->ToJson(text); });
        EXPECT_TRUE(printed || fault.triggered());
        if (!printed) {
            EXPECT_EQ(text, "untouched, and long enough to be allocated");
        }
        const std::string again = record->GetString();
        EXPECT_TRUE(fault.triggered() || text == again);
    });
}

TEST_P(RecordMemory, RunsOutWhileReadingText)
{
    forEachClass([](const FilledRecord& record, AllocationFault& fault) {
        const std::unique_ptr<TelvaneDataTypeBase> target(record->BuildNewDataType());
        const std::string text = record->GetString();
        const bool read = fault.during([&] { return target->FromJson(text); });
        EXPECT_EQ(read, !fault.triggered());
        EXPECT_TRUE(target->FromJson(text) || record.hasFormOfItsOwn());
    });
}

TEST_P(RecordMemory, RunsOutWhileWritingPublications)
{
    forEachClass([](const FilledRecord& record, AllocationFault& fault) {
        const std::string channel = "a_channel_with_a_long_name";
        const std::unique_ptr<TelvaneDataTypeBase> other(record->BuildNewDataType());
        PublicationWriter expected;
        const char* expectedText = nullptr;
        ASSERT_EQ(expected.write(channel, *record, expectedText), 0);

        // The second uses the tree of the first again, and the third that of one that may have failed.
        PublicationWriter writer;
        const char* text = nullptr;
        const int result = fault.during([&] {
            const int first = writer.write(channel, *other, text);
            const int second = writer.write(channel, *record, text);
            return first != 0 ? first : second;
        });
        EXPECT_TRUE(result == 0 || (fault.triggered() && (result == -ENOMEM || result == -1))) << result;
        ASSERT_EQ(writer.write(channel, *record, text), 0);
        EXPECT_STREQ(text, expectedText);
    });
}

INSTANTIATE_TEST_SUITE_P(Memory, RecordMemory, ::testing::Values(Shortage::Once, Shortage::Persistent),
                         nameOfShortage);

TEST_P(UnderShortage, ARecordWithoutMemoryForItsIdentifierStaysWithoutOne)
{
    const int allocations = failEachAllocation(Caller::Application, GetParam(), [](AllocationFault& fault) {
        RequestType record;
        fault.during([&] { record.generate_id(); });
        EXPECT_EQ(record._id.empty(), fault.triggered());
        record.generate_id();
        EXPECT_EQ(record._id.size(), 36U);
    });
    EXPECT_EQ(allocations, 1);
}

/// A record that no other test uses.
class FreshRecord : public TelvaneDataTypeBase
{
public:
    int first = 1;
    std::string second;
    DateTime third;
    std::vector<RequestType> fourth;

    TELVANE_RECORD(FreshRecord, first, second, third, fourth)
};

TELVANE_DEFINE_RECORD(FreshRecord)

TEST_P(UnderShortage, TheListOfAClassIsMadeOnTheFirstUseThatHasTheMemory)
{
    DateTime::recordTable();
    RequestType::recordTable();
    failEachAllocation(Caller::Application, GetParam(), [](AllocationFault& fault) {
        cJSON* packaged = nullptr;
        FreshRecord record;
        const std::ptrdiff_t before = liveBlocks();
        const int result = fault.during([&] { return record.Package(&packaged); });
        const std::ptrdiff_t after = liveBlocks();
        EXPECT_EQ(packaged == nullptr, result == -ENOMEM);
        EXPECT_TRUE(result != -ENOMEM || after == before);
        cJSON_Delete(packaged);
    });
    EXPECT_EQ(FreshRecord::recordTable().fields().size(), 4U);
}

TEST_P(UnderShortage, ValuesOfAnyTypeAreWrittenAndReadWholeOrNotAtAll)
{
    const std::string longText = "a text that needs memory of its own";
    Application::Inspection record;
    record.length = 1.5;
    record.note = longText;
    record.currents = {1.0, 2.0};
    record.passed = {true};
    record.names = {longText};
    record.counts = {{longText, 1}};
    record.worst[longText].depth = 2.0F;
    record.grid = {{1}};
    record.defects[longText].resize(2);
    cJSON* whole = nullptr;
    ASSERT_EQ(record.Package(&whole), 0);
    const JsonTree expected(whole);
    const StreamCapture errors(STDERR_FILENO);
    const auto writeWithoutMemory = [&](AllocationFault& fault) {
        cJSON* packaged = nullptr;
        const int result = fault.during([&] { return record.Package(&packaged); });
        const JsonTree owned(packaged);
        // As in any record, an int is left out if memory runs out for it.
        cJSON_DeleteItemFromObject(packaged, "last");
        cJSON_AddNumberToObject(packaged, "last", record.last);
        EXPECT_TRUE(result != 0 || cJSON_Compare(packaged, expected.get(), 1) != 0);
        EXPECT_TRUE(result == 0 || fault.triggered());
    };
    const auto readWithoutMemory = [&](AllocationFault& fault) {
        Application::Inspection read;
        const int result = fault.during([&] { return read.Unpackage(expected.get()); });
        EXPECT_EQ(result, fault.triggered() ? -ENOMEM : 0);
        EXPECT_EQ(read.Unpackage(expected.get()), 0);
        EXPECT_TRUE(FilledRecord::isPackagedAs(read, expected.get()));
    };
    std::ptrdiff_t before = 0;
    for (int round = 0; round < 2; ++round) {
        before = liveBlocks(); // in the first round, lists are made that stay
        failEachAllocation(Caller::Application, GetParam(), writeWithoutMemory);
        failEachAllocation(Caller::Application, GetParam(), readWithoutMemory);
    }
    EXPECT_EQ(liveBlocks(), before);
}

INSTANTIATE_TEST_SUITE_P(Memory, UnderShortage, ::testing::Values(Shortage::Once, Shortage::Persistent),
                         nameOfShortage);

} // namespace
} // namespace Telvane
