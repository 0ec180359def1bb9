#include "catalogue/ConsumableCode.h"

#include <charconv>
#include <strings.h>

namespace TelvaneTool
{

std::optional<int> readConsumableCode(const std::string& text, const std::string* names, std::size_t count)
{
    // Names first: "0.045" is the name of a wire size.
    for (std::size_t code = 0; code < count; ++code) {
        if (strcasecmp(names[code].c_str(), text.c_str()) == 0) {
            return static_cast<int>(code);
        }
    }
    constexpr int kUnknown = 255;
    int code = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, code);
    if (error != std::errc() || rest != end || code < 0 ||
        (code >= static_cast<int>(count) && code != kUnknown)) {
        return std::nullopt;
    }
    return code;
}

} // namespace TelvaneTool
