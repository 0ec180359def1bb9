#pragma once

#include <string>

/// The root of the source tree.
std::string sourceDirectory();

/// The root of the build tree.
std::string binaryDirectory();
