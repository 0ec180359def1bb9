#include "common/cli/Messages.h"

#include "common/cli/ExitCodes.h"
#include "common/support/FileDescriptor.h"
#include "common/text/PrintableText.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

std::string& messagePrefix()
{
    static std::string prefix = "telvane";
    return prefix;
}

} // namespace

void setMessagePrefix(const std::string& prefix)
{
    messagePrefix() = prefix;
}

void printError(std::string_view message)
{
    std::string line = messagePrefix() + ": ";
    line.append(printable(withShortQuotes(message), Lines::Remove)).append("\n");
    writeFully(STDERR_FILENO, line); // a failure cannot be reported anywhere
}

void printStatus(std::string_view message)
{
    printError(message);
}

void discardOutput(int fd)
{
    const FileDescriptor null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    dup2(null.get(), fd);
}

int writeResult(std::string_view text)
{
    const int error = writeFully(STDOUT_FILENO, printable(text, Lines::Keep));
    if (error == 0) {
        return kSuccess;
    }
    if (error == EPIPE) {
        return kOutputClosed;
    }
    printError(std::string("cannot write to standard output: ") + std::strerror(error));
    return kOutputFailure;
}

std::string readFile(const std::string& path)
{
    errno = 0;
    std::ifstream file(path);
    std::ostringstream text;
    if (text << file.rdbuf()) {
        return text.str();
    }
    printError("cannot read " + path + ": " + (errno != 0 ? std::strerror(errno) : "the file is empty"));
    return {};
}

} // namespace TelvaneTool
