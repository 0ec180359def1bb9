#pragma once

#include "archive/welds/WeldColumns.h"

#include <string>
#include <vector>

namespace TelvaneArchive
{

/// What belongs to the next welds and is not on the bus: part serial, operator, batches and so on.
class Context
{
public:
    /// Adds NAME=VALUE, where NAME is a column for such a thing.
    /// \return an error message, or an empty text
    std::string add(const std::string& text);

    /// Sets a file with lines of NAME=VALUE, which a scanner or a robot may rewrite. It is read at each start of a
    /// weld; its lines come after those of add(). Empty lines and lines that begin with '#' do not count.
    void setFile(const std::string& path) { m_file = path; }

    /// Fills in the columns.
    /// \return what is wrong with the file; empty if nothing is
    std::string apply(Weld& weld) const;

    /// \return whether the column can be set
    static bool isContext(Column column);

private:
    static std::string read(const std::string& text, Column& column, Value& value);

    std::vector<std::pair<Column, Value>> m_values;
    std::string m_file;
};

} // namespace TelvaneArchive
