#pragma once

// The command line of a tool: a layer over CLI11 that keeps its headers, which are slow to compile, out of the
// subcommands.

#include "common/cli/Completion.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace TelvaneTool
{

/// An option or argument of a subcommand. Each function returns the option, so that calls can be chained.
class Option
{
public:
    Option& required();
    /// \name Checks
    /// A value that fails is an error, with kWrongUsage.
    /// @{
    Option& positive();
    Option& notNegative();
    Option& within(double min, double max);
    /// \param validate returns an error message, or an empty text
    Option& check(const std::function<std::string(const std::string& text)>& validate);
    /// \param other name of an option that must also be given, such as "--as"
    Option& needs(const char* other);
    Option& excludes(const char* other);
    /// @}
    /// For an integer: also takes a size with a unit, such as "64K" or "100M".
    Option& size();
    /// \name Help
    /// @{
    /// \param name placeholder of the value
    Option& typeName(const char* name);
    Option& group(const char* heading);
    Option& showDefault();
    Option& showDefault(const char* text);
    /// @}
    /// For a vector: keeps the values of all occurrences, one value each.
    Option& repeatable();

private:
    friend class Command;
    explicit Option(CLI::Option* option) : m_option(option) {}

    CLI::Option* m_option;
};

class CommandLine;

/// For Option::check(): refuses an empty name, such as that of a variable that a unit does not set. For files without
/// which a program would do less than it should, as for access control.
std::string checkFileName(const std::string& text);

/// \return whether a program is called as "PROGRAM complete -- WORD...", to complete its own command line
bool isCompletion(int argc, const char* const* argv);

/// A subcommand, or all of a program without subcommands. The variables of its options must exist until
/// CommandLine::run() returns.
class Command
{
public:
    Command(CommandLine& line, const char* name, const char* what);
    /// Makes the program one without subcommands: the options are its own.
    explicit Command(CommandLine& line);

    /// Adds an option ("--speed") or an argument ("PATH").
    /// \tparam Value std::string, a vector of them, or a number; see the end of CommandLine.cpp
    template <class Value>
    Option option(const char* name, Value& value, const std::string& what);
    /// Adds an option whose value is parsed by a function.
    /// \param read returns an error message, or an empty text
    Option optionReadBy(const std::function<std::string(const std::string& text)>& read, const char* name,
                        const std::string& what);
    Option flag(const char* name, bool& value, const std::string& what);

    /// \return whether the option was on the command line
    bool given(const char* name) const;

    /// Sets the examples at the end of the help.
    /// \param lines commands, and comments that begin with '#'
    void examples(const std::string& lines);

    /// Omits the subcommand from the help.
    void hide();

    /// Sets the function to run, which returns the exit code. Call this last.
    void run(const std::function<int()>& work);

private:
    CommandLine& m_line;
    CLI::App* m_app;
};

/// The command line of a whole program.
class CommandLine
{
public:
    /// \param footer end of the program's help
    /// \param program name of the program, for its help and its messages
    CommandLine(const char* what, const char* version, const char* footer, const char* program = "telvane");
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;
    ~CommandLine();

    /// Parses the arguments and runs the subcommand.
    /// \return the exit code
    int run(int argc, const char* const* argv);

    /// \return the subcommands for completion; the first one, without a name, has the tool's own options
    std::vector<CommandInfo> describe() const;

    bool hasCommand(const std::string& name) const;

    /// Sets what completes the values of options in a program of its own. Its own "complete -- WORD..." prints the
    /// candidates; `telvane complete` calls it.
    void completeWith(ValueSources sources) { m_values = std::move(sources); }

private:
    friend class Command;

    int printCompletion(std::vector<std::string> words) const;

    std::string m_program;
    std::unique_ptr<CLI::App> m_app;
    ValueSources m_values;
    bool m_hasCommands = true;
    int m_exitCode;
};

} // namespace TelvaneTool
