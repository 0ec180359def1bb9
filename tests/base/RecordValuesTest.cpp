// Members of types that only applications' own records have. They are written and read by a tree of their own, so
// each way of a record (tree, printed publication, scanned relay) is compared with the others.

#include "bus/PublicationWriter.h"
#include "helpers/RecordTestSupport.h"
#include "helpers/RelayWithoutTree.h"
#include "helpers/ValueRecords.h"

#include <Telvane/Bus.h>
#include <Telvane/EventServer.h>

#include "helpers/BusClientTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace Application
{
TELVANE_DEFINE_RECORD(Defect)
TELVANE_DEFINE_RECORD(Gauge)
TELVANE_DEFINE_RECORD(Inspection)
} // namespace Application

namespace Telvane
{
namespace
{

using Application::Defect;
using Application::Gauge;
using Application::Grade;
using Application::Inspection;

Inspection filledInspection()
{
    Inspection record;
    record.length = 2.5;
    record.note = "re\"worked\n";
    record.currents = {1.0, -2.25, 1e300};
    record.passed = {true, false};
    record.names = {"", "seam"};
    record.counts = {{"", -1}, {"pores", 3}};
    record.worst["left"].depth = 0.3F;
    record.grid = {{}, {1, 2}};
    record.defects["a"].resize(2);
    record.defects["b"];
    record.repaired.emplace().time = {12, 345000000};
    record.last = 7;
    record.generate_id();
    return record;
}

constexpr char kFilled[] =
    R"({"length":2.5,"note":"re\"worked\n","currents":[1,-2.25,1e+300],"passed":[true,false],)"
    R"("names":["","seam"],"counts":{"":-1,"pores":3},"worst":{"left":{"depth":0.3}},"grid":[[],[1,2]],)"
    R"("defects":{"a":[{"depth":0.1},{"depth":0.1}],"b":[]},"repaired":"/Date(12345)/","last":7)";

std::string published(TelvaneDataTypeBase& record)
{
    PublicationWriter writer;
    const char* text = nullptr;
    return writer.write("Channel", record, text) == 0 ? text : "";
}

/// \return the relay that a server makes of a publication
std::string relayOf(std::string publication)
{
    const std::string before = "\"payload\":";
    return publication.insert(publication.find(before), "\"sequence\":\t1,\n\t");
}

TEST(WritingValues, GivesEachTypeItsFormInJson)
{
    Gauge gauge;
    EXPECT_EQ(compactJson(gauge), R"({"factor":1.5,"cycles":4000000000,"offset":-4503599627370496,"total":0,)"
                                  R"("step":-128,"grade":200})");
    Inspection filled = filledInspection();
    EXPECT_EQ(compactJson(filled), kFilled + (R"(,"_id":")" + filled._id + "\"}"));
}

TEST(WritingValues, LeavesOutOptionalsThatAreEmpty)
{
    EXPECT_EQ(
        defaultJson<Inspection>(),
        R"({"currents":[],"passed":[],"names":[],"counts":{},"worst":{},"grid":[],"defects":{},"last":1})");
}

TEST(WritingValues, PrintsThePublicationOfTheTree)
{
    Gauge gauge;
    Inspection empty;
    Inspection filled = filledInspection();
    for (TelvaneDataTypeBase* const record :
         {static_cast<TelvaneDataTypeBase*>(&gauge), static_cast<TelvaneDataTypeBase*>(&empty),
          static_cast<TelvaneDataTypeBase*>(&filled)}) {
        EXPECT_EQ(published(*record), Testing::publicationByTree("Channel", *record));
    }
}

TEST(WritingValues, RefusesIntegersThatJsonDoesNotCarryExactly)
{
    Gauge gauge;
    gauge.total = static_cast<std::uint64_t>(kLargestInteger) + 1;
    cJSON* packaged = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(gauge.Package(&packaged), -1);
    EXPECT_EQ(published(gauge), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "FAIL! _toJson Value total\nFAIL! _toJson Value total\n");
    cJSON_Delete(packaged);
    gauge.total = static_cast<std::uint64_t>(kLargestInteger);
    gauge.offset = std::numeric_limits<std::int64_t>::min();
    testing::internal::CaptureStderr();
    EXPECT_EQ(published(gauge), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "FAIL! _toJson Value offset\n");
}

TEST(WritingValues, KeepsEachIntegerUpToTheLargestOne)
{
    Gauge gauge;
    for (std::int64_t i = 0; i < 2000; ++i) {
        gauge.total = static_cast<std::uint64_t>(kLargestInteger - i);
        gauge.offset = i - kLargestInteger;
        Gauge read;
        ASSERT_TRUE(read.FromJson(gauge.GetString()));
        ASSERT_EQ(read.total, gauge.total);
        ASSERT_EQ(read.offset, gauge.offset);
    }
}

TEST(WritingValues, KeepsEachFloatInFewDigits)
{
    Defect written;
    for (const float value :
         {0.1F, 0.3F, -0.0F, 16777216.0F, 3.4028235e38F, 1.17549435e-38F, 1e-45F, 1.0F / 3, 123456.789F}) {
        written.depth = value;
        Defect read;
        ASSERT_TRUE(read.FromJson(written.GetString()));
        EXPECT_EQ(read.depth, value);
        EXPECT_LE(compactJson(written).size(), std::string(R"({"depth":-1.23456789e+38})").size());
    }
}

