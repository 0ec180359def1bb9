#include "common/support/ChannelPattern.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

constexpr const char* kWildcards = "*?";
constexpr const char* kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_";

} // namespace

std::string checkChannel(const std::string& name)
{
    const bool valid = !name.empty() && name.find_first_not_of(kLetters) == std::string::npos;
    return valid ? "" : "\"" + name + "\" is not a channel name; use ASCII letters and underscores only";
}

std::string checkChannelPattern(const std::string& pattern)
{
    const std::size_t other = pattern.find_first_not_of(std::string(kLetters) + kWildcards);
    return !pattern.empty() && other == std::string::npos ? "" : checkChannel(pattern);
}

bool isPattern(std::string_view text)
{
    return text.find_first_of(kWildcards) != std::string_view::npos;
}

bool matchesPattern(std::string_view pattern, std::string_view name)
{
    // On a mismatch, only the last star needs to take one more character: earlier ones have their shortest match.
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
