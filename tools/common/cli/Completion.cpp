#include "common/cli/Completion.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

bool startsWith(const std::string& text, const std::string& begin)
{
    return text.compare(0, begin.size(), begin) == 0;
}

/// An unfinished command line.
class TypedLine
{
public:
    TypedLine(const CommandInfo& command, const std::vector<std::string>& words) : m_command(command)
    {
        for (std::size_t i = 1; i + 1 < words.size(); ++i) {
            take(words[i]);
        }
        m_unfinished = words.back();
        const std::size_t equals = m_unfinished.find('=');
        if (m_onlyArguments || m_awaiting != nullptr || !startsWith(m_unfinished, "--") ||
            equals == std::string::npos) {
            return;
        }
        m_awaiting = optionOf(m_unfinished.substr(0, equals));
        m_lead = m_unfinished.substr(0, equals + 1);
        m_unfinished.erase(0, equals + 1);
    }

    const std::string& unfinished() const { return m_unfinished; }
    /// \return the part of the last word before its value: "--as="
    const std::string& lead() const { return m_lead; }
    const std::vector<std::string>& arguments() const { return m_arguments; }
    bool completesOption() const
    {
        return m_awaiting == nullptr && !m_onlyArguments && startsWith(m_unfinished, "-");
    }

    /// \return the option or argument whose value is completed; null if no value is expected
    const OptionInfo* target() const
    {
        if (m_awaiting != nullptr) {
            return m_awaiting;
        }
        std::size_t place = m_arguments.size();
        const OptionInfo* argument = nullptr;
        for (const OptionInfo& option : m_command.options) {
            if (option.argument && (argument == nullptr || place > 0)) {
                place -= argument != nullptr ? 1 : 0;
                argument = &option;
            }
        }
        return place == 0 || (argument != nullptr && argument->repeated) ? argument : nullptr;
    }

    bool isUsed(const OptionInfo& option) const
    {
        return !option.repeated && std::find(m_used.begin(), m_used.end(), &option) != m_used.end();
    }

private:
    const OptionInfo* optionOf(const std::string& name) const
    {
        for (const OptionInfo& option : m_command.options) {
            if (!option.argument &&
                std::find(option.names.begin(), option.names.end(), name) != option.names.end()) {
                return &option;
            }
        }
        return nullptr;
    }

    void take(const std::string& word)
    {
        if (word == "=") { // bash splits words there
            return;
        }
        if (m_awaiting != nullptr) {
            m_awaiting = nullptr;
        } else if (word == "--") {
            m_onlyArguments = true;
        } else if (m_onlyArguments || word == "-" || !startsWith(word, "-")) {
            m_arguments.push_back(word);
        } else if (const OptionInfo* const option = optionOf(word.substr(0, word.find('=')))) {
            m_used.push_back(option);
            m_awaiting = option->value.empty() || word.find('=') != std::string::npos ? nullptr : option;
        }
    }

    const CommandInfo& m_command;
    std::vector<std::string> m_arguments;
    std::vector<const OptionInfo*> m_used;
    const OptionInfo* m_awaiting = nullptr;
    bool m_onlyArguments = false;
    std::string m_unfinished;
    std::string m_lead;
};

Completion valuesOf(const OptionInfo& option, const TypedLine& line, const ValueSources& sources)
{
    const std::string& name = option.names.back();
    const std::string& kind = option.argument ? name : option.value;
    const auto source = sources.find(kind);
    if (source != sources.end()) {
        return {source->second({line.arguments(), option.argument ? std::string() : name.substr(2)}), false};
    }
    return {{}, kind == "PATH" || kind == "FILE"};
}

std::vector<Candidate> optionsOf(const CommandInfo& command, const TypedLine* line)
{
    std::vector<Candidate> candidates;
    for (const OptionInfo& option : command.options) {
        if (!option.argument && (line == nullptr || !line->isUsed(option))) {
            candidates.push_back({option.names.back(), option.what});
        }
    }
    return candidates;
}

Completion commandsOf(const std::vector<CommandInfo>& commands, const std::string& unfinished)
{
    Completion completion;
    if (startsWith(unfinished, "-")) {
        completion.candidates = optionsOf(commands.front(), nullptr);
    } else {
        for (std::size_t i = 1; i < commands.size(); ++i) {
            completion.candidates.push_back({commands[i].name, commands[i].what});
        }
    }
    return completion;
}

void filterByPrefix(const std::string& begin, std::vector<Candidate>& candidates)
{
    candidates.erase(
        std::remove_if(candidates.begin(), candidates.end(),
                       [&begin](const Candidate& candidate) { return !startsWith(candidate.text, begin); }),
        candidates.end());
}

} // namespace

Completion complete(const std::vector<CommandInfo>& commands, const std::vector<std::string>& words,
                    const ValueSources& sources)
{
    if (words.empty()) {
        return commandsOf(commands, std::string());
    }
    if (words.size() == 1) {
        Completion completion = commandsOf(commands, words.front());
        filterByPrefix(words.front(), completion.candidates);
        return completion;
    }
    const auto command =
        std::find_if(commands.begin() + 1, commands.end(),
                     [&](const CommandInfo& candidate) { return candidate.name == words.front(); });
    if (command == commands.end()) {
        return {};
    }
    const TypedLine line(*command, words);
    Completion completion;
    if (line.completesOption()) {
        completion.candidates = optionsOf(*command, &line);
    } else if (const OptionInfo* const target = line.target()) {
        completion = valuesOf(*target, line, sources);
    }
    filterByPrefix(line.unfinished(), completion.candidates);
    for (Candidate& candidate : completion.candidates) {
        candidate.text.insert(0, line.lead());
    }
    return completion;
}

std::string completionText(const Completion& completion)
{
    std::string text = completion.files ? ":files\n" : "";
    for (const Candidate& candidate : completion.candidates) {
        text += candidate.text + '\t' + candidate.what + '\n';
    }
    return text;
}

} // namespace TelvaneTool
