#pragma once

#include <Telvane/EventServerStatus.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// Who may publish, request and subscribe to what, according to a file. Immutable once it is read, so any thread may use
/// it.
class AccessPolicy
{
public:
    /// Reads a file. Call it on one thread at a time.
    /// \param[out] error  what is wrong, with file and line; unchanged on success
    static std::optional<AccessPolicy> read(const std::string& path, std::string& error);

    /// \return whether the first rule that matches allows it; false if no rule matches
    bool allows(const Telvane::EventServerAccess& access) const;

    std::size_t size() const { return m_rules.size(); }

private:
    struct Rule
    {
        bool allow = false;
        bool everybody = false;
        std::vector<uid_t> users;
        std::vector<gid_t> groups; ///< matches members, too
        bool publish = false;
        bool request = false;
        bool subscribe = false;
        std::vector<std::string> patterns;
    };

    static std::string readRule(std::string_view line, Rule& rule);
    static std::string readClients(std::string_view text, Rule& rule);
    static std::string readActions(std::string_view text, Rule& rule);
    static bool isOf(const Rule& rule, const Telvane::EventServerAccess& access);

    std::vector<Rule> m_rules;
};

} // namespace TelvaneTool
