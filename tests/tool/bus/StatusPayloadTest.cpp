#include "common/bus/StatusPayload.h"

#include "common/bus/RecordBuilder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

ChannelStatus channel(const std::string& name)
{
    ChannelStatus status;
    status.name = name;
    status.subscribers = 2;
    status.publications = 1'234'567'890'123;
    status.bytes = 4'000'000'000'000;
    status.missed = 5;
    status.lastSequence = 65535;
    return status;
}

ClientStatus client(int descriptor, std::size_t subscriptions)
{
    ClientStatus status;
    status.descriptor = descriptor;
    status.process = 4711;
    status.program = "welder";
    status.user = 4'294'967'294;
    status.group = 100;
    status.userName = "nobody";
    status.bytesBehind = 123'456;
    for (std::size_t i = 0; i < subscriptions; ++i) {
        status.subscriptions.push_back(
            {"AChannelWithALongName_" + std::string(1 + i % 26, 'x'), 0, i, i / 2});
    }
    return status;
}

template <class Item>
std::vector<Item> sendAndReceive(const std::vector<Item>& items)
{
    StatusResponse<Item> answer;
    const std::vector<std::string> parts = encodeStatus(items);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        EXPECT_EQ(answer.take(parts[i]), i + 1 == parts.size()) << i;
    }
    return answer.items();
}

TEST(StatusPayload, LeavesOutNamesThatNoServerAccepts)
{
    StatusResponse<ChannelStatus> channels;
    EXPECT_TRUE(channels.take(R"({"part":1,"parts":1,"channels":[{"channel":"Good"},{"channel":"Chan2"},)"
                              R"({"channel":""},{"channel":"a b"},{}]})"));
    EXPECT_THAT(channels.items(), ElementsAre(Field(&ChannelStatus::name, "Good")));
    StatusResponse<ClientStatus> clients;
    EXPECT_TRUE(clients.take(R"({"part":1,"parts":1,"clients":[{"client":5,"subscriptions":)"
                             R"([{"channel":"Good"},{"channel":"x\u001b"}]}]})"));
    ASSERT_THAT(clients.items(), SizeIs(1));
    EXPECT_THAT(clients.items()[0].subscriptions, SizeIs(1));
}

TEST(StatusPayload, LimitsThePartsOfAResponse)
{
    StatusResponse<ChannelStatus> response;
    const std::string filling(1 << 20, ' ');
    const auto part = [&filling](int number, int parts) {
        return R"({"part":)" + std::to_string(number) + R"(,"parts":)" + std::to_string(parts) + filling +
               R"(,"channels":[{"channel":"Name"}]})";
    };
    int number = 1;
    while (number <= 64) {
        EXPECT_FALSE(response.take(part(number++, 1000)));
    }
    EXPECT_FALSE(response.take(part(number, number))) << "the end of a response that was too large";
    EXPECT_TRUE(response.take(part(1, 1)));
    EXPECT_THAT(response.items(), SizeIs(1));
}

TEST(StatusPayload, IsPlausibleIfItListsTheSubscriptionToItself)
{
    EXPECT_FALSE(isPlausible(std::vector<ChannelStatus>{channel("LogData")}));
    EXPECT_TRUE(isPlausible(std::vector<ChannelStatus>{channel("LogData"), channel("TelvaneChannels")}));
    ChannelStatus unused = channel("TelvaneChannels");
    unused.subscribers = 0;
    EXPECT_FALSE(isPlausible(std::vector<ChannelStatus>{unused}));
    std::vector<ClientStatus> clients = {client(5, 3)};
    EXPECT_FALSE(isPlausible(clients));
    clients[0].subscriptions.push_back({"TelvaneClients", 0, 0, 0});
    EXPECT_TRUE(isPlausible(clients));
}

TEST(StatusPayload, TellsOfChannels)
{
    EXPECT_THAT(
        sendAndReceive<ChannelStatus>({channel("One"), channel("Two")}),
        ElementsAre(AllOf(Field(&ChannelStatus::name, "One"), Field(&ChannelStatus::subscribers, 2U),
                          Field(&ChannelStatus::publications, 1'234'567'890'123U),
                          Field(&ChannelStatus::bytes, 4'000'000'000'000U), Field(&ChannelStatus::missed, 5U),
                          Field(&ChannelStatus::lastSequence, 65535)),
                    Field(&ChannelStatus::name, "Two")));
}

