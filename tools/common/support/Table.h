#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace TelvaneTool
{

/// Prints rows in aligned columns, each as wide as its longest cell. Replaces control characters in cells.
class Table
{
public:
    struct Column
    {
        const char* title = ""; ///< without any title, no heading is printed
        bool right = false;     ///< align to the right, as numbers
    };
    struct Cell
    {
        Cell(std::string value) : text(std::move(value)) {} // NOLINT: a row is a list of texts
        Cell(const char* value) : text(value) {}            // NOLINT
        Cell(std::string value, const char* cellStyle) : text(std::move(value)), style(cellStyle) {}
        std::string text;
        const char* style = nullptr; ///< terminal sequence to print before the text
    };
    struct Layout
    {
        std::size_t indent = 0;
        std::size_t width = std::string::npos; ///< longer lines are cut
        const char* headingStyle = nullptr;    ///< null for a terminal without colours
    };

    explicit Table(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    /// \param row one cell for each column
    void add(std::vector<Cell> row) { m_rows.push_back(std::move(row)); }

    /// \return lines without trailing blanks
    std::string print() const { return print(Layout()); }
    std::string print(const Layout& layout) const;

private:
    std::vector<Column> m_columns;
    std::vector<std::vector<Cell>> m_rows;
};

/// \name Styles of a cell or heading
/// @{
constexpr const char* kBold = "\x1b[1m";
constexpr const char* kInverse = "\x1b[7m";
constexpr const char* kRed = "\x1b[31m";
constexpr const char* kGrey = "\x1b[90m";
constexpr const char* kPlainStyle = "\x1b[0m"; ///< ends the others
/// @}

/// \return at most \p width columns of UTF-8 text
std::string cut(const std::string& text, std::size_t width);

} // namespace TelvaneTool
