// What becomes of a request when the system does less than asked.

#include <Telvane/EventClientSynchronizer.h>
#include <Telvane/WeldRecords.h>

#include "helpers/BusTestSupport.h"
#include "helpers/FaultInjection.h"

namespace Telvane
{
namespace
{

using namespace Testing;

/// Cuts one message to a few bytes. The messages that pass are those of the test's own socket, too.
FaultScript cutAfterPassing(int messages)
{
    return {Call::Send, Caller::Application, 0, messages, 1, 7};
}

class EventClientRequestWithFault : public ClientOfRawServer
{
protected:
    LogData record;
};

TEST_F(EventClientRequestWithFault, AsksEvenWhenItsSubscribeRequestWasCut)
{
    const Fault fault(cutAfterPassing(0));
    std::future<int> result = begin([&] { return client.Request("C", record, 1); });
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("C").substr(0, 7));
    EXPECT_EQ(peer.receive(), printedPublication("req_C"));
    peer.send(relay("C", 1, R"({"log":"answer"})"));
    acceptUnsubscription("C");
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(record.log, "answer");
}

TEST_F(EventClientRequestWithFault, OfASynchronizerEndsWithoutAReplyWhenItsQuestionWasCut)
{
    EventClientSynchronizer synchronizer;
    const Fault fault(cutAfterPassing(2));
    std::future<int> result = begin([&] { return synchronizer.Request(client, "C", record, 40); });
    acceptSubscription("C");
    EXPECT_EQ(peer.receive(), printedPublication("req_C").substr(0, 7));
    acceptUnsubscription("C");
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(record.log, "");
}

TEST_F(EventClientRequestWithFault, OfASynchronizerAsksEvenWhenItsSubscribeRequestWasCut)
{
    EventClientSynchronizer synchronizer;
    const Fault fault(cutAfterPassing(0));
    std::future<int> result = begin([&] { return synchronizer.Request(client, "C", record, 0); });
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("C").substr(0, 7));
    EXPECT_EQ(peer.receive(), printedPublication("req_C"));
    EXPECT_EQ(result.get(), -EINVAL) << "there is no subscription that could be ended";
}

} // namespace
} // namespace Telvane
