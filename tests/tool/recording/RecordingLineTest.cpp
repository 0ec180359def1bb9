#include "recording/RecordingLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

TEST(RecordingLine, CarriesThePayloadByteForByte)
{
    const std::string payload = R"({"a":1.10,"b":"}\"{","c":[1,{"d":null}],"a":"twice"})";
    std::string line;
    appendMessage(line, {123'456'789'012'345, "PSFeedback", 65535, payload});
    EXPECT_EQ(line, R"({"ns":123456789012345,"channel":"PSFeedback","sequence":65535,"payload":)" + payload +
                        "}\n");
    line.pop_back();
    RecordingLineReader reader;
    RecordedMessage message;
    ASSERT_TRUE(reader.read(line, message));
    EXPECT_EQ(message.time, 123'456'789'012'345);
    EXPECT_EQ(message.channel, "PSFeedback");
    EXPECT_EQ(message.sequence, 65535);
    EXPECT_EQ(message.payload, payload);
}

TEST(RecordingLine, IsReadAfterAnotherProgramRewroteIt)
{
    RecordingLineReader reader;
    RecordedMessage message;
    ASSERT_TRUE(reader.read(
        R"({ "payload": {"log": "x"}, "channel": "LogData", "more": 0, "sequence": 7, "ns": 5000 })",
        message));
    EXPECT_EQ(message.time, 5000);
    EXPECT_EQ(message.channel, "LogData");
    EXPECT_EQ(message.sequence, 7);
    EXPECT_EQ(message.payload, R"({"log":"x"})");
    EXPECT_EQ(message.group, "");
    ASSERT_TRUE(reader.read(R"({"group": "seam 3", "ns": 1, "channel": "A", "sequence": 2, "payload": {}})",
                            message));
    EXPECT_EQ(message.group, "seam 3");
}

TEST(RecordingLine, IsRefusedIfTruncatedAnywhere)
{
    std::string line;
    appendMessage(line, {5, "LogData", 7, R"({"log":"x}","more":{"a":[1,{}]}})"});
    line.pop_back();
    RecordingLineReader reader;
    RecordedMessage message;
    ASSERT_TRUE(reader.read(line, message));
    for (std::size_t size = 0; size < line.size(); ++size) {
        EXPECT_FALSE(reader.read(std::string_view(line).substr(0, size), message)) << size;
    }
}

TEST(RecordingLine, NotesAnOutageWithoutAChannel)
{
    RecordedMessage note;
    note.time = 9;
    note.outage = true;
    note.missedFrom = 4;
    note.missedTo = 8;
    std::string line;
    appendMessage(line, note);
    EXPECT_EQ(line, R"({"ns":9,"outage":true,"from":4,"to":8})"
                    "\n");
    line.pop_back();
    RecordingLineReader reader;
    RecordedMessage message;
    ASSERT_TRUE(reader.read(line, message));
    EXPECT_TRUE(message.outage);
    EXPECT_TRUE(message.isNote());
    EXPECT_EQ(message.time, 9);
    EXPECT_EQ(message.missedFrom, 4);
    EXPECT_EQ(message.missedTo, 8);
    EXPECT_FALSE(reader.read(R"({"ns":9,"outage":true,"from":4})", message));
    EXPECT_FALSE(reader.read(R"({"ns":9,"outage":false,"from":4,"to":8})", message));
}

TEST(RecordingLine, IsRefusedIfItIsNotAMessage)
{
    RecordingLineReader reader;
    RecordedMessage message;
    for (const char* line : {"", "null", "[]", "{}", R"({"ns":1,"channel":"A","sequence":1})",
                             R"({"ns":1,"channel":5,"sequence":1,"payload":{}})",
                             R"({"ns":1e300,"channel":"A","sequence":1,"payload":{}})",
                             R"({"ns":9000000000000000000,"channel":"A","sequence":1,"payload":{}})",
                             R"({"ns":-9000000000000000000,"channel":"A","sequence":1,"payload":{}})",
                             R"({"ns":"1","channel":"A","sequence":1,"payload":{}})",
                             R"({"ns":1,"channel":"A","sequence":1,"payload":})"}) {
        EXPECT_FALSE(reader.read(line, message)) << line;
    }
    EXPECT_FALSE(reader.read(std::string_view("{\"ns\":1,\0\0\0", 12), message));
}

TEST(RecordingHeader, IsReadAsPrinted)
{
    const RecordingHeader header = {1'704'164'645'678'901'000, "/run/bus", {"One", "Two"}, 3};
    const std::string line = printHeader(header);
    EXPECT_EQ(line, R"({"telvaneRecording":1,"started":"2024-01-02T03:04:05.678901Z","server":"/run/bus",)"
                    R"("channels":["One","Two"],"part":3})"
                    "\n");
    RecordingHeader read;
    std::string error;
    ASSERT_TRUE(readHeader(line, read, error)) << error;
    EXPECT_EQ(read.started, header.started);
    EXPECT_EQ(read.server, header.server);
    EXPECT_THAT(read.channels, ElementsAre("One", "Two"));
    EXPECT_EQ(read.part, 3);
}

TEST(RecordingHeader, IsThatOfTheFirstPartIfItNamesNone)
{
    RecordingHeader header;
    header.part = 7;
    std::string error;
    ASSERT_TRUE(readHeader(R"({"telvaneRecording":1,"started":"2024-01-02T03:04:05Z"})", header, error));
    EXPECT_EQ(header.part, 1);
}

TEST(RecordingHeader, IsRefusedIfItIsNotAHeader)
{
    RecordingHeader header;
    std::string error;
    for (const char* line : {"", "time,amps,volts", "{}", "[1]", R"({"telvaneRecording":"1"})"}) {
        EXPECT_FALSE(readHeader(line, header, error)) << line;
        EXPECT_THAT(error, HasSubstr("not a recording")) << line;
    }
    EXPECT_FALSE(readHeader(R"({"telvaneRecording":2,"started":"2024-01-02T03:04:05Z"})", header, error));
    EXPECT_THAT(error, HasSubstr("format 2"));
    EXPECT_FALSE(readHeader(R"({"telvaneRecording":1,"started":"soon"})", header, error));
    EXPECT_THAT(error, HasSubstr("start time"));
}

} // namespace
} // namespace TelvaneTool
