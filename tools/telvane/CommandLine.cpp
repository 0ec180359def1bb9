#include "CommandLine.h"

#include "ExitCodes.h"
#include "Messages.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>

namespace TelvaneTool
{

Option& Option::required()
{
    m_option->required();
    return *this;
}

Option& Option::positive()
{
    m_option->check(CLI::PositiveNumber);
    return *this;
}

Option& Option::notNegative()
{
    m_option->check(CLI::NonNegativeNumber);
    return *this;
}

Option& Option::within(double least, double most)
{
    m_option->check(CLI::Range(least, most));
    return *this;
}

Option& Option::check(const std::function<std::string(const std::string& text)>& complaint)
{
    m_option->check(complaint);
    return *this;
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

Option& Option::repeatable()
{
    m_option->take_all()->allow_extra_args(false);
    return *this;
}

Command::Command(CommandLine& line, const char* name, const char* what)
    : m_line(line), m_app(line.m_app->add_subcommand(name, what))
{}

template <class Value>
Option Command::option(const char* name, Value& value, const std::string& what)
{
    return Option(m_app->add_option(name, value, what));
}

Option Command::optionReadBy(const std::function<std::string(const std::string& text)>& read,
                             const char* name, const std::string& what)
{
    const auto readOrRefuse = [name, read](const std::string& text) {
        if (const std::string complaint = read(text); !complaint.empty()) {
            throw CLI::ValidationError(name, complaint);
        }
    };
    return Option(m_app->add_option_function<std::string>(name, readOrRefuse, what));
}

Option Command::flag(const char* name, bool& value, const std::string& what)
{
    return Option(m_app->add_flag(name, value, what));
}

void Command::exactlyOneOf(const char* one, const char* other)
{
    CLI::Option* const first = m_app->get_option(one);
    CLI::Option* const second = m_app->get_option(other);
    auto* const choice = m_app->add_option_group(std::string(one) + " or " + other);
    choice->add_options(first, second);
    choice->require_option(1);
}

bool Command::given(const char* name) const
{
    return m_app->count(name) != 0;
}

void Command::examples(const std::string& lines)
{
    m_app->footer("Examples:\n" + lines);
}

void Command::run(const std::function<int()>& work)
{
    m_app->callback([line = &m_line, app = m_app, work] {
        setMessagePrefix("telvane " + app->get_name());
        line->m_exitCode = work();
    });
}

CommandLine::CommandLine(const char* what, const char* version, const char* footer)
    : m_app(std::make_unique<CLI::App>(what, "telvane")), m_exitCode(kSuccess)
{
    m_app->set_version_flag("--version", version);
    m_app->require_subcommand(1);
    m_app->footer(footer);
}

CommandLine::~CommandLine() = default;

bool CommandLine::hasCommand(const std::string& name) const
{
    const auto commands = m_app->get_subcommands([](const CLI::App*) { return true; });
    return std::any_of(commands.begin(), commands.end(),
                       [&name](const CLI::App* command) { return command->get_name() == name; });
}

int CommandLine::run(int argc, const char* const* argv)
{
    if (argc > 1 && argv[1][0] != '-' && !hasCommand(argv[1])) {
        complain("there is no command \"" + std::string(argv[1]) + "\"; telvane --help lists them");
        return kWrongUsage;
    }
    try {
        m_app->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return m_app->exit(error); // prints the help or the version that was asked for
        }
        std::string command = "telvane";
        for (const CLI::App* const chosen : m_app->get_subcommands()) {
            command += " " + chosen->get_name();
        }
        setMessagePrefix(command);
        complain(std::string(error.what()) + " (" + command + " --help tells more)");
        return kWrongUsage;
    } catch (const std::exception& error) {
        complain(std::string("unexpected error: ") + error.what());
        return kWrongInput;
    }
    return m_exitCode;
}

// What CLI11 reads into one of these is compiled here and nowhere else.
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
