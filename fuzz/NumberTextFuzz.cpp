// Numbers as text: ours must be, digit for digit, what the JSON library prints. The input is tried as the
// bits of doubles, which reaches every one of them, and as a decimal text, which reaches the round ones.

#include "FuzzSupport.h"
#include "support/NumberText.h"

#include <cjson/cJSON.h>

#include <array>
#include <cstring>
#include <string>

namespace Telvane
{
namespace
{

void check(double value)
{
    std::array<char, 64> expected = {};
    cJSON number = {};
    number.type = cJSON_Number;
    cJSON_SetNumberHelper(&number, value);
    require(cJSON_PrintPreallocated(&number, expected.data(), static_cast<int>(expected.size()), 0) != 0,
            "the library prints every number into 64 bytes");

    // Exactly as much as is promised to suffice, on the heap, where a sanitizer guards its end.
    const std::vector<char> room(kNumberTextSize, '#');
    std::vector<char> text = room;
    const char* const end = formatNumber(value, text.data());
    require(*end == '\0', "a number's text is terminated where it is said to end");
    requireSame(std::string_view(text.data(), static_cast<std::size_t>(end - text.data())), expected.data(),
                "a number prints as the JSON library prints it");
}

} // namespace
} // namespace Telvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    for (std::size_t begin = 0; begin + sizeof(double) <= size; begin += sizeof(double)) {
        double value = 0.0;
        std::memcpy(&value, data + begin, sizeof value);
        Telvane::check(value);
    }
    const std::string text(Telvane::textOf(data, size));
    Telvane::check(std::strtod(text.c_str(), nullptr));
    return 0;
}
