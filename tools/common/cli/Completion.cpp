#include "common/cli/Completion.h"

#include <algorithm>
#include <utility>

namespace TelvaneTool
{

namespace
{

bool startsWith(const std::string& text, const std::string& begin)
{
    return text.compare(0, begin.size(), begin) == 0;
}

/// A command line as far as it has been typed.
class TypedLine
{
public:
    TypedLine(const CommandText& command, const std::vector<std::string>& words) : m_command(command)
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
    /// \return what stands before the unfinished value in the same word: "--as="
    const std::string& lead() const { return m_lead; }
    const std::vector<std::string>& arguments() const { return m_arguments; }
    bool wantsOption() const
    {
        return m_awaiting == nullptr && !m_onlyArguments && startsWith(m_unfinished, "-");
    }

    /// \return the option whose value is wanted, or the argument; null when there is to be none
    const OptionText* wanted() const
    {
        if (m_awaiting != nullptr) {
            return m_awaiting;
        }
        std::size_t place = m_arguments.size();
        const OptionText* argument = nullptr;
        for (const OptionText& option : m_command.options) {
            if (option.argument && (argument == nullptr || place > 0)) {
                place -= argument != nullptr ? 1 : 0;
                argument = &option;
            }
        }
        return place == 0 || (argument != nullptr && argument->repeated) ? argument : nullptr;
    }

    bool hasBeenGiven(const OptionText& option) const
    {
        return !option.repeated && std::find(m_given.begin(), m_given.end(), &option) != m_given.end();
    }

private:
    const OptionText* optionOf(const std::string& name) const
    {
        for (const OptionText& option : m_command.options) {
            if (!option.argument &&
                std::find(option.names.begin(), option.names.end(), name) != option.names.end()) {
                return &option;
            }
        }
        return nullptr;
    }

    void take(const std::string& word)
    {
        if (word == "=") { // some shells take words apart there
            return;
        }
        if (m_awaiting != nullptr) {
            m_awaiting = nullptr;
        } else if (word == "--") {
            m_onlyArguments = true;
        } else if (m_onlyArguments || word == "-" || !startsWith(word, "-")) {
            m_arguments.push_back(word);
        } else if (const OptionText* const option = optionOf(word.substr(0, word.find('=')))) {
            m_given.push_back(option);
            m_awaiting = option->value.empty() || word.find('=') != std::string::npos ? nullptr : option;
        }
    }

    const CommandText& m_command;
    std::vector<std::string> m_arguments;
    std::vector<const OptionText*> m_given;
    const OptionText* m_awaiting = nullptr;
    bool m_onlyArguments = false;
    std::string m_unfinished;
    std::string m_lead;
};

Completion valuesOf(const OptionText& option, const TypedLine& line, const ValueSources& sources)
{
    const std::string& name = option.names.back();
    const std::string& kind = option.argument ? name : option.value;
    const auto source = sources.find(kind);
    if (source != sources.end()) {
        return {source->second({line.arguments(), option.argument ? std::string() : name.substr(2)}), false};
    }
    return {{}, kind == "PATH" || kind == "FILE"};
}

std::vector<Candidate> optionsOf(const CommandText& command, const TypedLine* line)
{
    std::vector<Candidate> candidates;
    for (const OptionText& option : command.options) {
        if (!option.argument && (line == nullptr || !line->hasBeenGiven(option))) {
            candidates.push_back({option.names.back(), option.what});
        }
    }
    return candidates;
}

Completion commandsOf(const std::vector<CommandText>& commands, const std::string& unfinished)
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

void keepThoseThatBeginWith(const std::string& begin, std::vector<Candidate>& candidates)
{
    candidates.erase(
        std::remove_if(candidates.begin(), candidates.end(),
                       [&begin](const Candidate& candidate) { return !startsWith(candidate.text, begin); }),
        candidates.end());
}

} // namespace

Completion complete(const std::vector<CommandText>& commands, const std::vector<std::string>& words,
                    const ValueSources& sources)
{
    if (words.empty()) {
        return commandsOf(commands, std::string());
    }
    if (words.size() == 1) {
        Completion completion = commandsOf(commands, words.front());
        keepThoseThatBeginWith(words.front(), completion.candidates);
        return completion;
    }
    const auto command =
        std::find_if(commands.begin() + 1, commands.end(),
                     [&](const CommandText& candidate) { return candidate.name == words.front(); });
    if (command == commands.end()) {
        return {};
    }
    const TypedLine line(*command, words);
    Completion completion;
    if (line.wantsOption()) {
        completion.candidates = optionsOf(*command, &line);
    } else if (const OptionText* const wanted = line.wanted()) {
        completion = valuesOf(*wanted, line, sources);
    }
    keepThoseThatBeginWith(line.unfinished(), completion.candidates);
    for (Candidate& candidate : completion.candidates) {
        candidate.text.insert(0, line.lead());
    }
    return completion;
}

} // namespace TelvaneTool
