// Publications that are relayed without being parsed.

#include "transport/Envelope.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Telvane
{
namespace
{

/// What the library's clients send.
std::string publication(const std::string& header, const std::string& payload)
{
    return "{\n\t\"header\":\t\"" + header + "\",\n\t\"payload\":\t" + payload + "\n}";
}

std::string relay(const std::string& header, int sequence, const std::string& payload)
{
    return "{\n\t\"header\":\t\"" + header + "\",\n\t\"sequence\":\t" + std::to_string(sequence) +
           ",\n\t\"payload\":\t" + payload + "\n}";
}

/// \return the relay; "parse" when the packet has to be parsed for it
std::string relayOf(const std::string& packet, int sequence = 47)
{
    std::string buffer = std::string(PrintedPublication::kMaxAdded, '#') + packet;
    PrintedPublication printed;
    if (!printed.read(buffer.data() + PrintedPublication::kMaxAdded)) {
        EXPECT_EQ(buffer, std::string(PrintedPublication::kMaxAdded, '#') + packet);
        return "parse";
    }
    return std::string(printed.makeRelay(sequence));
}

TEST(PrintedPublication, GetsTheSequenceNumberBeforeThePayload)
{
    const std::string payload = "{\n\t\t\"log\":\t\"hello\"\n\t}";
    for (const int sequence : {0, 9, 10, 99, 100, 999, 1000, 9999, 10000, 65535}) {
        EXPECT_EQ(relayOf(publication("LogData", payload), sequence), relay("LogData", sequence, payload));
    }
}

TEST(PrintedPublication, HasAHeaderOfAnyPlainCharacters)
{
    for (const std::string& header :
         std::vector<std::string>{"", "C", "Log-Data 1", "\xc3\xa9\xff", "a.b", std::string(1000, 'x')}) {
        EXPECT_EQ(relayOf(publication(header, "1")), relay(header, 47, "1"));
    }
    std::string buffer = std::string(PrintedPublication::kMaxAdded, '#') + publication("LogData", "1");
    PrintedPublication printed;
    ASSERT_TRUE(printed.read(buffer.data() + PrintedPublication::kMaxAdded));
    EXPECT_EQ(printed.header(), "LogData");
}

TEST(PrintedPublication, HasAPayloadOfAnyKind)
{
    for (const std::string payload :
         {"{\n\t}", "[]", "[1, 2]", "\"text\"", "1.5", "null", "true", "[{\n\t\t}]"}) {
        EXPECT_EQ(relayOf(publication("C", payload)), relay("C", 47, payload));
    }
}

TEST(PrintedPublication, EndsBeforeWhatFollows)
{
    EXPECT_EQ(relayOf(publication("C", "1") + "\n, rest"), relay("C", 47, "1"));
}

TEST(PrintedPublication, IsNothingElse)
{
    const std::string printed = publication("C", "1");
    const std::vector<std::string> others = {
        "",
        "{",
        "{}",
        "{\n}",
        R"({"header":"C","payload":1})",
        " " + printed,
        "\xef\xbb\xbf" + printed,
        "[" + printed,
        publication(".subscribe", "{\n\t\t\"channel\":\t\"C\"\n\t}"),
        publication(".", "1"),
        publication("\\u0043", "1"),
        publication("C\\n", "1"),
        publication("C\n", "1"),
        publication("C", "01"),
        publication("C", "{}"),
        publication("C", "{\n\t\t}"),
        publication("C", "1,\n\t\"payload\":\t2"),
        publication("C", "1,\n\t\"Header\":\t\"D\""),
        publication("C", "1,\n\t\"more\":\t2"),
        publication("C\",\n\t\"more\":\t\"D", "1"),
        "{\n\t\"Header\":\t\"C\",\n\t\"payload\":\t1\n}",
        "{\n\t\"header\":\t\"C\",\n\t\"PAYLOAD\":\t1\n}",
        "{\n\t\"header\":\t1,\n\t\"payload\":\t1\n}",
        "{\n\t\"payload\":\t1,\n\t\"header\":\t\"C\"\n}",
        "{\n\t\"header\":\t\"C\"\n}",
        "{\n\t\"payload\":\t1\n}",
        printed.substr(0, printed.size() - 2) + "}",
        printed.substr(0, printed.size() - 2) + "\r\n}",
    };
    for (const std::string& other : others) {
        EXPECT_EQ(relayOf(other), "parse") << other;
    }
    for (std::size_t length = 0; length < printed.size(); ++length) {
        EXPECT_EQ(relayOf(printed.substr(0, length)), "parse") << length;
    }
}

} // namespace
} // namespace Telvane
