#include "common/support/ChannelPattern.h"

#include <algorithm>

namespace TelvaneTool
{

bool isPattern(std::string_view text)
{
    return text.find_first_of("*?") != std::string_view::npos;
}

bool matchesPattern(std::string_view pattern, std::string_view name)
{
    // Only the last star ever has to take more: what stands before it has its shortest match already.
    std::size_t at = 0;
    std::size_t taken = 0;
    std::size_t star = std::string_view::npos;
    std::size_t starTaken = 0;
    while (taken < name.size()) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = at++;
            starTaken = taken;
        } else if (at < pattern.size() && (pattern[at] == '?' || pattern[at] == name[taken])) {
            ++at;
            ++taken;
        } else if (star != std::string_view::npos) {
            at = star + 1;
            taken = ++starTaken;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

bool matchesAnyPattern(const std::vector<std::string>& patterns, std::string_view name)
{
    return patterns.empty() ||
           std::any_of(patterns.begin(), patterns.end(),
                       [name](const std::string& pattern) { return matchesPattern(pattern, name); });
}

} // namespace TelvaneTool
