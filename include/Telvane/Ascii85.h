/// \file
/// An ASCII85 encoder: four bytes become five characters from "!" to "u", and four zero bytes become "z".
///
/// One to three bytes at the end become 4 - n characters, not n + 1 as usual, so a standard decoder does not
/// restore them. The encoder writes no delimiters and no line breaks. It may be used from any thread.
#pragma once

#include <Telvane/detail/Export.h>

#include <string>

/// Encodes four bytes.
/// \param      value the bytes; the first is the most significant
/// \param[out] out   set to 5 characters, without a terminator
TELVANE_EXPORT void encode_block(unsigned int value, char* out);

/// Encodes bytes and appends the result to \p text.
/// \param         data   the bytes; must not be part of \p text
/// \param         length count of bytes
/// \param[in,out] text   receives the characters
/// \return \p length; 0 if it is below 1, and \p text is unchanged
/// \throws std::length_error if \p text would exceed its maximum size
/// \throws std::bad_alloc if memory runs out
TELVANE_EXPORT int encode_ascii85(const char* data, int length, std::string& text);
