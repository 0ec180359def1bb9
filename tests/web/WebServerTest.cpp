#include "telvane-web/live/StreamClient.h"
#include "web/WebServerFixture.h"

#include <gmock/gmock.h>

#include <set>

namespace TelvaneTool
{
namespace
{

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using WebServer = Testing::WebServerFixture;

TEST_F(WebServer, ServesThePage)
{
    const std::string answer = get("/");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200"));
    EXPECT_THAT(answer, HasSubstr("Content-Type: text/html"));
    EXPECT_THAT(bodyOf(answer), HasSubstr("<title>Telvane</title>"));
    EXPECT_THAT(get("/uplot-license.txt"), HasSubstr("MIT License"));
}

TEST_F(WebServer, SendsTheSameHeadersWithEveryAnswer)
{
    for (const char* const path :
         {"/", "/app.js", "/api/bus", "/api/catalogue", "/metrics", "/nothing", "/api/record"}) {
        const std::string answer = get(path);
        EXPECT_THAT(answer, HasSubstr("Content-Security-Policy: default-src 'none'; script-src 'self';"))
            << path;
        EXPECT_THAT(answer, HasSubstr("require-trusted-types-for 'script'")) << path;
        EXPECT_THAT(answer, Not(HasSubstr("unsafe-"))) << path;
        EXPECT_THAT(answer, HasSubstr("X-Content-Type-Options: nosniff")) << path;
        EXPECT_THAT(answer, HasSubstr("Cross-Origin-Resource-Policy: same-origin")) << path;
        EXPECT_THAT(answer, HasSubstr("Referrer-Policy: no-referrer")) << path;
        EXPECT_THAT(answer, HasSubstr("Cache-Control: no-")) << path;
        EXPECT_THAT(answer, Not(HasSubstr("Access-Control-Allow"))) << path;
    }
}

TEST_F(WebServer, KeepsTheConnectionForTheNextRequest)
{
    Client client(*this);
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(client.ask("GET /app.js HTTP/1.1\r\nHost: localhost\r\n\r\n"),
                    StartsWith("HTTP/1.1 200"));
    }
    EXPECT_EQ(m_server.statistics().connections, 1U);
}

TEST_F(WebServer, CompressesFilesForClientsThatTakeIt)
{
    const std::string plain = get("/uplot.js", "Accept-Encoding: gzip;q=0, br\r\n");
    const std::string compressed = get("/uplot.js", "Accept-Encoding: br, gzip\r\n");
    EXPECT_THAT(plain, Not(HasSubstr("Content-Encoding")));
    EXPECT_THAT(compressed, HasSubstr("Content-Encoding: gzip"));
    EXPECT_LT(2 * compressed.size(), plain.size());
}

TEST_F(WebServer, LoadsTheWholePageWithLessThan150Kilobytes)
{
    std::size_t sum = 0;
    for (const StaticFile& file : pageFiles()) {
        sum += file.compressed.size();
    }
    EXPECT_LT(sum, 150'000U);
}

TEST_F(WebServer, ServesEachScriptWithItsModules)
{
    const std::string page = bodyOf(get("/app.js"));
    for (const char* const module : {"/archive.js", "/dom.js", "/language.js", "/live.js", "/welds.js"}) {
        EXPECT_THAT(page, HasSubstr("modules[\"" + std::string(module) + "\"] = (() => {")) << module;
        EXPECT_THAT(get(module), StartsWith("HTTP/1.1 404")) << "it is not loaded by itself";
    }
    EXPECT_LT(page.find("modules[\"/dom.js\"] ="), page.find("modules[\"/live.js\"] ="))
        << "used by the other";
    EXPECT_THAT(page, Not(HasSubstr("\nimport ")));
    for (const char* const language : {"en", "de"}) {
        EXPECT_THAT(page, HasSubstr("modules[\"/language/" + std::string(language) + ".json\"] = {"));
    }
    const std::string worker = bodyOf(get("/worker.js"));
    EXPECT_THAT(worker, HasSubstr("class Feed"));
    EXPECT_THAT(worker, Not(HasSubstr("class LiveView")));
}

TEST_F(WebServer, HasScriptsThatMakeNoHtmlAndRunNoText)
{
    for (const StaticFile& file : pageFiles()) {
        const std::string_view path = file.path;
        const bool checked =
            path.find(".js") != std::string_view::npos || path.find(".html") != std::string_view::npos;
        if (!checked || path == "/uplot.js") {
            continue; // the chart library is covered by the policy, which the browser enforces
        }
        for (const char* const forbidden :
             {"innerHTML", "outerHTML", "insertAdjacentHTML", "document.write", "DOMParser",
              "createContextualFragment", "srcdoc", "eval(", "Function(", "javascript:", "setTimeout(\"",
              "<script>", " style=", " onclick=", "http://", "https://"}) {
            EXPECT_EQ(file.plain.find(forbidden), std::string_view::npos) << file.path << ": " << forbidden;
        }
    }
}

TEST_F(WebServer, SendsNothingAgainThatTheBrowserHas)
{
    const std::string answer = get("/style.css");
    const std::size_t begin = answer.find("ETag: ") + 6;
    const std::string etag = answer.substr(begin, answer.find('\r', begin) - begin);
    const std::string again = get("/style.css", "If-None-Match: " + etag + "\r\n");
    EXPECT_THAT(again, StartsWith("HTTP/1.1 304"));
    EXPECT_THAT(bodyOf(again), IsEmpty());
}

TEST_F(WebServer, AnswersHeadWithoutABody)
{
    Client client(*this);
    client.send("HEAD / HTTP/1.1\r\nHost: localhost\r\n\r\n");
    ASSERT_TRUE(client.await("\r\n\r\n"));
    EXPECT_THAT(client.text(), EndsWith("\r\n\r\n"));
}

TEST_F(WebServer, RefusesRequestsUnderAnotherName)
{
    const std::string answer = Client(*this).ask("GET / HTTP/1.1\r\nHost: evil.example:8320\r\n\r\n");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 421"));
    EXPECT_THAT(answer, HasSubstr("--allow-host evil.example"));
    for (const char* const path : {"/", "/app.js", "/api/events", "/api/bus", "/api/record?channel=X",
                                   "/api/catalogue", "/metrics", "/x"}) {
        EXPECT_THAT(Client(*this).ask("GET " + std::string(path) + " HTTP/1.1\r\nHost: evil.example\r\n\r\n"),
                    StartsWith("HTTP/1.1 421"))
            << path;
    }
    EXPECT_THAT(Client(*this).ask("GET / HTTP/1.1\r\nHost: localhost\r\nHost: evil.example\r\n\r\n"),
                StartsWith("HTTP/1.1 4"));
    EXPECT_THAT(Client(*this).ask("GET / HTTP/1.0\r\n\r\n"), StartsWith("HTTP/1.1 421"));
    EXPECT_THAT(Client(*this).ask("GET http://evil.example/ HTTP/1.1\r\nHost: evil.example\r\n\r\n"),
                StartsWith("HTTP/1.1 4"));
}

TEST_F(WebServer, ChangesNothingWhateverTheMethod)
{
    for (const char* const method :
         {"POST", "PUT", "DELETE", "PATCH", "OPTIONS", "TRACE", "CONNECT", "PROPFIND", "get"}) {
        const std::string answer = Client(*this).ask(
            std::string(method) + " /api/bus HTTP/1.1\r\nHost: localhost\r\nContent-Length: 0\r\n\r\n");
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 405")) << method;
        EXPECT_THAT(answer, HasSubstr("Allow: GET, HEAD")) << method;
    }
}

TEST_F(WebServer, AnswersUnknownChannelsWithoutCreatingThem)
{
    EXPECT_THAT(get("/api/record?channel=Unknown"), StartsWith("HTTP/1.1 404"));
    EXPECT_THAT(get("/api/record"), StartsWith("HTTP/1.1 404"));
}

TEST_F(WebServer, AnswersMetricsInTheFormThatIsAskedFor)
{
    const std::string open =
        get("/metrics", "Accept: application/openmetrics-text;version=1.0.0,text/plain;q=0.5\r\n");
    EXPECT_THAT(open, HasSubstr("Content-Type: application/openmetrics-text; version=1.0.0"));
    EXPECT_THAT(open, EndsWith("\n# EOF\n"));
    EXPECT_THAT(open, HasSubstr("# TYPE telvane_web_requests counter\n"));
    EXPECT_THAT(open, HasSubstr("telvane_web_bus_connected 0\n"));
    const std::string plain = get("/metrics");
    EXPECT_THAT(plain, HasSubstr("Content-Type: text/plain; version=0.0.4"));
    EXPECT_THAT(plain, Not(HasSubstr("# EOF")));
    EXPECT_THAT(plain, HasSubstr("# TYPE telvane_web_requests_total counter\n"));
}

TEST_F(WebServer, StreamsTheState)
{
    Client client(*this);
    client.send("GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n");
    ASSERT_TRUE(client.await(R"("state":"none")"));
    EXPECT_THAT(client.text(), HasSubstr("Content-Type: text/event-stream"));
    EXPECT_THAT(client.text(), HasSubstr("X-Accel-Buffering: no"));
    EXPECT_THAT(client.text(), HasSubstr("Cache-Control: no-store"));
    // Each attempt to connect to the bus may come before the next heartbeat, and puts it off.
    EXPECT_TRUE(pump([&] {
        m_now += StreamClient::kHeartbeat / 8;
        client.read();
        return client.text().find("event: beat") != std::string::npos;
    }));
}

TEST_F(WebServer, ForgetsAStreamWhoseClientHasGone)
{
    {
        Client client(*this);
        client.send("GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n");
        ASSERT_TRUE(client.await("event: hello"));
        EXPECT_EQ(m_server.statistics().openStreams, 1U);
    }
    EXPECT_TRUE(pump([&] {
        m_now += kSecond / 10;
        return m_server.statistics().openStreams == 0 && m_server.statistics().openConnections == 0;
    }));
}

TEST_F(WebServer, EndsWithOpenStreams)
{
    Client client(*this);
    client.send("GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_TRUE(client.await("event: hello")); // the destructor of the fixture must not hang or leak
}

TEST(WebHeaders, AreSearchedWordByWord)
{
    EXPECT_TRUE(accepts("gzip", "gzip"));
    EXPECT_TRUE(accepts("br;q=1.0, gzip;q=0.8", "gzip"));
    EXPECT_FALSE(accepts("gzip; q=0", "gzip"));
    EXPECT_FALSE(accepts("gzip;q=0.000", "gzip"));
    EXPECT_FALSE(accepts("xgzip, gzipx", "gzip"));
    EXPECT_FALSE(accepts(",,,;;,", "gzip"));
    EXPECT_FALSE(accepts("", "gzip"));
}

} // namespace
} // namespace TelvaneTool
