#include "common/cli/Programs.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kNameColumn = 15;

/// Any other program named telvane-NAME is executed as well; only these are listed.
const std::vector<Program>& knownPrograms()
{
    static const std::vector<Program> programs = {
        {"mqtt", "Connect a bus to an MQTT broker"},
        {"archive", "Archive the records of a bus"},
        {"welds", "Query archived welds"},
        {"web", "Show a bus in the browser"},
    };
    return programs;
}

/// A name becomes part of a path, so it must not contain a slash.
bool isName(const std::string& name)
{
    constexpr const char* kCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";
    return !name.empty() && name.front() != '-' && name.find_first_not_of(kCharacters) == std::string::npos;
}

bool isExecutable(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0;
}

std::string ownDirectory()
{
    std::string path(4096, '\0');
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    if (length <= 0) {
        return {};
    }
    path.resize(static_cast<std::size_t>(length));
    return path.substr(0, path.rfind('/'));
}

} // namespace

std::vector<std::string> programDirectories()
{
    std::vector<std::string> directories = {ownDirectory()};
    const char* const path = getenv("PATH");
    const std::string list = path != nullptr ? path : "";
    for (std::size_t begin = 0; begin <= list.size();) {
        const std::size_t end = std::min(list.find(':', begin), list.size());
        directories.push_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    const auto isRelative = [](const std::string& directory) {
        return directory.empty() || directory.front() != '/';
    };
    directories.erase(std::remove_if(directories.begin(), directories.end(), isRelative), directories.end());
    return directories;
}

std::string findProgram(const std::string& name, const std::vector<std::string>& directories)
{
    if (!isName(name)) {
        return {};
    }
    for (const std::string& directory : directories) {
        std::string path = directory;
        path += "/telvane-" + name;
        if (isExecutable(path)) {
            return path;
        }
    }
    return {};
}

std::vector<Program> installedPrograms(const std::vector<std::string>& directories)
{
    std::vector<Program> programs;
    for (const Program& program : knownPrograms()) {
        if (!findProgram(program.name, directories).empty()) {
            programs.push_back(program);
        }
    }
    return programs;
}

std::string programHelp(const std::vector<Program>& programs)
{
    std::string text = programs.empty() ? "" : "Programs:\n";
    for (const Program& program : programs) {
        std::string term = "  " + program.name;
        term.resize(std::max(kNameColumn, term.size() + 1), ' ');
        text += term + program.what + '\n';
    }
    return text;
}

int completeProgram(const std::vector<std::string>& words)
{
    const std::vector<std::string> directories = programDirectories();
    const std::vector<Program> programs = installedPrograms(directories);
    // Other programs may do anything when they are called with these words.
    if (std::none_of(programs.begin(), programs.end(),
                     [&](const Program& program) { return program.name == words.front(); })) {
        return kSuccess;
    }
    const std::string path = findProgram(words.front(), directories);
    std::vector<std::string> texts = {"telvane-" + words.front(), "complete", "--"};
    texts.insert(texts.end(), words.begin() + 1, words.end());
    std::vector<char*> arguments;
    arguments.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        arguments.push_back(text.data());
    }
    arguments.push_back(nullptr);
    execv(path.c_str(), arguments.data());
    return kWrongUsage;
}

int executeProgram(char** argv)
{
    const std::string name = argv[1];
    const std::vector<std::string> directories = programDirectories();
    const std::string path = findProgram(name, directories);
    if (path.empty()) {
        std::string error = "unknown command \"" + name + "\"";
        if (isName(name)) {
            error += ", and no program telvane-" + name + " is installed";
        }
        std::string installed;
        for (const Program& program : installedPrograms(directories)) {
            installed += (installed.empty() ? "" : ", ") + program.name;
        }
        error += installed.empty() ? "" : " (installed: " + installed + ")";
        printError(error + "; see telvane --help");
        return kWrongUsage;
    }
    std::string ownName = "telvane-" + name;
    argv[1] = ownName.data();
    execv(path.c_str(), argv + 1);
    printError("cannot execute " + path + ": " + std::strerror(errno));
    return kWrongUsage;
}

} // namespace TelvaneTool
