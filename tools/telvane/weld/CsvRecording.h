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

/// Samples read from a file with a header line and one row a sample.
class CsvRecording : public SampleSource
{
public:
    struct Options
    {
        std::string path;                           ///< "-" for standard input
        char delimiter = ',';                       ///< between fields
        std::array<std::string, kQuantities> texts; ///< mapping of each quantity, see readColumnMapping()
        std::string time;         ///< "column", "column*scale" or "date column+time column"; or empty
        Nanoseconds period = 0;   ///< between rows when there is no time column
        std::string group;        ///< the column whose change begins a new weld, or empty
        TextLines::Waiter waiter; ///< see TextLines::open()

        std::string& text(Quantity quantity) { return texts[static_cast<std::size_t>(quantity)]; }
        const std::string& text(Quantity quantity) const { return texts[static_cast<std::size_t>(quantity)]; }
    };

    /// \param onBadRow called with "file:line:column: what is wrong" for each row that is left out
    CsvRecording(Options options, std::function<void(const std::string& message)> onBadRow);

    /// Opens the file and finds the columns that the options name.
    /// \return false with \p error set; without an error when the waiter ended the reading
    bool open(std::string& error);

    Next next(WeldSample& sample) override;
    const Traits& traits() const override { return m_traits; }

    std::uint64_t badRows() const { return m_badRows; }
    /// \return the error number that ended the reading early, or 0
    int readError() const { return m_lines.error(); }

private:
    struct Row
    {
        WeldSample sample;
        bool newGroup = false;
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
    std::function<void(const std::string&)> m_onBadRow;
    TextLines m_lines;
    std::vector<std::string> m_columns;
    std::vector<std::string_view> m_fields;
    Traits m_traits;

    std::array<ColumnMapping, kQuantities> m_mappings;
    std::optional<std::size_t> m_groupColumn;
    ColumnMapping m_timeMapping;
    std::optional<std::size_t> m_clockColumn; ///< the time of day, when the date has a column of its own
    enum class TimeForm
    {
        Unknown, ///< until the first row shows it
        Rows,
        Number,
        TimeOfDay,
        Moment,
    };
    TimeForm m_timeForm = TimeForm::Unknown;
    TimestampParser m_clock;
    Nanoseconds m_midnight = 0; ///< of a recording that has times of day only

    std::string m_group;
    bool m_inGroup = false;
    std::uint64_t m_rowInGroup = 0;
    Nanoseconds m_previousTime = 0;
    std::uint64_t m_badRows = 0;
    std::deque<Row> m_ahead;
};

} // namespace TelvaneTool
