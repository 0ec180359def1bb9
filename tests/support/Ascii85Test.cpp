#include <Telvane/Ascii85.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>

namespace
{

/// \return the bytes of a literal, zeros included
template <std::size_t N>
std::string bytes(const char (&literal)[N])
{
    return std::string(literal, N - 1);
}

std::string encoded(const std::string& data)
{
    std::string text;
    EXPECT_EQ(encode_ascii85(data.data(), static_cast<int>(data.size()), text),
              static_cast<int>(data.size()));
    return text;
}

std::string block(unsigned int value)
{
    char out[7] = {'<', '.', '.', '.', '.', '.', '>'};
    encode_block(value, out + 1);
    EXPECT_EQ(out[0], '<');
    EXPECT_EQ(out[6], '>');
    return std::string(out + 1, 5);
}

TEST(Ascii85Block, HasFiveCharactersTheHighestDigitFirst)
{
    EXPECT_EQ(block(0), "!!!!!");
    EXPECT_EQ(block(1), "!!!!\"");
    EXPECT_EQ(block(84), "!!!!u");
    EXPECT_EQ(block(85), "!!!\"!");
    EXPECT_EQ(block(0x4D616E20), R"(9jqo^)");
    EXPECT_EQ(block(0xFFFFFFFF), R"(s8W-!)");
}

TEST(Ascii85, EncodesGroupsAndTails)
{
    const struct
    {
        std::string data;
        const char* text;
    } examples[] = {
        {bytes("Man "), R"(9jqo^)"},
        {bytes("\000\000\000\001"), R"(!!!!")"},
        {bytes("\000\000\000\000"), R"(z)"},
        {bytes("\377\377\377\377"), R"(s8W-!)"},
        {bytes("\200\000\000\000"), R"(J,fQL)"},
        {bytes("A"), R"(5l^)"},
        {bytes("\000"), R"(!!!)"},
        {bytes("\377"), R"(rr<)"},
        {bytes("AB"), R"(5s)"},
        {bytes("\000\000"), R"(!!)"},
        {bytes("\000B"), R"(!()"},
        {bytes("\377\377"), R"(s8)"},
        {bytes("ABC"), R"(5)"},
        {bytes("\000\000\000"), R"(!)"},
        {bytes("\000\000C"), R"(!)"},
        {bytes("\377\377\377"), R"(s)"},
        {bytes("Man A"), R"(9jqo^5l^)"},
        {bytes("Man AB"), R"(9jqo^5s)"},
        {bytes("Man ABC"), R"(9jqo^5)"},
        {bytes("Man \000"), R"(9jqo^!!!)"},
        {bytes("Man \000\000"), R"(9jqo^!!)"},
        {bytes("Man \000\000\000"), R"(9jqo^!)"},
        {bytes("\000\000\000\000A"), R"(z5l^)"},
        {bytes("\000\000\000\000\000"), R"(z!!!)"},
        {bytes("Man \000\000\000\000sure"), R"(9jqo^zF*2M7)"},
        {bytes("\000\000\000\000\000\000\000\000"), R"(zz)"},
        {bytes("\360\237\224\245arc"), R"(n=PrA@)"},
    };
    for (const auto& example : examples) {
        EXPECT_EQ(encoded(example.data), example.text);
    }
}

TEST(Ascii85, TakesFiveCharactersForAGroupAndOneForAZeroGroup)
{
    std::string data;
    std::size_t expected = 0;
    for (int group = 1; group <= 20; ++group) {
        const bool zero = group % 3 == 0;
        data += zero ? bytes("\0\0\0\0") : bytes("\0\377\0\1");
        expected += zero ? 1 : 5;
        EXPECT_EQ(encoded(data).size(), expected);
    }
}

TEST(Ascii85, TakesThreeTwoAndOneCharactersForTailsOfOneTwoAndThreeBytes)
{
    for (const char byte : {'\0', 'A', '\377'}) {
        EXPECT_EQ(encoded(std::string(1, byte)).size(), 3U);
        EXPECT_EQ(encoded(std::string(2, byte)).size(), 2U);
        EXPECT_EQ(encoded(std::string(3, byte)).size(), 1U);
    }
    EXPECT_EQ(encoded("A"), block(65U << 24).substr(0, 3));
}

TEST(Ascii85, NeverShortensAZeroTail)
{
    EXPECT_EQ(encoded(bytes("\0")), "!!!");
    EXPECT_EQ(encoded(bytes("\0\0")), "!!");
    EXPECT_EQ(encoded(bytes("\0\0\0")), "!");
}

TEST(Ascii85, WritesOnlyItsAlphabetForEveryByte)
{
    std::string data;
    for (int byte = 0; byte < 256; ++byte) {
        data += static_cast<char>(byte);
    }
    const std::string text = encoded(data);
    EXPECT_EQ(text.size(), 320U);
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return c >= '!' && c <= 'u'; }));
}

TEST(Ascii85, AppendsToAnExistingText)
{
    std::string text = "before z ";
    EXPECT_EQ(encode_ascii85("Man A", 5, text), 5);
    EXPECT_EQ(text, R"(before z 9jqo^5l^)");
    EXPECT_EQ(encode_ascii85("\0\0\0\0", 4, text), 4);
    EXPECT_EQ(text, R"(before z 9jqo^5l^z)");
}

TEST(Ascii85, DoesNothingWithoutBytes)
{
    std::string text = "kept";
    EXPECT_EQ(encode_ascii85("data", 0, text), 0);
    EXPECT_EQ(encode_ascii85("data", -1, text), 0);
    EXPECT_EQ(encode_ascii85(nullptr, 0, text), 0);
    EXPECT_EQ(text, "kept");
}

} // namespace