TEST(ReadingValues, ReadsBackWhatWasWritten)
{
    Inspection filled = filledInspection();
    Inspection read;
    read.counts["old"] = 1;
    read.currents.assign(5, 1.0);
    ASSERT_TRUE(read.FromJson(filled.GetString()));
    EXPECT_EQ(compactJson(read), compactJson(filled));
    Inspection empty;
    ASSERT_TRUE(filled.FromJson(empty.GetString()));
    EXPECT_FALSE(filled.length.has_value());
    EXPECT_TRUE(filled.counts.empty());
}

TEST(ReadingValues, TakesNullForAnOptional)
{
    Inspection filled = filledInspection();
    const std::string text = filled.GetString();
    std::string changed = text;
    changed.replace(changed.find("2.5"), 3, "null");
    ASSERT_TRUE(filled.FromJson(changed));
    EXPECT_FALSE(filled.length.has_value());
    EXPECT_TRUE(filled.note.has_value());
}

TEST(ReadingValues, ReadsRelaysOfNumbersWithoutATree)
{
    Gauge gauge;
    gauge.factor = 0.7F;
    const std::string relay = relayOf(published(gauge));
    const auto straight = Testing::relayStraight(relay, Gauge());
    ASSERT_TRUE(straight.has_value());
    const Testing::ReadRelay byTree = Testing::relayByTree(relay, Gauge());
    EXPECT_EQ(compactJson(*straight->record), compactJson(gauge));
    EXPECT_EQ(compactJson(*byTree.record), compactJson(gauge));
}

struct WrongValue
{
    const char* key;
    const char* value;
};

class ReadingWrongNumbers : public testing::TestWithParam<WrongValue>
{};

TEST_P(ReadingWrongNumbers, FailsAndKeepsTheMember)
{
    Gauge gauge;
    Gauge before;
    std::string text = compactJson(gauge);
    const std::size_t begin = text.find(GetParam().key) + std::string(GetParam().key).size() + 2;
    text.replace(begin, text.find_first_of(",}", begin) - begin, GetParam().value);
    const ReadOutcome outcome = read(gauge, text);
    EXPECT_FALSE(outcome.success) << text;
    EXPECT_EQ(outcome.errors, std::string("FAIL! _value_fromJson ") + GetParam().key + "\n");
    EXPECT_EQ(compactJson(gauge), compactJson(before));
}

INSTANTIATE_TEST_SUITE_P(Each, ReadingWrongNumbers,
                         testing::Values(WrongValue{"factor", "1e39"}, WrongValue{"factor", "\"1\""},
                                         WrongValue{"cycles", "-1"}, WrongValue{"cycles", "4294967296"},
                                         WrongValue{"cycles", "0.5"}, WrongValue{"offset", "1e16"},
                                         WrongValue{"total", "4503599627370497"}, WrongValue{"total", "null"},
                                         WrongValue{"step", "128"}, WrongValue{"grade", "256"},
                                         WrongValue{"grade", "true"}));

TEST(ReadingValues, FailsOnElementsOfAnotherType)
{
    for (const char* const change :
         {R"("currents":[1,"2"])", R"("passed":[1])", R"("names":[1])", R"("counts":{"a":1.5})",
          R"("counts":[])", R"("currents":{})", R"("defects":{"a":[3]})", R"("grid":[1])", R"("note":5)"}) {
        Inspection record;
        // The first of several members with one key is read.
        const std::string text = "{" + std::string(change) + "," + compactJson(record).substr(1);
        const ReadOutcome outcome = read(record, text);
        EXPECT_FALSE(outcome.success) << text;
        EXPECT_NE(outcome.errors.find("FAIL! _value_fromJson "), std::string::npos) << outcome.errors;
        EXPECT_EQ(compactJson(record), defaultJson<Inspection>());
    }
}

TEST(CopyingValues, CopiesEachMember)
{
    Inspection filled = filledInspection();
    Inspection copy;
    ASSERT_EQ(copy.copy(&filled), 0);
    EXPECT_EQ(compactJson(copy), compactJson(filled));
}

class ValuesOnABus : public Testing::ServedBus
{};

TEST_F(ValuesOnABus, ArriveAsTheyWereSent)
{
    connect();
    auto inspections = bus->queue<Inspection>();
    auto gauges = bus->queue<Gauge>();
    ASSERT_EQ(inspections.waitActive(Testing::kTimeout), std::error_code());
    ASSERT_EQ(gauges.waitActive(Testing::kTimeout), std::error_code());
    const Inspection sent = filledInspection();
    ASSERT_EQ(bus->publish(sent).error, std::error_code());
    ASSERT_EQ(bus->publish(Gauge()).error, std::error_code());
    const auto inspection = inspections.next(Testing::kTimeout);
    ASSERT_TRUE(inspection);
    Inspection received = *inspection;
    EXPECT_EQ(compactJson(received), kFilled + (R"(,"_id":")" + sent._id + "\"}"));
    const auto gauge = gauges.next(Testing::kTimeout);
    ASSERT_TRUE(gauge);
    EXPECT_EQ(gauge->offset, -kLargestInteger);
    EXPECT_EQ(gauge->grade, Grade::Good);
}

TEST_F(ValuesOnABus, AreRefusedWhenTheyCannotBeWritten)
{
    connect();
    Gauge gauge;
    gauge.total = std::numeric_limits<std::uint64_t>::max();
    testing::internal::CaptureStderr();
    EXPECT_EQ(bus->publish(gauge).error, BusError::NotWritable);
    testing::internal::GetCapturedStderr();
}

} // namespace
} // namespace Telvane
