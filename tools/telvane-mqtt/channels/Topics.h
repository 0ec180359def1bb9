#pragma once

#include <string>

namespace TelvaneTool::Mqtt
{

/// The kinds of topics that come in.
enum class TopicKind
{
    None,    ///< not a topic of this module
    Write,   ///< a record to be published on the bus
    Request, ///< a request
    State,   ///< the module's own state
};

/// The topics of one module: PREFIX/MODULE/N/CHANNEL and so on. The direction comes before the channel, so that
/// rights can be given for a direction, and what goes out is never what comes in.
class Topics
{
public:
    /// \return an error message, or an empty text if the names can be part of a topic
    static std::string check(const std::string& prefix, const std::string& module);

    /// \param prefix one or several levels
    /// \param module one level
    Topics(const std::string& prefix, const std::string& module) : m_base(prefix + "/" + module + "/") {}

    /// \return the topic of what happened on the bus
    std::string notification(const std::string& channel) const { return m_base + "N/" + channel; }
    std::string write(const std::string& channel) const { return m_base + "W/" + channel; }
    std::string request(const std::string& channel) const { return m_base + "R/" + channel; }
    std::string state() const { return m_base + "state"; }
    std::string errors() const { return m_base + "state/errors"; }
    std::string schema(const std::string& className) const { return m_base + "schema/" + className; }

    /// \param[out] channel set for Write and Request
    TopicKind parse(const std::string& topic, std::string& channel) const;

    /// \return whether an answer may be published on a topic: it has no wildcards, and is not of this module, where the
    ///         bridge could read it as a request
    bool mayAnswerOn(const std::string& topic) const;

private:
    std::string m_base;
};

} // namespace TelvaneTool::Mqtt
