#include "web/WebServerFixture.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <list>

namespace TelvaneTool
{
namespace
{

using testing::HasSubstr;
using testing::StartsWith;

HttpReply textReply(const std::string& text)
{
    HttpReply reply;
    reply.body = text;
    return reply;
}

/// Questions below /slow wait until the test releases them.
class WebWorker : public Testing::WebServerFixture
{
protected:
    static constexpr std::size_t kMaxWaiting = 2;

    WebWorker()
    {
        m_pages.addSection(
            [this](const HttpRequest& request) -> std::optional<HttpReply> {
                if (request.path != "/slow") {
                    return std::nullopt;
                }
                HttpReply reply;
                reply.later = m_worker->run([this, released = m_released] {
                    m_isWorking = true;
                    released.wait();
                    return textReply("at last");
                });
                if (reply.later == nullptr) {
                    reply.status = 503;
                }
                return reply;
            },
            {});
    }
    ~WebWorker() override { release(); }

    void release()
    {
        if (!m_isReleased) {
            m_isReleased = true;
            m_release.set_value();
        }
    }

    /// Sends a question, and waits until the server has it.
    void askSlowly(Client& client)
    {
        const std::uint64_t before = m_server.statistics().requests;
        client.send(kSlowRequest);
        EXPECT_TRUE(pump([&] { return m_server.statistics().requests > before; }));
    }

    static constexpr const char* kSlowRequest = "GET /slow HTTP/1.1\r\nHost: localhost\r\n\r\n";

    std::promise<void> m_release;
    std::shared_future<void> m_released = m_release.get_future().share();
    bool m_isReleased = false;
    std::atomic<bool> m_isWorking = false;
    WakeUp m_wakeUp;
    std::unique_ptr<Worker> m_worker = std::make_unique<Worker>(kMaxWaiting, m_wakeUp);
};

TEST_F(WebWorker, AnswersOthersWhileAQuestionIsWorkedOn)
{
    Client slow(*this);
    askSlowly(slow);
    EXPECT_THAT(get("/"), StartsWith("HTTP/1.1 200"));
    pass(2 * kSecond);
    EXPECT_THAT(get("/api/bus"), StartsWith("HTTP/1.1 200"));
    EXPECT_TRUE(slow.read());
    EXPECT_EQ(slow.text(), "");
    release();
    EXPECT_TRUE(slow.await("at last"));
    EXPECT_THAT(slow.ask("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n"), HasSubstr("<title>"));
}

TEST_F(WebWorker, DoesNotTimeOutAQuestionThatTakesLong)
{
    Client slow(*this);
    askSlowly(slow);
    pass(60 * kSecond);
    release();
    EXPECT_TRUE(slow.await("at last"));
    EXPECT_EQ(m_server.statistics().timedOut, 0U);
}

TEST_F(WebWorker, RefusesMoreQuestionsThanMayWait)
{
    std::list<Client> clients;
    clients.emplace_back(*this).send(kSlowRequest);
    ASSERT_TRUE(pump([this] { return m_isWorking.load(); })); // no longer one of those that wait
    for (std::size_t i = 0; i < kMaxWaiting; ++i) {
        clients.emplace_back(*this).send(kSlowRequest);
        ASSERT_TRUE(pump([&] { return m_server.statistics().requests == 2 + i; }));
    }
    Client last(*this);
    last.send(kSlowRequest);
    EXPECT_TRUE(last.await("HTTP/1.1 503"));
    release();
    EXPECT_TRUE(clients.front().await("at last"));
}

TEST_F(WebWorker, ForgetsAQuestionWhoseClientHasGone)
{
    {
        Client slow(*this);
        askSlowly(slow);
    }
    release();
    EXPECT_TRUE(pump([&] { return m_server.statistics().openConnections == 0; }));
    EXPECT_THAT(get("/"), StartsWith("HTTP/1.1 200"));
}

TEST_F(WebWorker, EndsWithAQuestionThatIsNotAnswered)
{
    Client slow(*this);
    askSlowly(slow); // the fixture must not hang or leak
}

TEST(WorkerThread, WakesTheEventLoop)
{
    const WakeUp wakeUp;
    Worker worker(1, wakeUp);
    const std::unique_ptr<HttpLater> later = worker.run([] { return textReply("done"); });
    pollfd event = {wakeUp.fd(), POLLIN, 0};
    ASSERT_EQ(poll(&event, 1, 60'000), 1);
    wakeUp.clear();
    EXPECT_EQ(poll(&event, 1, 0), 0);
    ASSERT_TRUE(later->isReady());
    EXPECT_EQ(later->take()->body, "done");
}

} // namespace
} // namespace TelvaneTool
