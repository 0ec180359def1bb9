#pragma once

// Programs that extend the tool: `telvane NAME` executes `telvane-NAME`. They have dependencies that the tool does
// not have, and packages of their own.

#include <string>
#include <vector>

namespace TelvaneTool
{

/// A program that extends the tool.
struct Program
{
    std::string name; ///< as in `telvane NAME`
    std::string what; ///< description for the help
};

/// \return the directory of this executable, then the absolute directories of PATH
std::vector<std::string> programDirectories();

/// \param name as in `telvane NAME`; letters, digits, '-' and '_'
/// \return the first executable `telvane-NAME` in the directories, with its path; empty if there is none
std::string findProgram(const std::string& name, const std::vector<std::string>& directories);

/// \return those of the known programs that the directories contain
std::vector<Program> installedPrograms(const std::vector<std::string>& directories);

/// \return the section of the help that lists programs; empty without programs
std::string programHelp(const std::vector<Program>& programs);

/// Replaces this process by `telvane-NAME`, which gets the arguments after the name. Call this before signals are
/// blocked, because the program inherits their mask.
/// \param argv the tool's own arguments, with the name at index 1, terminated by a null pointer
/// \return only on failure, with an exit code, after printing an error
int executeProgram(char** argv);

/// Executes a program that completes its own command line.
/// \param words NAME and the words after it
/// \return an exit code, only if there is no such program
int completeProgram(const std::vector<std::string>& words);

} // namespace TelvaneTool
