// A rule is a line: "allow user:robot,group:welding publish,subscribe Weld* LogData". The first rule that matches
// decides, and what no rule matches is refused, so a rule that is forgotten opens nothing.

#include "serve/AccessPolicy.h"

#include "common/support/ChannelPattern.h"
#include "common/support/TextLines.h"
#include "serve/AccessControl.h"

#include <Telvane/RequestType.h>

#include <algorithm>
#include <cstring>

namespace TelvaneTool
{

namespace
{

using Telvane::EventServerAccess;

constexpr std::string_view kBlanks = " \t";

/// Removes the text up to a separator, and the separators after it.
/// \return that text; empty at the end
std::string_view takeWord(std::string_view& text, std::string_view separators)
{
    text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(separators));
    text.remove_prefix(word.size());
    return word;
}

std::string quoted(std::string_view text)
{
    return "\"" + std::string(text) + "\"";
}

template <class Id>
bool contains(const std::vector<Id>& list, Id id)
{
    return std::find(list.begin(), list.end(), id) != list.end();
}

} // namespace

std::optional<AccessPolicy> AccessPolicy::read(const std::string& path, std::string& error)
{
    TextLines lines;
    int failure = lines.open(path);
    AccessPolicy policy;
    std::string_view line;
    while (failure == 0 && lines.next(line)) {
        line = line.substr(0, line.find('#'));
        if (line.find_first_not_of(kBlanks) == std::string_view::npos) {
            continue;
        }
        Rule rule;
        const std::string wrong = readRule(line, rule);
        if (!wrong.empty()) {
            error = path;
            error.append(":").append(std::to_string(lines.number())).append(": ").append(wrong);
            return std::nullopt;
        }
        policy.m_rules.push_back(std::move(rule));
    }
    failure = failure == 0 ? lines.error() : failure;
    if (failure != 0) {
        error = "cannot read " + path + ": " + std::strerror(failure);
        return std::nullopt;
    }
    return policy;
}

std::string AccessPolicy::readRule(std::string_view line, Rule& rule)
{
    const std::string_view verdict = takeWord(line, kBlanks);
    rule.allow = verdict == "allow";
    if (!rule.allow && verdict != "deny") {
        return quoted(verdict) + " is not a verdict; use allow or deny";
    }
    const std::string_view clients = takeWord(line, kBlanks);
    const std::string_view actions = takeWord(line, kBlanks);
    for (std::string_view pattern = takeWord(line, kBlanks); !pattern.empty();
         pattern = takeWord(line, kBlanks)) {
        rule.patterns.emplace_back(pattern);
    }
    if (rule.patterns.empty()) {
        return "expected clients, actions and channels, as in \"" + std::string(verdict) +
               " group:welding publish,subscribe Weld*\"";
    }
    std::string wrong = readClients(clients, rule);
    wrong = wrong.empty() ? readActions(actions, rule) : wrong;
    for (const std::string& pattern : rule.patterns) {
        wrong = wrong.empty() ? checkChannelPattern(pattern) : wrong;
        // Responders subscribe to these channels. What is published there is a request.
        if (wrong.empty() && !rule.subscribe && pattern.rfind(Telvane::kRequestPrefix, 0) == 0) {
            wrong = quoted(pattern) + " matches no request; name the requested channel, such as " +
                    pattern.substr(std::strlen(Telvane::kRequestPrefix));
        }
    }
    return wrong;
}

std::string AccessPolicy::readClients(std::string_view text, Rule& rule)
{
    constexpr std::string_view kUser = "user:";
    constexpr std::string_view kGroup = "group:";
    std::string_view word = takeWord(text, ",");
    do {
        if (word == "*") {
            rule.everybody = true;
        } else if (word.substr(0, kUser.size()) == kUser) {
            const std::string name(word.substr(kUser.size()));
            const auto user = findUser(name);
            if (!user) {
                return "unknown user " + quoted(name);
            }
            rule.users.push_back(*user);
        } else if (word.substr(0, kGroup.size()) == kGroup) {
            const std::string name(word.substr(kGroup.size()));
            const auto group = findGroup(name);
            if (!group) {
                return "unknown group " + quoted(name);
            }
            rule.groups.push_back(*group);
        } else {
            return quoted(word) + " is not a client; use user:NAME, group:NAME or *";
        }
        word = takeWord(text, ",");
    } while (!word.empty());
    return {};
}

std::string AccessPolicy::readActions(std::string_view text, Rule& rule)
{
    std::string_view word = takeWord(text, ",");
    do {
        const bool all = word == "*";
        if (!all && word != "publish" && word != "request" && word != "subscribe") {
            return quoted(word) + " is not an action; use publish, request, subscribe or *";
        }
        rule.publish = rule.publish || all || word == "publish";
        rule.request = rule.request || all || word == "request";
        rule.subscribe = rule.subscribe || all || word == "subscribe";
        word = takeWord(text, ",");
    } while (!word.empty());
    return {};
}

bool AccessPolicy::isOf(const Rule& rule, const EventServerAccess& access)
{
    return rule.everybody || contains(rule.users, access.user) || contains(rule.groups, access.group) ||
           std::any_of(access.groups.begin(), access.groups.end(),
                       [&rule](gid_t group) { return contains(rule.groups, group); });
}

bool AccessPolicy::allows(const EventServerAccess& access) const
{
    const auto matches = [&access](const Rule& rule) {
        const bool action = access.action == EventServerAccess::Action::Publish   ? rule.publish
                            : access.action == EventServerAccess::Action::Request ? rule.request
                                                                                  : rule.subscribe;
        return action && isOf(rule, access) && matchesAnyPattern(rule.patterns, access.channel);
    };
    const auto rule = std::find_if(m_rules.begin(), m_rules.end(), matches);
    return rule != m_rules.end() && rule->allow;
}

} // namespace TelvaneTool
