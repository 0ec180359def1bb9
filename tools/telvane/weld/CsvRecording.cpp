// Rows are read one by one. Invalid rows are reported and skipped, so that one bad line does not make a whole
// day's data useless.
//
// With time stamps, the sample period is not in any single row. The reader looks ahead at the start of each
// group and takes the median interval.

#include "weld/CsvRecording.h"

#include "common/support/CsvFields.h"
#include "common/support/Saturating.h"

#include <algorithm>
#include <cmath>
#include <system_error>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kRowsAhead = 64;
constexpr Nanoseconds kDay = Nanoseconds(24) * 3600 * kSecond;
/// Limits that leave room to add any interval to a time in 64-bit nanoseconds.
constexpr double kEarliestSeconds = -1.0e9;
constexpr double kLatestSeconds = 4.0e9;

constexpr std::array<const char*, kQuantities> kQuantityOptions = {"--amps", "--volts", "--wfs",
                                                                   "--gas",  "--motor", "--wire-used"};

/// \return a field with its doubled quotes made single
std::string unescaped(std::string text)
{
    for (std::size_t at = text.find("\"\""); at != std::string::npos; at = text.find("\"\"", at + 1)) {
        text.erase(at, 1);
    }
    return text;
}

} // namespace

CsvRecording::CsvRecording(Options options, std::function<void(const std::string&)> onInvalidRow)
    : m_options(std::move(options)), m_onInvalidRow(std::move(onInvalidRow))
{}

bool CsvRecording::open(std::string& error)
{
    const int failure = m_lines.open(m_options.path, m_options.waiter);
    if (failure != 0) {
        error = "cannot open " + m_options.path + ": " + std::generic_category().message(failure);
        return false;
    }
    std::string_view header;
    if (!m_lines.next(header)) {
        if (m_lines.stopped()) {
            return false;
        }
        error = m_lines.error() != 0 ? "cannot read " + m_options.path + ": " +
                                           std::generic_category().message(m_lines.error())
                                     : m_options.path + " is empty; the first line must name the columns";
        return false;
    }
    if (!splitFields(header, m_options.delimiter, m_fields)) {
        error = m_options.path + ":1: unclosed quote in the header line";
        return false;
    }
    m_columns.assign(m_fields.begin(), m_fields.end());
    if (!mapColumns(error) || !mapTime(error)) {
        error = m_options.path + ": " + error;
        return false;
    }
    return true;
}

bool CsvRecording::mapColumns(std::string& error)
{
    for (std::size_t i = 0; i < kQuantities; ++i) {
        if (m_options.texts[i].empty()) {
            continue;
        }
        const auto mapping = readColumnMapping(m_options.texts[i], m_columns, error);
        if (!mapping) {
            error.insert(0, std::string(kQuantityOptions[i]) + ": ");
            return false;
        }
        m_mappings[i] = *mapping;
        m_traits.measured[i] = true;
    }
    if (!m_options.group.empty()) {
        m_groupColumn = findColumn(m_options.group, m_columns);
        if (!m_groupColumn) {
            error = "--group: " + noSuchColumn(m_options.group, m_columns);
            return false;
        }
    }
    return true;
}

bool CsvRecording::mapTime(std::string& error)
{
    if (m_options.time.empty()) {
        m_timeForm = TimeForm::Rows;
        m_traits.period = m_options.period;
        return true;
    }
    const std::string_view text = m_options.time;
    for (std::size_t plus = text.find('+'); plus != std::string_view::npos; plus = text.find('+', plus + 1)) {
        const auto date = findColumn(text.substr(0, plus), m_columns);
        const auto clock = findColumn(text.substr(plus + 1), m_columns);
        if (date && clock) {
            m_timeMapping.column = date;
            m_clockColumn = clock;
            return true;
        }
    }
    const auto mapping = readColumnMapping(text, m_columns, error);
    if (!mapping || !mapping->column) {
        error = "--time: " + (mapping ? noSuchColumn(text, m_columns) : error);
        return false;
    }
    m_timeMapping = *mapping;
    return true;
}

SampleSource::Next CsvRecording::next(WeldSample& sample)
{
    Row row;
    if (!m_ahead.empty()) {
        row = m_ahead.front();
        m_ahead.pop_front();
    } else if (!readRow(row)) {
        return Next::End;
    }
    if (row.newGroup) {
        m_traits.group = row.group;
    }
    if (row.newGroup && m_timeForm != TimeForm::Rows) {
        lookAhead(row);
    }
    sample = row.sample;
    return row.newGroup ? Next::NewGroup : Next::Sample;
}

void CsvRecording::lookAhead(const Row& first)
{
    std::vector<Nanoseconds> intervals;
    Nanoseconds previous = first.sample.time;
    for (std::size_t i = 0; i < kRowsAhead; ++i) {
        if (i == m_ahead.size()) {
            Row row;
            if (!readRow(row)) {
                break;
            }
            m_ahead.push_back(row);
        }
        if (m_ahead[i].newGroup) {
            break;
        }
        intervals.push_back(subtractSaturated(m_ahead[i].sample.time, previous));
        previous = m_ahead[i].sample.time;
    }
    if (!intervals.empty()) {
        const auto middle = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
        std::nth_element(intervals.begin(), middle, intervals.end());
        m_traits.period = *middle;
    }
}

