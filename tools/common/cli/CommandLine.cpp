#include "common/cli/CommandLine.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/HelpFormatter.h"
#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <exception>
#include <limits>
#include <string_view>
#include <type_traits>

namespace TelvaneTool
{

namespace
{

CommandInfo describeCommand(const CLI::App& app)
{
    CommandInfo command;
    command.name = app.get_name();
    command.what = app.get_description();
    for (const CLI::Option* const option : app.get_options()) {
        OptionInfo& info = command.options.emplace_back();
        info.argument = option->get_positional();
        info.repeated = isRepeated(*option);
        info.value = placeholderOf(*option);
        info.what = option->get_description();
        if (info.argument) {
            info.names.push_back(option->get_name(true));
        }
        for (const std::string& name : option->get_snames()) {
            info.names.push_back("-" + name);
        }
        for (const std::string& name : option->get_lnames()) {
            info.names.push_back("--" + name);
        }
    }
    return command;
}

std::string quoted(const std::string& text)
{
    return "\"" + text + "\"";
}

/// \return why a text is not a number of a type; empty if it is
/// @{
template <class Number, std::enable_if_t<std::is_integral_v<Number>, int> = 0>
std::string numberError(const std::string& text)
{
    Number number = 0;
    const char* const begin = text.data() + (text.size() > 1 && text.front() == '+' ? 1 : 0);
    const auto [rest, error] = std::from_chars(begin, text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) {
        return "expected at most " + std::to_string(std::numeric_limits<Number>::max()) + ", got " +
               quoted(text);
    }
    return error == std::errc() && rest == text.data() + text.size()
               ? ""
               : "expected an integer, got " + quoted(text);
}
template <class Number, std::enable_if_t<std::is_floating_point_v<Number>, int> = 0>
std::string numberError(const std::string& text)
{
    double number = 0.0;
    return readNumber(text, number) ? "" : "expected a number, got " + quoted(text);
}
/// @}

template <class Value>
void checkNumber(CLI::Option& option)
{
    if constexpr (std::is_arithmetic_v<Value> && !std::is_same_v<Value, char>) {
        option.check([](const std::string& text) { return numberError<Value>(text); });
    }
}

/// Adds a check of a number, after the one that it is a number.
template <class Accepts>
void checkRange(CLI::Option& option, const std::string& expected, Accepts accepts)
{
    option.check([expected, accepts](const std::string& text) {
        double number = 0.0;
        return readNumber(text, number) && accepts(number) ? std::string()
                                                           : "expected " + expected + ", got " + quoted(text);
    });
}

} // namespace

std::string checkFileName(const std::string& text)
{
    return text.empty() ? "the name of the file is empty" : "";
}

bool isCompletion(int argc, const char* const* argv)
{
    return argc > 3 && std::string_view(argv[1]) == "complete" && std::string_view(argv[2]) == "--";
}

Option& Option::required()
{
    m_option->required();
    return *this;
}

Option& Option::positive()
{
    checkRange(*m_option, "a number greater than 0", [](double number) { return number > 0.0; });
    return *this;
}

Option& Option::notNegative()
{
    checkRange(*m_option, "a number that is not negative", [](double number) { return number >= 0.0; });
    return *this;
}

Option& Option::within(double min, double max)
{
    checkRange(*m_option, formatted("a number from %g to %g", min, max),
               [min, max](double number) { return number >= min && number <= max; });
    return *this;
}

Option& Option::check(const std::function<std::string(const std::string& text)>& validate)
{
    m_option->check(validate);
    return *this;
}

Option& Option::size()
{
    m_option->transform([](const std::string& text) {
        std::uint64_t bytes = 0;
        if (numberError<std::uint64_t>(text).empty() ||
            text.find_first_not_of("0123456789") == std::string::npos) {
            return text;
        }
        if (!readSize(text, bytes)) {
            throw CLI::ValidationError(quoted(text) + " is not a size; use, for example, 4096, 64K or 100M");
        }
        return std::to_string(bytes);
    });
    return typeName("SIZE");
}

Option& Option::needs(const char* other)
{
    m_option->needs(other);
    return *this;
}

Option& Option::excludes(const char* other)
{
    m_option->excludes(other);
    return *this;
}

Option& Option::typeName(const char* name)
{
    m_option->type_name(name);
    return *this;
}

Option& Option::group(const char* heading)
{
    m_option->group(heading);
    return *this;
}

Option& Option::showDefault()
{
    m_option->capture_default_str();
    return *this;
}

Option& Option::showDefault(const char* text)
{
    m_option->default_str(text);
    return *this;
}

Option& Option::repeatable()
{
    m_option->take_all()->allow_extra_args(false);
    return *this;
}

Command::Command(CommandLine& line, const char* name, const char* what)
    : m_line(line), m_app(line.m_app->add_subcommand(name, what))
{
    m_app->group("Commands");
}

Command::Command(CommandLine& line) : m_line(line), m_app(line.m_app.get())
{
    m_app->require_subcommand(0);
    line.m_hasCommands = false;
}

template <class Value>
Option Command::option(const char* name, Value& value, const std::string& what)
{
    CLI::Option* const option = m_app->add_option(name, value, what);
    checkNumber<Value>(*option);
    return Option(option);
}

Option Command::optionReadBy(const std::function<std::string(const std::string& text)>& read,
                             const char* name, const std::string& what)
{
    const auto readOrThrow = [name, read](const std::string& text) {
        if (const std::string error = read(text); !error.empty()) {
            throw CLI::ValidationError(name, error);
        }
    };
    return Option(m_app->add_option_function<std::string>(name, readOrThrow, what));
}

Option Command::flag(const char* name, bool& value, const std::string& what)
{
    return Option(m_app->add_flag(name, value, what));
}

bool Command::given(const char* name) const
{
    return m_app->count(name) != 0;
}

void Command::examples(const std::string& lines)
{
    const std::string trimmed = lines.substr(0, lines.find_last_not_of('\n') + 1);
    const std::string text = "Examples:\n  " + CLI::detail::find_and_replace(trimmed, "\n", "\n  ");
    const std::string footer = m_app->get_parent() == nullptr ? m_app->get_footer() : std::string();
    m_app->footer(footer.empty() ? text : text + "\n\n" + footer);
}

void Command::hide()
{
    m_app->group("");
}

void Command::run(const std::function<int()>& work)
{
    m_app->callback([line = &m_line, app = m_app, work] {
        setMessagePrefix(app->get_parent() != nullptr ? line->m_program + " " + app->get_name()
                                                      : line->m_program);
        line->m_exitCode = work();
    });
}

CommandLine::CommandLine(const char* what, const char* version, const char* footer, const char* program)
    : m_program(program), m_app(std::make_unique<CLI::App>(what, program)), m_exitCode(kSuccess)
{
    m_app->set_version_flag("--version", version, "Print the version and exit");
    m_app->set_help_flag("-h,--help", "Print this help and exit");
    m_app->require_subcommand(1);
    m_app->formatter(makeHelpFormatter());
    m_app->footer(footer);
}

CommandLine::~CommandLine() = default;

bool CommandLine::hasCommand(const std::string& name) const
{
    const auto commands = m_app->get_subcommands([](const CLI::App*) { return true; });
    return std::any_of(commands.begin(), commands.end(),
                       [&name](const CLI::App* command) { return command->get_name() == name; });
}

std::vector<CommandInfo> CommandLine::describe() const
{
    std::vector<CommandInfo> commands = {describeCommand(*m_app)};
    commands.front().name.clear();
    const auto shown = [](const CLI::App* command) {
        return !command->get_group().empty();
    };
    for (const CLI::App* const command : m_app->get_subcommands(shown)) {
        commands.push_back(describeCommand(*command));
    }
    return commands;
}

int CommandLine::printCompletion(std::vector<std::string> words) const
{
    std::vector<CommandInfo> commands = describe();
    if (!m_hasCommands) {
        commands = {commands.front(), commands.front()};
        words.insert(words.begin(), commands.back().name = m_program);
    }
    return writeResult(completionText(complete(commands, words, m_values)));
}

int CommandLine::run(int argc, const char* const* argv)
{
    if (isCompletion(argc, argv) && !hasCommand("complete")) {
        return printCompletion({argv + 3, argv + argc});
    }
    if (m_hasCommands && argc > 1 && argv[1][0] != '-' && !hasCommand(argv[1])) {
        printError("unknown command \"" + std::string(argv[1]) + "\"; see " + m_program + " --help");
        return kWrongUsage;
    }
    try {
        m_app->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return m_app->exit(error); // prints the help or the version
        }
        std::string command = m_program;
        for (const CLI::App* const chosen : m_app->get_subcommands()) {
            command += " " + chosen->get_name();
        }
        setMessagePrefix(command);
        if (m_hasCommands && m_app->get_subcommands().empty()) {
            printError((argc > 1 ? "unknown option " + quoted(argv[1]) : "a command is required") + "; see " +
                       m_program + " --help");
            return kWrongUsage;
        }
        printError(std::string(error.what()) + " (see " + command + " --help)");
        return kWrongUsage;
    } catch (const std::exception& error) {
        printError(std::string("unexpected error: ") + error.what());
        return kWrongInput;
    }
    return m_exitCode;
}

// CLI11's templates are instantiated here only.
#define TELVANE_OPTION_OF(...)                                                                               \
    template Option Command::option(const char* name, __VA_ARGS__& value, const std::string& what)

TELVANE_OPTION_OF(std::string);
TELVANE_OPTION_OF(std::vector<std::string>);
TELVANE_OPTION_OF(char);
TELVANE_OPTION_OF(int);
TELVANE_OPTION_OF(unsigned);
TELVANE_OPTION_OF(long);
TELVANE_OPTION_OF(unsigned long);
TELVANE_OPTION_OF(long long);
TELVANE_OPTION_OF(unsigned long long);
TELVANE_OPTION_OF(double);

#undef TELVANE_OPTION_OF

} // namespace TelvaneTool
