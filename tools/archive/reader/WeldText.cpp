#include "archive/reader/WeldText.h"

#include "common/support/Clock.h"
#include "common/support/HumanReadable.h"
#include "common/support/Json.h"

#include <cmath>
#include <string_view>

namespace TelvaneArchive
{

namespace
{

/// A file from a browser or for a spreadsheet is opened with a double-click, and what runs then is a formula that came
/// from the bus.
bool looksLikeFormula(const std::string& text)
{
    constexpr std::string_view kBeginnings = "=+-@\t\r";
    return !text.empty() && kBeginnings.find(text.front()) != std::string_view::npos;
}

/// \return a field of CSV, in quotes if it needs them
std::string csvField(const Value& value, CsvTexts texts)
{
    if (isNull(value)) {
        return {};
    }
    if (std::holds_alternative<double>(value)) {
        return TelvaneTool::formatted("%.17g", numberOf(value));
    }
    if (std::holds_alternative<std::int64_t>(value)) {
        return std::to_string(wholeOf(value));
    }
    const std::string& text = textOf(value);
    const bool isPlain = text.find_first_of(",\"\r\n") == std::string::npos;
    if (isPlain && (texts == CsvTexts::Exact || !looksLikeFormula(text))) {
        return text;
    }
    return csvQuoted(text, texts);
}

} // namespace

std::string csvQuoted(const std::string& text, CsvTexts texts)
{
    std::string quoted = texts == CsvTexts::NoFormulas && looksLikeFormula(text) ? "\"'" : "\"";
    for (const char letter : text) {
        quoted += letter == '"' ? std::string("\"\"") : std::string(1, letter);
    }
    return quoted + "\"";
}

std::string csvHeading()
{
    std::string line = "id";
    for (const Column column : allColumns()) {
        line += std::string(",") + infoOf(column).name;
    }
    return line + "\n";
}

std::string csvLine(const Weld& weld, CsvTexts texts)
{
    std::string line = std::to_string(weld.id);
    for (const Value& value : weld.values) {
        line += "," + csvField(value, texts);
    }
    return line + "\n";
}

std::string jsonLine(const Weld& weld)
{
    const TelvaneTool::JsonTree object(cJSON_CreateObject());
    TelvaneTool::addNumber(object.get(), "id", weld.id);
    for (const Column column : allColumns()) {
        const char* const name = infoOf(column).name;
        const Value& value = weld[column];
        if (isNull(value)) {
            cJSON_AddNullToObject(object.get(), name);
        } else if (std::holds_alternative<std::string>(value)) {
            TelvaneTool::addText(object.get(), name, textOf(value));
        } else if (std::holds_alternative<std::int64_t>(value)) {
            // A double would round nanoseconds.
            cJSON_AddRawToObject(object.get(), name, std::to_string(wholeOf(value)).c_str());
        } else {
            cJSON_AddNumberToObject(object.get(), name, numberOf(value));
        }
    }
    return TelvaneTool::printJson(object.get()) + "\n";
}

std::string sampleCsvHeading()
{
    std::string line = "time_s,number";
    for (const char* const name : kChannelNames) {
        line += std::string(",") + name;
    }
    return line + "\n";
}

std::string sampleCsvLine(const Sample& sample)
{
    std::string line = TelvaneTool::formatted("%.9f,%d", TelvaneTool::inSeconds(sample.time), sample.number);
    for (const double value : sample.values) {
        line += TelvaneTool::formatted(",%.17g", value);
    }
    return line + "\n";
}

std::string sampleJsonLine(const Sample& sample)
{
    std::string line = TelvaneTool::formatted("{\"time_s\":%.9f,\"number\":%d",
                                              TelvaneTool::inSeconds(sample.time), sample.number);
    for (std::size_t i = 0; i < kChannels; ++i) {
        const double value = sample.values[i];
        line += std::string(",\"") + kChannelNames[i] +
                "\":" + (std::isfinite(value) ? TelvaneTool::formatted("%.17g", value) : std::string("null"));
    }
    return line + "}\n";
}

std::string printFindings(const std::vector<Finding>& findings)
{
    std::string text;
    for (const Finding& finding : findings) {
        text += TelvaneTool::formatted("  %s: %s is %.6g, limits %.6g to %.6g", finding.level.c_str(),
                                       finding.metric.c_str(), finding.value, finding.low, finding.high);
        if (finding.toSeconds > 0.0) {
            text += TelvaneTool::formatted(", from %.2f to %.2f s", finding.fromSeconds, finding.toSeconds);
        }
        text += " (" + finding.reference + ")\n";
    }
    return text;
}

} // namespace TelvaneArchive
