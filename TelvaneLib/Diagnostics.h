#pragma once

// The library's diagnostics are single lines on the process's standard streams. A line is put together
// first and written in one piece, so that lines of several threads do not mix.

#include <iostream>
#include <string>

namespace Telvane
{

inline void writeErrorLine(std::string line)
{
    line += '\n';
    std::cerr.write(line.data(), static_cast<std::streamsize>(line.size())).flush();
}

inline void writeOutputLine(std::string line)
{
    line += '\n';
    std::cout.write(line.data(), static_cast<std::streamsize>(line.size())).flush();
}

} // namespace Telvane
