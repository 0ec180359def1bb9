#include "common/support/Table.h"

#include "common/text/PrintableText.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kGap = 2;

} // namespace

std::string cut(const std::string& text, std::size_t width)
{
    std::size_t columns = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool begins = (static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80U;
        if (begins && columns++ == width) {
            return text.substr(0, i);
        }
    }
    return text;
}

std::string Table::print(const Layout& layout) const
{
    std::vector<Cell> titles;
    std::vector<std::size_t> widths;
    bool hasTitles = false;
    std::vector<std::vector<Cell>> rows = m_rows;
    for (std::vector<Cell>& row : rows) {
        for (Cell& cell : row) {
            cell.text = printable(cell.text, Lines::Remove);
        }
    }
    for (const Column& column : m_columns) {
        titles.emplace_back(column.title);
        hasTitles = hasTitles || *column.title != '\0';
        std::size_t width = titles.back().text.size();
        for (const std::vector<Cell>& row : rows) {
            width = std::max(width, row[widths.size()].text.size());
        }
        widths.push_back(width);
    }
    std::string lines;
    const auto printRow = [&](const std::vector<Cell>& row, const char* style) {
        std::string line(layout.indent, ' ');
        std::size_t left = layout.width;
        for (std::size_t i = 0; i < row.size() && left > 0; ++i) {
            std::string text = row[i].text;
            const bool last = i + 1 == row.size();
            if (!last || m_columns[i].right) {
                text.insert(m_columns[i].right ? 0 : text.size(), widths[i] - text.size(), ' ');
            }
            text = cut(text, left);
            left -= std::min(left, text.size());
            const bool styled = layout.headingStyle != nullptr && row[i].style != nullptr && !text.empty();
            line += styled ? row[i].style + text + kPlainStyle : text;
            const std::size_t gap = last ? 0 : std::min(left, kGap);
            line.append(gap, ' ');
            left -= gap;
        }
        if (style != nullptr) {
            line = style + line.append(left, ' ') + kPlainStyle;
        }
        lines += line.erase(line.find_last_not_of(' ') + 1) + '\n';
    };
    if (hasTitles) {
        printRow(titles, layout.headingStyle);
    }
    for (const std::vector<Cell>& row : rows) {
        printRow(row, nullptr);
    }
    return lines;
}

} // namespace TelvaneTool
