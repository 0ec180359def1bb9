// Encodes a short last group differently from the standard, as existing decoders expect.

#include <Telvane/Ascii85.h>

#include <cstddef>

namespace
{

constexpr int kGroupBytes = 4;
constexpr int kGroupCharacters = 5;

/// \return the first \p count bytes of \p data (at most 4), the first as the most significant; missing bytes
///         are 0
unsigned int groupOf(const char* data, int count)
{
    unsigned int value = 0;
    for (int i = 0; i < count; ++i) {
        value |= static_cast<unsigned int>(static_cast<unsigned char>(data[i])) << (24 - 8 * i);
    }
    return value;
}

} // namespace

void encode_block(unsigned int value, char* out)
{
    for (int position = kGroupCharacters - 1; position >= 0; --position) {
        out[position] = static_cast<char>(value % 85 + '!');
        value /= 85;
    }
}

int encode_ascii85(const char* data, int length, std::string& text)
{
    if (length < 1) {
        return 0;
    }
    char block[kGroupCharacters];
    const int tail = length % kGroupBytes;
    const char* const end = data + (length - tail);
    for (; data != end; data += kGroupBytes) {
        const unsigned int value = groupOf(data, kGroupBytes);
        if (value == 0) {
            text.append("z", 1);
        } else {
            encode_block(value, block);
            text.append(block, kGroupCharacters);
        }
    }
    if (tail > 0) {
        encode_block(groupOf(data, tail), block);
        text.append(block, static_cast<std::size_t>(kGroupBytes - tail));
    }
    return length;
}
