// Columns are as wide as what stands in them, names and numbers come whole, and the last column takes what is
// left of the line: whoever wants more of a value makes the window wider.

#include "top/TopView.h"

#include "common/support/HumanReadable.h"
#include "common/support/Json.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

constexpr const char* kBold = "\x1b[1m";
constexpr const char* kInverse = "\x1b[7m";
constexpr const char* kRed = "\x1b[31m";
constexpr const char* kFaint = "\x1b[2m";
constexpr const char* kPlain = "\x1b[0m";

/// Cuts a text, without splitting a character of several bytes.
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

/// What other processes say is shown, but it must not command the terminal.
std::string harmless(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }, '?');
    return text;
}

class Table
{
public:
    struct Column
    {
        const char* title;
        bool right;
    };
    struct Cell
    {
        Cell(std::string value) : text(std::move(value)) {} // NOLINT: a row is a list of texts
        Cell(std::string value, const char* cellStyle) : text(std::move(value)), style(cellStyle) {}
        std::string text;
        const char* style = nullptr;
    };
    using Row = std::vector<Cell>;

    Table(std::vector<Column> columns, std::size_t width, bool colour)
        : m_columns(std::move(columns)), m_width(width), m_colour(colour)
    {}

    void add(Row row) { m_rows.push_back(std::move(row)); }

    std::string print() const
    {
        std::vector<std::size_t> widths;
        for (std::size_t column = 0; column < m_columns.size(); ++column) {
            std::size_t width = std::string(m_columns[column].title).size();
            for (const Row& row : m_rows) {
                width = std::max(width, row[column].text.size());
            }
            widths.push_back(width);
        }
        Row titles;
        for (const Column& column : m_columns) {
            titles.emplace_back(column.title);
        }
        std::string text = printRow(titles, widths, kInverse);
        for (const Row& row : m_rows) {
            text += printRow(row, widths, nullptr);
        }
        return text;
    }

private:
    std::string printRow(const Row& row, const std::vector<std::size_t>& widths, const char* lineStyle) const
    {
        std::string line = m_colour && lineStyle != nullptr ? lineStyle : "";
        std::size_t left = m_width;
        for (std::size_t column = 0; column < row.size() && left > 0; ++column) {
            const Cell& cell = row[column];
            const bool last = column + 1 == row.size();
            const std::size_t padding =
                last ? 0 : widths[column] - std::min(widths[column], cell.text.size());
            std::string text = cell.text;
            text.insert(m_columns[column].right ? 0 : text.size(), padding, ' ');
            text = cut(text, left);
            left -= std::min(left, text.size());
            const bool styled = m_colour && cell.style != nullptr;
            line += (styled ? cell.style : "") + text + (styled ? kPlain : "");
            const std::size_t gap = last ? 0 : std::min<std::size_t>(left, 2);
            line.append(gap, ' ');
            left -= gap;
        }
        if (m_colour && lineStyle != nullptr) {
            line.append(left, ' ').append(kPlain);
        }
        return line + "\n";
    }

    std::vector<Column> m_columns;
    std::vector<Row> m_rows;
    std::size_t m_width;
    bool m_colour;
};

Table::Cell missedCell(std::uint64_t missed)
{
    return {std::to_string(missed), missed != 0 ? kRed : nullptr};
}

std::string channelTable(const TopModel& model, const TopViewSettings& settings)
{
    Table table({{"CHANNEL", false},
                 {"CLASS", false},
                 {"SUBS", true},
                 {"RATE/S", true},
                 {"BYTES/S", true},
                 {"RECORDS", true},
                 {"MISSED", true},
                 {"SEQ", true},
                 {"LAST VALUE", false}},
                settings.width, settings.colour);
    for (const TopModel::ChannelRow& row : model.channels(settings.order)) {
        const bool idle = row.rate <= 0.0;
        // A class named like its channel need not be named again.
        const std::string recordClass = row.recordClass.empty()              ? "-"
                                        : row.recordClass == row.status.name ? "same"
                                                                             : row.recordClass;
        table.add({{row.status.name, idle ? nullptr : kBold},
                   recordClass,
                   std::to_string(row.status.subscribers),
                   model.hasRates() ? printCount(row.rate) : "-",
                   model.hasRates() ? printBytes(row.bytesPerSecond) : "-",
                   std::to_string(row.status.publications),
                   missedCell(row.status.missed),
                   row.status.lastSequence >= 0 ? std::to_string(row.status.lastSequence) : "-",
                   {harmless(row.value), kFaint}});
    }
    return table.print();
}

