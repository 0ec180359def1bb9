#include "common/support/CsvFields.h"

#include "common/support/HumanReadable.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>

namespace TelvaneTool
{

bool splitFields(std::string_view line, char delimiter, std::vector<std::string_view>& fields)
{
    fields.clear();
    std::size_t at = 0;
    for (;;) {
        std::size_t end = line.find(delimiter, at);
        std::string_view field = trimmed(line.substr(at, end - at), " \t");
        if (!field.empty() && field.front() == '"') {
            const std::size_t open = line.find('"', at);
            std::size_t close = open + 1;
            for (;;) {
                close = line.find('"', close);
                if (close == std::string_view::npos) {
                    return false;
                }
                if (close + 1 >= line.size() || line[close + 1] != '"') {
                    break;
                }
                close += 2;
            }
            field = line.substr(open + 1, close - open - 1);
            end = line.find(delimiter, close);
        }
        fields.push_back(field);
        if (end == std::string_view::npos) {
            return true;
        }
        at = end + 1;
    }
}

bool readDecimal(std::string_view field, double& number, char decimalSign)
{
    if (decimalSign != '.') {
        std::string converted(field);
        if (converted.find('.') != std::string::npos) {
            return false; // a separator of thousands, or another notation
        }
        std::replace(converted.begin(), converted.end(), decimalSign, '.');
        return readDecimal(converted, number);
    }
    if (field.size() > 1 && field.front() == '+' && field[1] != '-') {
        field.remove_prefix(1);
    }
    const char* const end = field.data() + field.size();
    const auto [rest, error] = std::from_chars(field.data(), end, number);
    return error == std::errc() && rest == end && !field.empty() && std::isfinite(number);
}

} // namespace TelvaneTool
