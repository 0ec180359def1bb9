#pragma once

// The command line of the tool: a layer over CLI11 without templates of CLI11's own, because what includes
// those takes longer to compile than everything else of a subcommand.

#include "common/cli/HelpText.h"

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

/// One option or argument of a subcommand. Each call returns the option, for the next.
class Option
{
public:
    Option& required();
    /// \name What is refused, with an error message and kWrongUsage
    /// @{
    Option& positive();
    Option& notNegative();
    Option& within(double least, double most);
    /// \param complaint returns what is wrong with a text, or nothing
    Option& check(const std::function<std::string(const std::string& text)>& complaint);
    /// \param other option that has to be given, too, such as "--as"
    Option& needs(const char* other);
    Option& excludes(const char* other);
    /// @}
    /// \name What the help shows
    /// @{
    Option& typeName(const char* name);
    Option& group(const char* heading);
    Option& showDefault();
    /// @}
    /// Of a vector: every value is kept, with one value each time the option is given.
    Option& repeatable();

private:
    friend class Command;
    explicit Option(CLI::Option* option) : m_option(option) {}

    CLI::Option* m_option;
};

class CommandLine;

/// A subcommand. The variables that it fills must live until the command line has been run.
class Command
{
public:
    Command(CommandLine& line, const char* name, const char* what);

    /// Adds an option ("--speed") or an argument ("PATH").
    /// \tparam Value std::string, a vector of them, a whole number or double; see the end of CommandLine.cpp
    template <class Value>
    Option option(const char* name, Value& value, const std::string& what);
    /// Adds an option that is read by a function.
    /// \param read takes the text; returns what is wrong with it, or nothing
    Option optionReadBy(const std::function<std::string(const std::string& text)>& read, const char* name,
                        const std::string& what);
    Option flag(const char* name, bool& value, const std::string& what);
    /// Says that exactly one of these options has to be given.
    void exactlyOneOf(const char* one, const char* other);

    /// \return whether the option was on the command line
    bool given(const char* name) const;

    /// Lines of examples, which the help ends with: a command each, or what is said of the command below.
    void examples(const std::string& lines);

    /// Leaves the subcommand out of the help: people have no use for it.
    void hide();

    /// Says what the subcommand does; \p work returns the exit code. To be called last.
    void run(const std::function<int()>& work);

private:
    CommandLine& m_line;
    CLI::App* m_app;
};

/// All of it.
class CommandLine
{
public:
    /// \param footer ends the help of all of it
    CommandLine(const char* what, const char* version, const char* footer);
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;
    ~CommandLine();

    /// Reads the line and does what it says.
    /// \return the exit code
    int run(int argc, const char* const* argv);

    /// \return all of it as data, for the help and for completion: its own options come first, as a command
    ///         without a name
    std::vector<CommandText> describe() const;

private:
    friend class Command;
    bool hasCommand(const std::string& name) const;

    std::unique_ptr<CLI::App> m_app;
    std::string m_footer;
    int m_exitCode;
};

} // namespace TelvaneTool