TEST(StatusPayload, TellsOfClients)
{
    const std::vector<ClientStatus> received = sendAndReceive<ClientStatus>({client(5, 2), client(6, 0)});
    ASSERT_THAT(received, SizeIs(2));
    EXPECT_EQ(received[0].descriptor, 5);
    EXPECT_EQ(received[0].process, 4711);
    EXPECT_EQ(received[0].program, "welder");
    EXPECT_EQ(received[0].user, 4'294'967'294U);
    EXPECT_EQ(received[0].group, 100U);
    EXPECT_EQ(received[0].userName, "nobody");
    EXPECT_EQ(received[0].bytesBehind, 123'456U);
    ASSERT_THAT(received[0].subscriptions, SizeIs(2));
    EXPECT_EQ(received[0].subscriptions[1].channel, "AChannelWithALongName_xx");
    EXPECT_EQ(received[0].subscriptions[1].relayed, 1U);
    EXPECT_THAT(received[1].subscriptions, IsEmpty());
}

TEST(StatusPayload, TellsOfNothingInOnePart)
{
    EXPECT_THAT(encodeStatus(std::vector<ChannelStatus>()),
                ElementsAre(R"({"part":1,"parts":1,"channels":[]})"));
    EXPECT_THAT(sendAndReceive<ClientStatus>({}), IsEmpty());
}

/// \return whether all payloads fit into messages of the bus
template <class Item>
bool fits(const std::vector<Item>& items)
{
    const std::vector<std::string> parts = encodeStatus(items);
    return std::all_of(parts.begin(), parts.end(), [](const std::string& part) {
        std::string error;
        RawRecord record(parseJson(part, error));
        return checkPublicationSize(publicationSize("TelvaneChannels", record)).empty();
    });
}

TEST(StatusPayload, TellsOfManyChannelsInPartsThatFit)
{
    std::vector<ChannelStatus> channels(500, channel("AnyChannel"));
    channels[250].name = std::string(5000, 'x');
    EXPECT_TRUE(fits(channels));
    EXPECT_THAT(sendAndReceive(channels), SizeIs(500));
}

TEST(StatusPayload, TellsOfAClientWithManySubscriptionsInPartsThatFit)
{
    const std::vector<ClientStatus> clients = {client(5, 1000), client(6, 41), client(7, 40)};
    EXPECT_TRUE(fits(clients));
    const std::vector<ClientStatus> received = sendAndReceive(clients);
    ASSERT_THAT(received, SizeIs(3));
    EXPECT_THAT(received[0].subscriptions, SizeIs(1000));
    EXPECT_EQ(received[0].subscriptions[999].relayed, 999U);
    EXPECT_THAT(received[1].subscriptions, SizeIs(41));
    EXPECT_THAT(received[2].subscriptions, SizeIs(40));
}

TEST(StatusPayload, LeavesOutWhatNoMessageCanHold)
{
    EXPECT_THAT(sendAndReceive<ChannelStatus>({channel(std::string(16000, 'x')), channel("One")}),
                ElementsAre(Field(&ChannelStatus::name, "One")));
}

TEST(StatusPayload, IsPutTogetherAgainAfterAPartWasMissed)
{
    const std::vector<std::string> parts =
        encodeStatus(std::vector<ChannelStatus>(200, channel("AnyChannel")));
    ASSERT_GT(parts.size(), 2U);
    StatusResponse<ChannelStatus> answer;
    EXPECT_FALSE(answer.take(parts[0]));
    EXPECT_FALSE(answer.take(parts.back()));
    EXPECT_THAT(answer.items(), IsEmpty());
    for (const std::string& part : parts) {
        answer.take(part);
    }
    EXPECT_THAT(answer.items(), SizeIs(200));
}

TEST(StatusPayload, IsNotUpsetByRubbish)
{
    StatusResponse<ClientStatus> answer;
    EXPECT_FALSE(answer.take(""));
    EXPECT_FALSE(answer.take("[]"));
    EXPECT_FALSE(answer.take(R"({"part":-1e300,"parts":1e300})"));
    EXPECT_TRUE(
        answer.take(R"({"part":1,"parts":1,"clients":[null,{"uid":-1,"pid":1e99,"bytesBehind":"x"}]})"));
    ASSERT_THAT(answer.items(), SizeIs(1)); // both name client 0
    EXPECT_TRUE(answer.take(R"({"part":1,"parts":1,"clients":[{"client":1,"uid":-1,"pid":1e99}]})"));
    EXPECT_EQ(answer.items().at(0).user, 0U);
    EXPECT_EQ(answer.items().at(0).process, 2'147'483'647);
}

TEST(StatusPayload, KnowsItsChannels)
{
    EXPECT_TRUE(isStatusChannel("TelvaneChannels"));
    EXPECT_TRUE(isStatusChannel("req_TelvaneClients"));
    EXPECT_FALSE(isStatusChannel("req_"));
    EXPECT_FALSE(isStatusChannel("LogData"));
}

} // namespace
} // namespace TelvaneTool
