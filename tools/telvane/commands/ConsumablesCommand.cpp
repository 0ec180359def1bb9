#include "catalogue/ConsumableCode.h"
#include "catalogue/ConsumableNames.h"
#include "commands/Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/Json.h"
#include "common/support/Table.h"

#include <memory>
#include <string>

namespace TelvaneTool
{

namespace
{

struct Options
{
    std::string table;
    std::string code;
    bool json = false;
};

std::string listCodes(const ConsumableTable& table)
{
    Table rows({{"", true}, {}});
    for (std::size_t code = 0; code < table.count; ++code) {
        rows.add({std::to_string(code), table.texts[code]});
    }
    rows.add({"255", "unknown"});
    return rows.print();
}

JsonTree entry(const ConsumableTable& table, int code)
{
    JsonTree object(cJSON_CreateObject());
    cJSON_AddNumberToObject(object.get(), "code", code);
    cJSON_AddStringToObject(object.get(), "name", consumableName(table, code).c_str());
    return object;
}

JsonTree entries(const ConsumableTable& table)
{
    JsonTree array(cJSON_CreateArray());
    for (std::size_t code = 0; code < table.count; ++code) {
        cJSON_AddItemToArray(array.get(), entry(table, static_cast<int>(code)).release());
    }
    return array;
}

int show(const Options& options)
{
    std::string text;
    if (options.table.empty() && options.json) {
        const JsonTree tables(cJSON_CreateObject());
        for (const ConsumableTable& table : consumableTables()) {
            cJSON_AddItemToObject(tables.get(), table.name, entries(table).release());
        }
        text = printJson(tables.get()) + "\n";
    } else if (options.table.empty()) {
        for (const ConsumableTable& table : consumableTables()) {
            text += (text.empty() ? "" : "\n") + std::string(table.name) + ": " + table.title + "\n" +
                    listCodes(table);
        }
    } else {
        const ConsumableTable* const table = findConsumableTable(options.table);
        if (table == nullptr) {
            printError("unknown table \"" + options.table +
                       "\"; use process, wire-type, wire-size, gas or alloy");
            return kWrongUsage;
        }
        if (options.code.empty()) {
            text = options.json ? printJson(entries(*table).get()) + "\n" : listCodes(*table);
        } else {
            const auto code = readConsumableCode(options.code, table->texts, table->count);
            if (!code) {
                printError("\"" + options.code + "\" is not a name or code of the " + table->title +
                           "; codes are 0 to " + std::to_string(table->count - 1) + ", and 255 for unknown");
                return kWrongUsage;
            }
            text =
                (options.json ? printJson(entry(*table, *code).get()) : consumableName(*table, *code)) + "\n";
        }
    }
    return writeResult(text);
}

} // namespace

void addConsumablesCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "consumables", "List the codes of processes, wires, gases and alloys");
    command.option("TABLE", options->table, "Print this table: process, wire-type, wire-size, gas or alloy")
        .showDefault("all");
    command.option("CODE", options->code, "Print the name of this code only");
    command.flag("--json", options->json, "Print JSON objects with code and name");
    command.examples("# all tables, one table, one name\n"
                     "telvane consumables\n"
                     "telvane consumables gas\n"
                     "telvane consumables alloy 3\n"
                     "# as JSON, for a program\n"
                     "telvane consumables gas --json\n");
    command.run([options] { return show(*options); });
}

} // namespace TelvaneTool