std::string clientTable(const TopModel& model, const TopViewSettings& settings)
{
    Table table({{"CLIENT", true},
                 {"PID", true},
                 {"USER", false},
                 {"PROGRAM", false},
                 {"BEHIND", true},
                 {"RELAYED", true},
                 {"MISSED", true},
                 {"SUBSCRIPTIONS", false}},
                settings.width, settings.colour);
    for (const TopModel::ClientRow& row : model.clients()) {
        std::string channels;
        for (const Telvane::EventServerSubscriptionStatus& subscription : row.status.subscriptions) {
            channels += (channels.empty() ? "" : " ") + subscription.channel;
        }
        table.add(
            {std::to_string(row.status.descriptor), std::to_string(row.status.process),
             harmless(row.status.userName.empty() ? std::to_string(row.status.user) : row.status.userName),
             harmless(row.status.program), printBytes(static_cast<double>(row.status.bytesBehind)),
             std::to_string(row.relayed), missedCell(row.missed), channels.empty() ? "-" : channels});
    }
    return table.print();
}

} // namespace

std::string printTop(const TopModel& model, const TopViewSettings& settings, Nanoseconds moment)
{
    const auto channels = model.channels(settings.order);
    std::string head = settings.path + "  " + printMoment(moment).substr(11, 8) + " UTC  " +
                       std::to_string(channels.size()) + " channels, " +
                       std::to_string(model.clients().size()) + " clients";
    if (model.hasRates()) {
        head += "  " + printCount(model.rate()) + " records/s, " + printBytes(model.bytesPerSecond()) + "/s";
    }
    head = cut(head, settings.width);
    return (settings.colour ? kBold + head + kPlain : head) + "\n\n" + channelTable(model, settings) + "\n" +
           clientTable(model, settings);
}

std::string printTopJson(const TopModel& model, const TopViewSettings& settings, Nanoseconds moment)
{
    const JsonTree tree(cJSON_CreateObject());
    const auto number = [](cJSON* object, const char* key, auto value) {
        cJSON_AddNumberToObject(object, key, static_cast<double>(value));
    };
    cJSON_AddStringToObject(tree.get(), "time", printMoment(moment).c_str());
    cJSON* const channels = cJSON_AddArrayToObject(tree.get(), "channels");
    for (const TopModel::ChannelRow& row : model.channels(settings.order)) {
        cJSON* const item = cJSON_CreateObject();
        cJSON_AddItemToArray(channels, item);
        cJSON_AddStringToObject(item, "channel", row.status.name.c_str());
        cJSON_AddStringToObject(item, "class", row.recordClass.c_str());
        number(item, "subscribers", row.status.subscribers);
        cJSON_AddNumberToObject(item, "rate", row.rate);
        cJSON_AddNumberToObject(item, "bytesPerSecond", row.bytesPerSecond);
        number(item, "records", row.status.publications);
        number(item, "missed", row.status.missed);
        number(item, "lastSequence", row.status.lastSequence);
        std::string error;
        if (JsonTree value = parseJson(row.value, error); value != nullptr) {
            cJSON_AddItemToObject(item, "value", value.release());
        }
    }
    cJSON* const clients = cJSON_AddArrayToObject(tree.get(), "clients");
    for (const TopModel::ClientRow& row : model.clients()) {
        cJSON* const item = cJSON_CreateObject();
        cJSON_AddItemToArray(clients, item);
        number(item, "client", row.status.descriptor);
        number(item, "pid", row.status.process);
        number(item, "uid", row.status.user);
        cJSON_AddStringToObject(item, "user", row.status.userName.c_str());
        cJSON_AddStringToObject(item, "program", row.status.program.c_str());
        number(item, "bytesBehind", row.status.bytesBehind);
        number(item, "relayed", row.relayed);
        number(item, "missed", row.missed);
        cJSON* const subscriptions = cJSON_AddArrayToObject(item, "subscriptions");
        for (const Telvane::EventServerSubscriptionStatus& subscription : row.status.subscriptions) {
            cJSON_AddItemToArray(subscriptions, cJSON_CreateString(subscription.channel.c_str()));
        }
    }
    return printJson(tree.get()) + "\n";
}

} // namespace TelvaneTool
