#include "catalogue/ConsumableCode.h"
#include "catalogue/ConsumableNames.h"
#include "commands/Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "common/support/Table.h"

#include <Telvane/Consumables.h>
#include <Telvane/WireComputations.h>

#include <memory>
#include <string>

namespace TelvaneTool
{

namespace
{

constexpr double kMillimetresPerInch = 25.4;
constexpr double kGramsPerPound = 453.59237;
constexpr double kMetresPerFoot = 0.3048;

struct Options
{
    std::string size;
    double diameter = 0.0; ///< inches
    std::string alloy;
    bool json = false;
};

bool readCode(const std::string& text, const char* tableName, int& code)
{
    const ConsumableTable& table = *findConsumableTable(tableName);
    const auto read = readConsumableCode(text, table.texts, table.count);
    if (!read) {
        printError("\"" + text + "\" is not a name or code of the " + table.title + "; telvane consumables " +
                   tableName + " lists them");
        return false;
    }
    code = *read;
    return true;
}

int show(const Options& options)
{
    if (options.size.empty() == (options.diameter <= 0.0)) {
        printError("give either --size or --diameter");
        return kWrongUsage;
    }
    double inches = options.diameter;
    if (!options.size.empty()) {
        int size = 0;
        if (!readCode(options.size, "wire-size", size)) {
            return kWrongUsage;
        }
        inches = Telvane::GetWireDiameterInInches(static_cast<Telvane::_WireSize_e>(size));
        if (!(inches > 0.0)) {
            printError("code " + std::to_string(size) + " has no wire size");
            return kWrongUsage;
        }
    }
    int alloy = 0;
    if (!options.alloy.empty() && !readCode(options.alloy, "alloy", alloy)) {
        return kWrongUsage;
    }
    const auto diameter = static_cast<float>(inches);
    const auto nearest = static_cast<int>(Telvane::GetWireDiameterFromInches(diameter));
    const double pounds =
        static_cast<double>(Telvane::GetWireWeight(static_cast<Telvane::_AlloyID_e>(alloy), diameter));
    const double millimetres = inches * kMillimetresPerInch;
    const double gramsPerMetre = pounds * kGramsPerPound / kMetresPerFoot;
    const ConsumableTable& sizes = *findConsumableTable("wire-size");
    const ConsumableTable& alloys = *findConsumableTable("alloy");
    if (options.json) {
        const JsonTree object(cJSON_CreateObject());
        cJSON_AddNumberToObject(object.get(), "diameterInches", inches);
        cJSON_AddNumberToObject(object.get(), "diameterMillimetres", millimetres);
        cJSON_AddNumberToObject(object.get(), "nearestSize", nearest);
        cJSON_AddStringToObject(object.get(), "nearestSizeName", consumableName(sizes, nearest).c_str());
        cJSON_AddNumberToObject(object.get(), "alloy", alloy);
        cJSON_AddStringToObject(object.get(), "alloyName", consumableName(alloys, alloy).c_str());
        cJSON_AddNumberToObject(object.get(), "poundsPerFoot", pounds);
        cJSON_AddNumberToObject(object.get(), "gramsPerMetre", gramsPerMetre);
        return writeResult(printJson(object.get()) + "\n");
    }
    Table table({{}, {}});
    table.add({"diameter", formatted("%.6g in  (%.4g mm)", inches, millimetres)});
    table.add({"nearest size", std::to_string(nearest) + "  " + consumableName(sizes, nearest)});
    table.add({"alloy", std::to_string(alloy) + "  " + consumableName(alloys, alloy)});
    table.add({"weight", formatted("%.6g lb/ft  (%.4g g/m)", pounds, gramsPerMetre)});
    return writeResult(table.print());
}

} // namespace

void addWireCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "wire", "Compute a wire's diameter, nearest size and weight");
    command.option("--size", options->size, "Compute for this wire size, name or code");
    command.option("--diameter", options->diameter, "Compute for this wire diameter in inches").positive();
    command.option("--alloy", options->alloy, "Compute for this alloy, name or code").showDefault("0");
    command.flag("--json", options->json, "Print JSON");
    command.examples("# by size, or by measured diameter\n"
                     "telvane wire --size 0.045 --alloy STL_E70\n"
                     "telvane wire --diameter 0.0472 --json\n");
    command.run([options] { return show(*options); });
}

} // namespace TelvaneTool
