// An archive in PostgreSQL, through the module that telvane-web loads for it.

#include "archive/ArchiveTestSupport.h"
#include "archive/PostgresServer.h"
#include "archive/database/PostgresModule.h"
#include "archive/forward/Forwarder.h"
#include "telvane-web/welds/WeldPages.h"
#include "web/WebServerFixture.h"

#include <gmock/gmock.h>

namespace TelvaneTool
{
namespace
{

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::eventually;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class WebWeldsPostgres : public TelvaneTool::Testing::WebServerFixture
{
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<PostgresServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    WebWeldsPostgres()
    {
        m_pages.addSection([this](const HttpRequest& request) { return m_shown->handle(request); },
                           [this](OpenMetrics& page) { m_shown->writeMetrics(page); });
        s_server->start();
    }
    ~WebWeldsPostgres() override
    {
        m_pages.addSection({}, {});
        s_server->stop();
    }

    /// Keeps three welds in both archives.
    void keepWelds()
    {
        s_server->clear();
        const auto store = openStore(m_path);
        for (int number = 0; number < 3; ++number) {
            Weld weld = makeWeld("weld-" + std::to_string(number));
            weld[Column::Program] = std::int64_t{7};
            weld[Column::PartNumber] = "A-" + std::to_string(number);
            keepWeld(*store, weld, 1000 * (number + 1));
        }
        Forwarder::Settings settings;
        settings.spool = m_path;
        settings.location = s_server->location();
        settings.interval = 10 * kMillisecond;
        Forwarder forwarder(settings, [](const std::string&) {});
        std::size_t sent = 0;
        ASSERT_TRUE(eventually([&] {
            sent += forwarder.takeSent().size();
            return sent == 3;
        }));
    }

    std::string ask(WeldPages& welds, const std::string& path)
    {
        m_shown = &welds;
        return get(path);
    }
    std::string download(WeldPages& welds, const std::string& path)
    {
        m_shown = &welds;
        Client client(*this);
        client.send("GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
        EXPECT_TRUE(client.awaitClose()) << path;
        return client.text();
    }

    Telvane::Testing::TemporaryDirectory m_directory;
    std::string m_path = m_directory.path("welds.db");
    WakeUp m_wakeUp;
    WeldPages m_inFile{m_path, m_wakeUp};
    WeldPages m_inServer{s_server->location(), m_wakeUp};
    WeldPages* m_shown = &m_inServer;

    static std::unique_ptr<PostgresServer> s_server;
};

std::unique_ptr<PostgresServer> WebWeldsPostgres::s_server;

TEST_F(WebWeldsPostgres, AreShownLikeThoseInAFile)
{
    EXPECT_EQ(loadPostgres(), "");
    keepWelds();
    for (const char* const path :
         {"/api/welds", "/api/welds?part=A-1", "/api/welds?program=7&limit=2",
          "/api/welds?where=samples%20%3E%201500", "/api/welds?order=samples&ascending=1", "/api/weld?id=2",
          "/api/weld?id=9", "/api/curve?id=3&columns=500", "/api/curve?id=3&from=0.1&to=0.11&columns=500",
          "/api/band?id=3", "/api/band?program=7"}) {
        const std::string expected = bodyOf(ask(m_inFile, path));
        const std::string found = bodyOf(ask(m_inServer, path));
        EXPECT_TRUE(found == expected) << path << ": " << found.substr(0, 300);
        EXPECT_GT(expected.size(), 10U) << path;
    }
    for (const char* const path :
         {"/api/welds.csv", "/api/welds.jsonl", "/api/weld.csv?id=1", "/api/weld.jsonl?id=1"}) {
        const std::string expected = bodyOf(download(m_inFile, path));
        const std::string found = bodyOf(download(m_inServer, path));
        EXPECT_TRUE(found == expected) << path << ": " << found.substr(0, 300);
        EXPECT_GT(expected.size(), 1000U) << path;
    }
}

TEST_F(WebWeldsPostgres, AreShownAgainAfterTheServerWasAway)
{
    keepWelds();
    EXPECT_THAT(ask(m_inServer, "/api/welds"), StartsWith("HTTP/1.1 200"));
    s_server->stop();
    EXPECT_THAT(ask(m_inServer, "/api/welds"), AllOf(StartsWith("HTTP/1.1 503"), HasSubstr("the archive: ")));
    s_server->start();
    EXPECT_THAT(ask(m_inServer, "/api/welds"), AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("A-2")));
}

TEST_F(WebWeldsPostgres, AreNotWaitedForWithoutEnd)
{
    keepWelds();
    WeldPages impatient(s_server->location(), m_wakeUp, 100 * kMillisecond);
    Status status;
    const auto other = openPostgres(s_server->location(), Database::Access::ReadWrite, status);
    ASSERT_TRUE(other) << status.text;
    ASSERT_TRUE(other->run("BEGIN"));
    ASSERT_TRUE(other->run("LOCK TABLE weld IN ACCESS EXCLUSIVE MODE"));
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(
            ask(impatient, "/api/welds"),
            AllOf(StartsWith("HTTP/1.1 503"), HasSubstr("the archive: a question may take 100 ms: ERROR: ")));
    }
    ASSERT_TRUE(other->run("ROLLBACK"));
    EXPECT_THAT(ask(m_inServer, "/api/welds"), AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("A-2")));
    m_shown = &m_inServer; // before the other one ends
}

TEST_F(WebWeldsPostgres, MayTakeTenSecondsForAStatement)
{
    keepWelds();
    WeldArchive archive(s_server->location());
    HttpReply failure;
    ArchiveReader* const reader = archive.reader(failure);
    ASSERT_NE(reader, nullptr) << failure.body;
    std::vector<Row> rows;
    ASSERT_TRUE(reader->database().run("SHOW statement_timeout", {}, &rows));
    EXPECT_EQ(textOf(rows.at(0).at(0)), "10s");
    const Status status{Status::Code::Late, "stopped"};
    EXPECT_EQ(archive.failed(status).body, "the archive: a question may take 10 s: stopped\n");
}

} // namespace
} // namespace TelvaneTool
