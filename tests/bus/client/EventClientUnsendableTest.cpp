// What the library does with records and channels that cannot be sent: nothing is refused, everything is counted.

#include <Telvane/PSPrimitives.h>
#include <Telvane/WeldRecords.h>

#include "helpers/BusTestSupport.h"

#include <limits>

namespace Telvane
{
namespace
{

using namespace Testing;

class EventClientUnsendable : public ::testing::Test
{
protected:
    EventClientUnsendable()
    {
        EXPECT_EQ(publisher.Connect(running.path), 0);
        EXPECT_EQ(subscriber.Connect(running.path), 0);
    }

    RunningServer running;
    Receptions receptions;
    EventClient publisher;
    EventClient subscriber;
};

TEST_F(EventClientUnsendable, NotANumberIsCountedBySubscribersAsUndecodable)
{
    UnitValueDoublePair record;
    ASSERT_EQ(subscriber.Subscribe("Amps", recordingTo(receptions), record, nullptr), 0);
    record.Value = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(publisher.Publish("Amps", record), 0);
    record.Value = std::numeric_limits<double>::infinity();
    EXPECT_EQ(publisher.Publish("Amps", record), 0);
    EXPECT_TRUE(eventually([&] { return subscriber.Statistics().undecodable == 2; }));
    EXPECT_TRUE(receptions.empty());
}

TEST_F(EventClientUnsendable, TooLargeRecordsAreCountedByTheServer)
{
    LogData record;
    ASSERT_EQ(subscriber.Subscribe("LogData", recordingTo(receptions), record, nullptr), 0);
    record.log = std::string(20000, 'x');
    EXPECT_EQ(publisher.Publish("LogData", record), 0);
    EXPECT_TRUE(eventually([&] { return running.server.Statistics().tooLarge == 1; }));
    EXPECT_TRUE(receptions.empty());
}

TEST_F(EventClientUnsendable, ChannelsThatCannotBeSubscribedToAreCountedByTheServer)
{
    LogData record;
    EXPECT_EQ(subscriber.Subscribe("Chan2", recordingTo(receptions), record, nullptr), -1);
    EXPECT_EQ(publisher.Publish("Chan2", record), 0);
    EXPECT_TRUE(eventually([&] { return running.server.Statistics().unknownChannel == 1; }));
}

} // namespace
} // namespace Telvane
