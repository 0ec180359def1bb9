// The errors of a bus, the result of a publication in words, and handles that hold nothing.

#include "helpers/BusClientTestSupport.h"

#include <cerrno>
#include <set>

namespace Telvane::Testing
{

namespace
{

struct Meaning
{
    BusError error;
    std::errc condition; ///< as documented for the error
    const char* text;    ///< a part of the message
};

constexpr Meaning kMeanings[] = {
    {BusError::NotConnected, std::errc::not_connected, "not connected"},
    {BusError::TimedOut, std::errc::timed_out, "timed out"},
    {BusError::TooLarge, std::errc::message_size, "too large"},
    {BusError::OutOfMemory, std::errc::not_enough_memory, "out of memory"},
    {BusError::NotWritable, std::errc::invalid_argument, "cannot be written"},
    {BusError::Lost, std::errc::connection_reset, "was lost"},
    {BusError::Closed, std::errc::operation_canceled, "closed"},
    {BusError::Refused, std::errc::operation_not_permitted, "letters and underscores only"},
    {BusError::WouldDeadlock, std::errc::resource_deadlock_would_occur, "wait for itself"},
    {BusError::NoServer, std::errc::connection_refused, "no server"},
    {BusError::NoPermission, std::errc::permission_denied, "permission denied"},
    {BusError::Busy, std::errc::resource_unavailable_try_again, "at present"},
    {BusError::TurnedAway, std::errc::connection_aborted, "closed the connection"},
    {BusError::NoAnswer, std::errc::timed_out, "does not answer"},
    {BusError::NotABus, std::errc::wrong_protocol_type, "not the socket of a server"},
    {BusError::BadPath, std::errc::filename_too_long, "1 to 107 characters"},
};

TEST(ErrorsOfBus, SayWhatHappenedAndEqualTheConditionsOfTheStandard)
{
    std::set<std::string> texts;
    for (const Meaning& meaning : kMeanings) {
        const std::error_code error = meaning.error;
        EXPECT_EQ(error, meaning.condition) << error.message();
        EXPECT_NE(error.message().find(meaning.text), std::string::npos) << error.message();
        EXPECT_STREQ(error.category().name(), "telvane-bus");
        for (const Meaning& other : kMeanings) {
            EXPECT_EQ(error == other.error, &meaning == &other);
        }
        texts.insert(error.message());
    }
    EXPECT_EQ(texts.size(), std::size(kMeanings));
}

TEST(ErrorsOfBus, MayBeOfALaterVersion)
{
    const std::error_code later(1000, busCategory());
    EXPECT_EQ(later.message(), "unknown error");
    EXPECT_EQ(later, std::errc::invalid_argument);
    EXPECT_NE(later, std::errc::timed_out);
}

TEST(ResultOfPublication, SaysInWordsWhatBecameOfTheMessage)
{
    Publication publication;
    EXPECT_EQ(publication.message(), "sent");
    publication.queued = true;
    EXPECT_EQ(publication.message(), "queued");
    publication = {BusError::TooLarge, false, 20'000};
    EXPECT_EQ(publication.message(), "the message has 20000 bytes, at most 16363 arrive");
    publication.error = BusError::NotConnected;
    EXPECT_EQ(publication.message(), "not connected to the server");
    const std::error_code error = publication;
    EXPECT_EQ(error, BusError::NotConnected);
}

TEST(HandleOfNothing, HasEndedFromTheBeginning)
{
    Queue<LogData> queue;
    EXPECT_FALSE(queue.active());
    EXPECT_EQ(queue.error(), BusError::Closed);
    EXPECT_EQ(queue.waitActive(kTimeout), BusError::Closed);
    EXPECT_EQ(queue.statistics().delivered, 0U);
    EXPECT_EQ(queue.statistics().waiting, 0U);
    const auto item = queue.next(kTimeout);
    EXPECT_TRUE(item.ended());
    EXPECT_EQ(item.reason(), BusError::Closed);
    errno = 0;
    EXPECT_EQ(queue.fd(), -1);
    EXPECT_EQ(errno, EBADF);
    queue.end();
    queue.cancel();
    std::move(queue).keep();
}

using HandleOfBus = ServedBus;

TEST_F(HandleOfBus, EndsWhatItHeldWhenItGetsAnother)
{
    connect();
    Mailbox<std::string> first;
    Mailbox<std::string> second;
    auto handle = bus->subscribe<LogData>("First", [&](const LogData& record) { first.put(record.log); });
    Subscription other =
        bus->subscribe<LogData>("Second", [&](const LogData& record) { second.put(record.log); });
    ASSERT_EQ(handle.waitActive(kTimeout), std::error_code());
    ASSERT_EQ(other.waitActive(kTimeout), std::error_code());
    handle = std::move(other);
    ASSERT_EQ(bus->publish("First", logOf("x")).error, std::error_code());
    ASSERT_EQ(bus->publish("Second", logOf("y")).error, std::error_code());
    EXPECT_EQ(second.take(), "y");
    EXPECT_TRUE(first.empty());
    EXPECT_TRUE(eventually([&] { return handle.statistics().delivered == 1; }));
    Subscription& same = handle;
    handle = std::move(same);
    EXPECT_TRUE(handle.active());
}

} // namespace

} // namespace Telvane::Testing
