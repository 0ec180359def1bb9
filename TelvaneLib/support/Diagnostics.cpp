// Each line is written in one piece, so that lines of several threads do not mix. If there is no memory to
// assemble it, it is written in pieces.

#include "support/Diagnostics.h"

#include <iostream>
#include <new>
#include <string>

namespace Telvane
{

namespace
{

void writeLine(std::ostream& stream, std::string_view text, std::string_view rest)
{
    try {
        std::string line;
        line.reserve(text.size() + rest.size() + 1);
        line.append(text).append(rest).append(1, '\n');
        stream.write(line.data(), static_cast<std::streamsize>(line.size())).flush();
    } catch (const std::bad_alloc&) {
        stream << text << rest << std::endl;
    }
}

} // namespace

void writeErrorLine(std::string_view text, std::string_view rest)
{
    writeLine(std::cerr, text, rest);
}

void writeOutputLine(std::string_view text, std::string_view rest)
{
    writeLine(std::cout, text, rest);
}

} // namespace Telvane
