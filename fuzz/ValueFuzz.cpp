// Records of an application, with members of each type that the library's own records do not have. The first byte
// picks the class and what the rest is: a payload as JSON text, or the values of the members.
//
// A payload is read without a tree only if it can be read with one, and to the same record; numbers are read when a
// second reader finds them in range, and only then. A record can be published when all its integers are small enough,
// and only then; its publication is what the JSON library prints; and what arrives is the record that was sent.

#include "FuzzRelay.h"
#include "FuzzSupport.h"
#include "FuzzValues.h"
#include "bus/PublicationWriter.h"
#include "helpers/RelayWithoutTree.h"
#include "helpers/ValueRecords.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Application
{

TELVANE_DEFINE_RECORD(Defect)
TELVANE_DEFINE_RECORD(Gauge)
TELVANE_DEFINE_RECORD(Inspection)

inline bool isSame(float left, float right)
{
    return std::memcmp(&left, &right, sizeof left) == 0; // zeros of both signs are different
}

/// The JSON library prints 15 digits if these are within its tolerance.
inline bool isSame(double left, double right)
{
    return std::fabs(left - right) <= std::max(std::fabs(left), std::fabs(right)) * 0x1p-52;
}

inline bool operator==(const Defect& left, const Defect& right)
{
    return isSame(left.depth, right.depth);
}

inline bool operator==(const Gauge& left, const Gauge& right)
{
    const auto integers = [](const Gauge& of) {
        return std::tie(of.cycles, of.offset, of.total, of.step, of.grade, of._id);
    };
    return isSame(left.factor, right.factor) && integers(left) == integers(right);
}

inline bool operator==(const Inspection& left, const Inspection& right)
{
    const auto members = [](const Inspection& of) {
        return std::tie(of.note, of.passed, of.names, of.counts, of.worst, of.grid, of.defects, of.last,
                        of._id);
    };
    const auto timeOf = [](const Inspection& of) {
        const timespec time = of.repaired ? of.repaired->time : timespec{-1, -1};
        return std::make_pair(time.tv_sec, time.tv_nsec);
    };
    const auto areSame = [](double first, double second) {
        return isSame(first, second);
    };
    return members(left) == members(right) && timeOf(left) == timeOf(right) &&
           left.length.has_value() == right.length.has_value() &&
           isSame(left.length.value_or(0.0), right.length.value_or(0.0)) &&
           std::equal(left.currents.begin(), left.currents.end(), right.currents.begin(),
                      right.currents.end(), areSame);
}

} // namespace Application

