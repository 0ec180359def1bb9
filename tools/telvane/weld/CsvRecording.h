#pragma once

#include "common/support/TextLines.h"
#include "common/support/TimestampParser.h"
#include "weld/ColumnMapping.h"
#include "weld/WeldSample.h"

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// Samples from a CSV file with a header line and one row per sample.
class CsvRecording : public SampleSource
{
public:
    struct Options
    {
        std::string path;                           ///< "-" for standard input
        char delimiter = ',';                       ///< between fields
        char decimalSign = '.';                     ///< of numbers: '.' or ','
        std::array<std::string, kQuantities> texts; ///< see readColumnMapping(); empty if not measured
        std::string time;         ///< "column", "column*scale" or "date column+time column"; empty for none
        Nanoseconds period = 0;   ///< between rows, if there is no time column
        std::string group;        ///< column whose change starts a new group; empty for none
        TextLines::Waiter waiter; ///< see TextLines::open()

        std::string& text(Quantity quantity) { return texts[static_cast<std::size_t>(quantity)]; }
        const std::string& text(Quantity quantity) const { return texts[static_cast<std::size_t>(quantity)]; }
    };

    /// \param onInvalidRow  called with "file:line:column: reason" for each skipped row
    CsvRecording(Options options, std::function<void(const std::string& message)> onInvalidRow);

    /// Opens the file and finds the columns named in the options.
    /// \return false with \p error set; with an empty \p error if the waiter stopped the reading
    bool open(std::string& error);

    Next next(WeldSample& sample) override;
    const Traits& traits() const override { return m_traits; }

    std::uint64_t invalidRows() const { return m_invalidRows; }
    /// \return the error number of a failed read, or 0
    int readError() const { return m_lines.error(); }

private:
    struct Row
    {
        WeldSample sample;
        bool newGroup = false;
        std::string group; ///< if \p newGroup
    };

    bool mapColumns(std::string& error);
    bool mapTime(std::string& error);
    bool readRow(Row& row);
    bool readFields(Row& row);
    bool readTime(Nanoseconds& time);
    bool readClock(Nanoseconds& time);
    void reject(std::size_t column, const std::string& what);
    std::string fieldIsNot(std::size_t column, const std::string& expected) const;
    void lookAhead(const Row& first);

    Options m_options;
    std::function<void(const std::string&)> m_onInvalidRow;
    TextLines m_lines;
    std::vector<std::string> m_columns;
    std::vector<std::string_view> m_fields;
    Traits m_traits;

    std::array<ColumnMapping, kQuantities> m_mappings;
    std::optional<std::size_t> m_groupColumn;
    ColumnMapping m_timeMapping;
    std::optional<std::size_t> m_clockColumn; ///< time of day, if the date has its own column
    enum class TimeForm
    {
        Unknown, ///< until the first row
        Rows,
        Number,
        TimeOfDay,
        Moment,
    };
    TimeForm m_timeForm = TimeForm::Unknown;
    TimestampParser m_clock;
    Nanoseconds m_midnight = 0; ///< start of the current day, if there are only times of day

    std::string m_group;
    bool m_inGroup = false;
    std::uint64_t m_rowInGroup = 0;
    Nanoseconds m_previousTime = 0;
    std::uint64_t m_invalidRows = 0;
    std::deque<Row> m_ahead;
};

} // namespace TelvaneTool