bool CsvRecording::readRow(Row& row)
{
    std::string_view line;
    while (m_lines.next(line)) {
        if (line.empty()) {
            continue;
        }
        if (!splitFields(line, m_options.delimiter, m_fields)) {
            reject(m_fields.size(), "unclosed quote");
        } else if (m_fields.size() != m_columns.size()) {
            reject(std::min(m_fields.size(), m_columns.size()),
                   "the row has " + std::to_string(m_fields.size()) + " fields, the header " +
                       std::to_string(m_columns.size()));
        } else if (readFields(row)) {
            return true;
        }
    }
    return false;
}

bool CsvRecording::readFields(Row& row)
{
    if (m_groupColumn && (!m_inGroup || m_fields[*m_groupColumn] != m_group)) {
        m_group = m_fields[*m_groupColumn];
        m_inGroup = false;
    }
    row.newGroup = !m_inGroup;
    row.group.clear();
    if (row.newGroup) {
        m_rowInGroup = 0;
        row.group = unescaped(m_group);
    }
    // An invalid row still takes its time.
    const std::uint64_t number = m_rowInGroup++;

    for (std::size_t i = 0; i < kQuantities; ++i) {
        const ColumnMapping& mapping = m_mappings[i];
        double value = 0.0;
        if (mapping.column && !readDecimal(m_fields[*mapping.column], value, m_options.decimalSign)) {
            reject(*mapping.column, fieldIsNot(*mapping.column, "a number"));
            return false;
        }
        row.sample.values[i] = mapping.apply(value);
    }
    if (m_timeForm == TimeForm::Rows) {
        row.sample.time = multiplySaturated(static_cast<Nanoseconds>(number), m_options.period);
    } else if (!readTime(row.sample.time)) {
        return false;
    }
    if (!row.newGroup && row.sample.time < m_previousTime) {
        const std::size_t column = m_clockColumn.value_or(*m_timeMapping.column);
        reject(column, m_columns[column] + ": the time is before that of the previous row");
        return false;
    }
    m_previousTime = row.sample.time;
    m_inGroup = true;
    return true;
}

bool CsvRecording::readTime(Nanoseconds& time)
{
    const std::size_t column = *m_timeMapping.column;
    if (m_timeForm == TimeForm::Unknown || m_timeForm == TimeForm::Number) {
        double seconds = 0.0;
        if (readDecimal(m_fields[column], seconds, m_options.decimalSign)) {
            seconds = m_timeMapping.apply(seconds);
            if (!(seconds >= kEarliestSeconds && seconds <= kLatestSeconds)) {
                reject(column, fieldIsNot(column, "a time in seconds; add a scale, as in " +
                                                      m_columns[column] + "*0.001"));
                return false;
            }
            m_timeForm = TimeForm::Number;
            time = std::llround(seconds * static_cast<double>(kSecond));
            return true;
        }
    }
    if (m_timeForm != TimeForm::Number && readClock(time)) {
        return true;
    }
    reject(m_clockColumn.value_or(column),
           fieldIsNot(m_clockColumn.value_or(column),
                      m_clockColumn ? "a time of day"
                      : m_timeForm == TimeForm::Unknown
                          ? "a time: seconds, a time of day, or a date and a time"
                          : "a time as in the rows before"));
    return false;
}

bool CsvRecording::readClock(Nanoseconds& time)
{
    const std::string_view field = m_fields[*m_timeMapping.column];
    if (m_timeForm != TimeForm::TimeOfDay) {
        if (m_clockColumn ? m_clock.read(field, m_fields[*m_clockColumn], time) : m_clock.read(field, time)) {
            m_timeForm = TimeForm::Moment;
            m_traits.absoluteTime = true;
            return true;
        }
    }
    if (m_timeForm == TimeForm::Moment || m_clockColumn || !TimestampParser::readTimeOfDay(field, time)) {
        return false;
    }
    m_timeForm = TimeForm::TimeOfDay;
    time = addSaturated(time, m_midnight);
    if (m_inGroup && time < m_previousTime - kDay / 2) {
        m_midnight = addSaturated(m_midnight, kDay);
        time = addSaturated(time, kDay);
    }
    return true;
}

void CsvRecording::reject(std::size_t column, const std::string& what)
{
    ++m_invalidRows;
    m_onInvalidRow(m_options.path + ":" + std::to_string(m_lines.number()) + ":" +
                   std::to_string(column + 1) + ": " + what);
}

std::string CsvRecording::fieldIsNot(std::size_t column, const std::string& expected) const
{
    return m_columns[column] + ": \"" + std::string(m_fields[column]) + "\" is not " + expected;
}

} // namespace TelvaneTool
