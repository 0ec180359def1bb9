#include "serve/ProgramName.h"

#include <fstream>

namespace TelvaneTool
{

std::string programOf(pid_t process)
{
    const std::string directory = "/proc/" + std::to_string(process);
    std::string name;
    std::getline(std::ifstream(directory + "/comm"), name);
    if (name == "telvane") {
        // Add the subcommand.
        std::string word;
        std::ifstream words(directory + "/cmdline");
        std::getline(words, word, '\0');
        std::getline(words, word, '\0');
        name += " " + word;
    }
    // A process can set any name; replace everything but printable ASCII.
    for (char& character : name) {
        character = character >= ' ' && character <= '~' ? character : '?';
    }
    return name;
}

} // namespace TelvaneTool
