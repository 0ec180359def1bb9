#include "listen/SampleColumns.h"

#include "common/support/JsonPath.h"
#include "common/text/JsonPrinter.h"

#include <cmath>
#include <strings.h>

namespace TelvaneTool
{

using Telvane::WeldTraceData;
using Telvane::WeldTraceDataPoint;

bool SampleColumns::find(const std::vector<std::string>& steps, Column& column)
{
    struct Integer
    {
        const char* key;
        int WeldTraceData::*member;
    };
    struct Number
    {
        const char* key;
        double WeldTraceDataPoint::*member;
    };
    static constexpr Integer kIntegers[] = {{"sequence", &WeldTraceData::sequence},
                                            {"messageSerial", &WeldTraceData::messageSerial}};
    static constexpr Number kNumbers[] = {
        {"amps", &WeldTraceDataPoint::amps},   {"volts", &WeldTraceDataPoint::volts},
        {"wfs", &WeldTraceDataPoint::wfs},     {"gas", &WeldTraceDataPoint::gas},
        {"power", &WeldTraceDataPoint::power}, {"motor", &WeldTraceDataPoint::motor}};
    const auto is = [&steps](std::size_t step, const char* key) {
        return strcasecmp(steps[step].c_str(), key) == 0;
    };
    if (steps.size() == 2 && is(0, "data")) {
        for (const Number& number : kNumbers) {
            if (is(1, number.key)) {
                column.number = number.member;
                return true;
            }
        }
    }
    if (steps.size() != 1) {
        return false;
    }
    for (const Integer& integer : kIntegers) {
        if (is(0, integer.key)) {
            column.integer = integer.member;
            return true;
        }
    }
    return is(0, "timestamp");
}

bool SampleColumns::choose(const std::vector<std::string>& fields)
{
    m_columns.clear();
    for (const std::string& field : fields) {
        if (!find(splitPath(field), m_columns.emplace_back())) {
            return false;
        }
    }
    return true;
}

bool SampleColumns::print(const WeldTraceData& sample, std::string& line) const
{
    constexpr double kMaxReadBack = 1e308; // larger ones may be printed as a number that is read as infinity
    if (!sample._id.empty()) {
        return false; // may be invalid text, which is counted
    }
    for (const Column& column : m_columns) {
        line += ',';
        if (column.number != nullptr) {
            const double value = sample.data.*column.number;
            if (!(std::fabs(value) < kMaxReadBack)) {
                return false;
            }
            appendNumber(line, value);
        } else if (column.integer != nullptr) {
            line += std::to_string(sample.*column.integer);
        } else {
            char text[Telvane::TextForm::kSize];
            line.append(text, sample.timestamp._recordTable()->textForm()->write(sample.timestamp, text));
        }
    }
    return true;
}

} // namespace TelvaneTool
