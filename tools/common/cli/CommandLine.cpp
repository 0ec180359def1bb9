#include "common/cli/CommandLine.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <set>

namespace TelvaneTool
{

namespace
{

std::string joined(const std::set<CLI::Option*>& options)
{
    std::string text;
    for (const CLI::Option* const option : options) {
        text += (text.empty() ? "" : ", ") + option->get_name();
    }
    return text;
}

OptionText describeOption(const CLI::Option& option)
{
    OptionText text;
    text.argument = option.get_positional();
    if (text.argument) {
        text.names.push_back(option.get_name(true));
    }
    for (const std::string& name : option.get_snames()) {
        text.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        text.names.push_back("--" + name);
    }
    if (option.get_items_expected_max() != 0) {
        const std::string type = option.get_type_name();
        text.value = type.substr(0, type.find(':')); // behind which the checks speak of themselves
        if (text.value == "FLOAT" || text.value == "INT" || text.value == "UINT") {
            text.value = "NUMBER";
        }
    }
    text.required = option.get_required();
    text.repeated = option.get_items_expected_max() > 1;
    text.what = option.get_description();
    text.group = option.get_group();
    text.defaultText = option.get_default_str();
    if (!option.get_needs().empty()) {
        text.remarks.push_back("with " + joined(option.get_needs()));
    }
    if (!option.get_excludes().empty()) {
        text.remarks.push_back("not with " + joined(option.get_excludes()));
    }
    return text;
}

bool isOptionGroup(const CLI::App* app)
{
    return app->get_name().empty();
}

CommandText describeCommand(const CLI::App& app)
{
    CommandText text;
    text.name = app.get_name();
    text.what = app.get_description();
    text.examples = app.get_footer();
    for (const CLI::Option* const option : app.get_options()) {
        text.options.push_back(describeOption(*option));
    }
    for (const CLI::App* const choice : app.get_subcommands(&isOptionGroup)) {
        for (OptionText& option : describeCommand(*choice).options) {
            option.remarks.push_back("exactly one of " + choice->get_description());
            text.options.push_back(option);
        }
    }
    return text;
}

} // namespace

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
    const std::string names = std::string(one) + " and " + other;
    auto* const choice = m_app->add_option_group(names, names);
    choice->set_help_flag();
    choice->add_options(first, second);
    choice->require_option(1);
}

bool Command::given(const char* name) const
{
    return m_app->count(name) != 0;
}

void Command::examples(const std::string& lines)
{
    m_app->footer(lines);
}

void Command::hide()
{
    m_app->group("");
}

void Command::run(const std::function<int()>& work)
{
    m_app->callback([line = &m_line, app = m_app, work] {
        setMessagePrefix("telvane " + app->get_name());
        line->m_exitCode = work();
    });
}

CommandLine::CommandLine(const char* what, const char* version, const char* footer)
    : m_app(std::make_unique<CLI::App>(what, "telvane")), m_footer(footer), m_exitCode(kSuccess)
{
    m_app->set_version_flag("--version", version, "Print the version and exit");
    m_app->set_help_flag("-h,--help", "Print this help and exit");
    m_app->require_subcommand(1);
    m_app->formatter_fn([this](const CLI::App* app, const std::string&, CLI::AppFormatMode) {
        return app == m_app.get() ? helpOfTool(describe(), m_footer) : helpOfCommand(describeCommand(*app));
    });
}

CommandLine::~CommandLine() = default;

bool CommandLine::hasCommand(const std::string& name) const
{
    const auto commands = m_app->get_subcommands([](const CLI::App*) { return true; });
    return std::any_of(commands.begin(), commands.end(),
                       [&name](const CLI::App* command) { return command->get_name() == name; });
}

std::vector<CommandText> CommandLine::describe() const
{
    std::vector<CommandText> commands = {describeCommand(*m_app)};
    commands.front().name.clear();
    const auto shown = [](const CLI::App* command) {
        return !command->get_group().empty();
    };
    for (const CLI::App* const command : m_app->get_subcommands(shown)) {
        commands.push_back(describeCommand(*command));
    }
    return commands;
}

int CommandLine::run(int argc, const char* const* argv)
{
    if (argc > 1 && argv[1][0] != '-' && !hasCommand(argv[1])) {
        printError("there is no command \"" + std::string(argv[1]) + "\"; telvane --help lists them");
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
        printError(std::string(error.what()) + " (" + command + " --help tells more)");
        return kWrongUsage;
    } catch (const std::exception& error) {
        printError(std::string("unexpected error: ") + error.what());
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