namespace Telvane
{
namespace
{

using Application::Defect;
using Application::Gauge;
using Application::Inspection;

/// \return whether a second reader finds a number of the type there
bool isReadable(const cJSON* payload, const char* key, double min, double max)
{
    const cJSON* const item = cJSON_GetObjectItem(payload, key);
    return cJSON_IsNumber(item) != 0 && item->valuedouble >= min && item->valuedouble <= max &&
           std::floor(item->valuedouble) == item->valuedouble;
}

/// \return whether the payload can be read as a Gauge
bool isReadable(const cJSON* payload)
{
    constexpr double kMaxWhole = 4503599627370496.0; // 2^52
    constexpr double kMaxFloat = 3.4028235e38; // a little more than the largest float, which is printed so
    const cJSON* const factor = cJSON_GetObjectItem(payload, "factor");
    return cJSON_IsNumber(factor) != 0 && std::fabs(factor->valuedouble) <= kMaxFloat &&
           isReadable(payload, "cycles", 0, 4294967295.0) &&
           isReadable(payload, "offset", -kMaxWhole, kMaxWhole) &&
           isReadable(payload, "total", 0, kMaxWhole) && isReadable(payload, "step", -128, 127) &&
           isReadable(payload, "grade", 0, 255);
}

bool isWritable(const Gauge& record)
{
    return record.offset >= -kLargestInteger && record.offset <= kLargestInteger &&
           record.total <= std::uint64_t{kLargestInteger};
}

bool isWritable(const Inspection& /*record*/)
{
    return true;
}

/// \return whether the record has only numbers that JSON has
bool isFinite(const Gauge& record)
{
    return std::isfinite(record.factor);
}

bool isFinite(const Inspection& record)
{
    const auto isDefectFinite = [](const Defect& defect) {
        return std::isfinite(defect.depth);
    };
    const auto areFinite = [&](const std::vector<Defect>& defects) {
        return std::all_of(defects.begin(), defects.end(), isDefectFinite);
    };
    // A little less than the largest double: 15 digits of that are infinite.
    const auto isNumber = [](double value) {
        return std::fabs(value) <= 1.79769313486231e308;
    };
    return isNumber(record.length.value_or(0.0)) &&
           std::all_of(record.currents.begin(), record.currents.end(), isNumber) &&
           std::all_of(record.worst.begin(), record.worst.end(),
                       [&](const auto& member) { return isDefectFinite(member.second); }) &&
           std::all_of(record.defects.begin(), record.defects.end(),
                       [&](const auto& member) { return areFinite(member.second); });
}

/// Reads a relay in both ways. \return the record, if it can be read
template <class Record>
std::optional<Record> checkReading(const std::string& relay)
{
    const Testing::ReadRelay byTree = Testing::relayByTree(relay, Record());
    const auto straight = Testing::relayStraight(relay, Record());
    if (byTree.record == nullptr) {
        require(!straight, "what is read without a tree can be read with one");
        return std::nullopt;
    }
    const auto& record = static_cast<const Record&>(*byTree.record);
    require(!straight || static_cast<const Record&>(*straight->record) == record,
            "a record has the same values either way");
    return record;
}

template <class Record>
void checkWriting(Record& record)
{
    static PublicationWriter writer;
    const char* text = nullptr;
    const bool isWritten = writer.write("channel", record, text) == 0;
    const std::optional<std::string> byTree = Testing::publicationByTree("channel", record);
    require(isWritten == isWritable(record), "a record is published if its integers are small enough");
    require(isWritten == byTree.has_value(), "a record can be written either way, or neither");
    if (!isWritten || writer.length() >= kMessageLimit) {
        return;
    }
    const std::string publication(text, static_cast<std::size_t>(writer.length()));
    requireSame(publication, *byTree, "a publication is written as the JSON library prints it");
    if (!isFinite(record)) {
        return; // JSON has neither infinity nor what is not a number
    }
    const JsonTree message(cJSON_Parse(publication.c_str()));
    const std::string relay = relayOf(cJSON_GetObjectItem(message.get(), "payload"), "channel");
    const std::optional<Record> received = checkReading<Record>(relay);
    require(received.has_value() && *received == record, "the record arrives that was sent");
    require(!std::is_same_v<Record, Gauge> || !record._id.empty() ||
                Testing::relayStraight(relay, Record()).has_value(),
            "numbers are read without a tree");
    Record copy;
    require(copy.copy(&record) == 0 && copy == record, "a copy is the same record");
}

template <class Record>
void checkText(const std::string& text)
{
    checkReading<Record>("{\n\t\"header\":\t\"channel\",\n\t\"sequence\":\t1,\n\t\"payload\":\t" + text +
                         "\n}");
    const JsonTree payload(cJSON_Parse(text.c_str()));
    if (payload == nullptr) {
        return;
    }
    const std::string relay = relayOf(payload.get(), "channel");
    std::optional<Record> record = checkReading<Record>(relay);
    if constexpr (std::is_same_v<Record, Gauge>) {
        const JsonTree printed(cJSON_Parse(relay.c_str())); // its numbers may have fewer digits
        require(record.has_value() == isReadable(cJSON_GetObjectItem(printed.get(), "payload")),
                "numbers are read if they are in range, and only then");
    }
    if (record) {
        checkWriting(*record);
    }
}

/// The JSON library ends a text at its first zero.
std::string takeText(Values& values)
{
    const std::string text = values.takeText();
    return text.substr(0, text.find('\0'));
}

std::size_t takeSize(Values& values)
{
    return values.take<std::uint8_t>() % 8;
}

void fill(Gauge& record, Values& values)
{
    record.factor = values.take<float>();
    record.cycles = values.take<unsigned>();
    // Half of the integers are in the range that JSON carries.
    record.offset = values.take<std::int64_t>() / (values.takeFlag() ? 2048 : 1);
    record.total = values.take<std::uint64_t>() / (values.takeFlag() ? 4096 : 1);
    record.step = values.take<std::int8_t>();
    record.grade = static_cast<Application::Grade>(values.take<std::uint8_t>());
    record._id = takeText(values);
}

void fill(std::vector<Defect>& defects, Values& values)
{
    defects.resize(takeSize(values));
    for (Defect& defect : defects) {
        defect.depth = values.take<float>();
    }
}

void fill(Inspection& record, Values& values)
{
    if (values.takeFlag()) {
        record.length = values.take<double>();
    }
    if (values.takeFlag()) {
        record.note = takeText(values);
    }
    for (std::size_t size = takeSize(values); size > 0; --size) {
        record.currents.push_back(values.take<double>());
        record.passed.push_back(values.takeFlag());
        record.names.push_back(takeText(values));
        record.counts.emplace(takeText(values), values.take<int>());
        record.worst[takeText(values)].depth = values.take<float>();
        record.grid.emplace_back(takeSize(values), values.take<unsigned>());
        fill(record.defects[takeText(values)], values);
    }
    if (values.takeFlag()) {
        const auto milliseconds = values.take<std::uint16_t>() % 1000;
        record.repaired.emplace().time = {
            values.take<std::int32_t>() & std::numeric_limits<std::int32_t>::max(), milliseconds * 1'000'000};
    }
    record.last = values.take<int>();
    record._id = takeText(values);
}

template <class Record>
void check(bool isText, std::string_view input)
{
    if (isText) {
        checkText<Record>(std::string(input));
        return;
    }
    Values values(input);
    Record record;
    fill(record, values);
    checkWriting(record);
}

} // namespace
} // namespace Telvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace Telvane;
    silenceDiagnostics();
    if (size == 0) {
        return 0;
    }
    constexpr unsigned kText = 1;
    constexpr unsigned kNumbers = 2;
    const std::string_view input = textOf(data + 1, size - 1);
    const bool isText = (data[0] & kText) != 0;
    if ((data[0] & kNumbers) != 0) {
        check<Gauge>(isText, input);
    } else {
        check<Inspection>(isText, input);
    }
    return 0;
}
