#include "helpers/TestPaths.h"

std::string sourceDirectory()
{
    return TELVANE_SOURCE_DIR;
}

std::string binaryDirectory()
{
    return TELVANE_BINARY_DIR;
}
