/// \file
/// Bytes as printable text: four bytes become five characters from "!" to "u", four zero bytes become "z".
///
/// A tail of n bytes (1 to 3) becomes 4 - n characters, not n + 1 as elsewhere; a standard decoder does not
/// bring a tail back. No delimiters and no line breaks are written. May be used from any thread.
#pragma once

#include <Telvane/Export.h>

#include <string>

/// Encodes one group.
/// \param value the group's four bytes, the first one highest
/// \param[out] out receives exactly 5 characters, without a terminator
TELVANE_EXPORT void encode_block(unsigned int value, char* out);

/// Encodes \p data behind what \p text already holds.
/// \param data the bytes; must not lie in \p text
/// \param length their count
/// \return \p length, or 0 with nothing done when \p length is below 1
/// \throws std::length_error when \p text would exceed its maximum size
TELVANE_EXPORT int encode_ascii85(const char* data, int length, std::string& text);
