// The addresses that answer from an archive, over HTTP.

#include "archive/ArchiveTestSupport.h"
#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "telvane-web/welds/WeldPages.h"
#include "web/WebServerFixture.h"

#include <gmock/gmock.h>

#include <set>

namespace TelvaneTool
{
namespace
{

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr Nanoseconds kHour = 3600 * kSecond;

class WebWelds : public Testing::WebServerFixture
{
protected:
    WebWelds()
    {
        m_pages.addSection([this](const HttpRequest& request) { return m_welds.handle(request); },
                           [this](OpenMetrics& page) { m_welds.writeMetrics(page); });
    }
    ~WebWelds() override { m_pages.addSection({}, {}); }

    /// Adds a weld that starts so many hours after the first one.
    void add(ArchiveStore& store, int hour, std::int32_t samples, const std::string& part = "",
             std::int64_t program = 7)
    {
        Weld weld = makeWeld("weld-" + std::to_string(m_kept++));
        weld[Column::StartNs] = kStart + hour * kHour;
        weld[Column::Program] = program;
        if (!part.empty()) {
            weld[Column::PartNumber] = part;
        }
        const std::int64_t handle = store.begin(weld);
        for (std::int32_t i = 0; i < samples; ++i) {
            Sample sample = makeSample(i);
            sample.time += hour * kHour;
            store.add(handle, sample, 0);
        }
        store.end(handle, "complete");
    }
    template <class... Arguments>
    void keep(ArchiveStore& store, Arguments... arguments)
    {
        add(store, arguments...);
        const Status status = store.commit();
        EXPECT_TRUE(status) << status.text;
    }

    /// \return the answer as a tree
    JsonTree ask(const std::string& path)
    {
        const std::string answer = get(path);
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 200")) << path;
        std::string error;
        JsonTree tree = parseJson(bodyOf(answer), error);
        EXPECT_EQ(error, "") << path << bodyOf(answer).substr(0, 200);
        return tree;
    }
    static double numberAt(const cJSON* tree, const char* key)
    {
        return cJSON_GetNumberValue(cJSON_GetObjectItem(tree, key));
    }
    static std::vector<double> idsOf(const cJSON* page)
    {
        std::vector<double> ids;
        const cJSON* item = nullptr;
        cJSON_ArrayForEach(item, cJSON_GetObjectItem(page, "welds"))
        {
            ids.push_back(numberAt(item, "id"));
        }
        return ids;
    }
    std::vector<double> idsAt(const std::string& path) { return idsOf(ask(path).get()); }

    /// \return the body of an answer of unknown length
    std::string download(const std::string& path)
    {
        Client client(*this);
        client.send("GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
        EXPECT_TRUE(client.awaitClose()) << path;
        return client.text();
    }

    /// \return the content of a body that was sent in chunks
    static std::string joinChunks(std::string_view body)
    {
        std::string content;
        for (;;) {
            const std::size_t end = std::min(body.find("\r\n"), body.size());
            const std::size_t size = std::stoul("0" + std::string(body.substr(0, end)), nullptr, 16);
            if (size == 0 || body.size() < end + size + 4) {
                return content;
            }
            content += body.substr(end + 2, size);
            body.remove_prefix(end + size + 4);
        }
    }

    Telvane::Testing::TemporaryDirectory m_directory;
    std::string m_path = m_directory.path("welds.db");
    int m_kept = 0;
    WakeUp m_wakeUp;
    WeldPages m_welds{m_path, m_wakeUp};
};

TEST_F(WebWelds, ListsPageByPage)
{
    const auto store = openStore(m_path);
    for (const int hour : {1, 2, 3, 3, 3, 4}) { // three machines start at the same moment
        keep(*store, hour, 10);
    }
    std::vector<double> seen;
    std::string after;
    for (int page = 0; page < 3; ++page) {
        const JsonTree answer = ask("/api/welds?limit=2&after=" + after);
        const std::vector<double> ids = idsOf(answer.get());
        seen.insert(seen.end(), ids.begin(), ids.end());
        const cJSON* const next = cJSON_GetObjectItem(answer.get(), "next");
        ASSERT_EQ(next != nullptr, page < 2);
        after = next != nullptr ? next->valuestring : "";
        keep(*store, 9, 1); // a weld that is added meanwhile moves nothing
    }
    EXPECT_THAT(seen, ElementsAre(6, 5, 4, 3, 2, 1));
    EXPECT_THAT(idsAt("/api/welds?ascending=1&order=start_ns&limit=2"), ElementsAre(1, 2));
    EXPECT_THAT(idsAt("/api/welds?order=samples&limit=2&after=2"), ElementsAre(4, 3));
}

TEST_F(WebWelds, DownloadsEachSampleOnceWhateverItsStamp)
{
    const auto store = openStore(m_path);
    const std::vector<Sample> published = makeUnevenSamples(9'000);
    keepSamples(*store, published);
    std::string expected = sampleCsvHeading();
    for (Sample sample : published) {
        sample.time -= kStart;
        expected += sampleCsvLine(sample);
    }
    const std::string csv = joinChunks(bodyOf(download("/api/weld.csv?id=1")));
    EXPECT_TRUE(csv == expected) << csv.size() << " instead of " << expected.size() << " bytes";
}

TEST_F(WebWelds, FindsWeldsByTheFilters)
{
    const auto store = openStore(m_path);
    keep(*store, 1, 10, "A-17", 3);
    keep(*store, 2, 10, "A-18", 4);
    keep(*store, 3, 10, "B-1", 4);
    EXPECT_THAT(idsAt("/api/welds?part=A-*"), ElementsAre(2, 1));
    EXPECT_THAT(idsAt("/api/welds?part=A-17"), ElementsAre(1));
    EXPECT_THAT(idsAt("/api/welds?program=4"), ElementsAre(3, 2));
    EXPECT_THAT(idsAt("/api/welds?verdict=none&program=3"), ElementsAre(1));
    EXPECT_THAT(idsAt("/api/welds?verdict=ok"), ElementsAre());
    EXPECT_THAT(idsAt("/api/welds?where=part_number%20like%20'B*'"), ElementsAre(3));
    const std::string second = std::to_string((kStart + 2 * kHour) / kMillisecond);
    EXPECT_THAT(idsAt("/api/welds?from=" + second), ElementsAre(3, 2));
    EXPECT_THAT(idsAt("/api/welds?to=" + second), ElementsAre(1));
}

TEST_F(WebWelds, ReportsWhatIsWrongWithAFilter)
{
    const auto store = openStore(m_path);
    for (const char* const query : {"where=nonsense%20%3E%203", "where=1;DROP%20TABLE%20weld", "program=x",
                                    "from=yesterday", "from=1e300", "from=nan", "order=nonsense"}) {
        const std::string answer = get(std::string("/api/welds?") + query);
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 400")) << query;
        EXPECT_GT(bodyOf(answer).size(), 10U) << query;
    }
    EXPECT_THAT(get("/api/welds"), StartsWith("HTTP/1.1 200"));
}

TEST_F(WebWelds, DescribesOneWeld)
{
    const auto store = openStore(m_path);
    keep(*store, 1, 100, "<script>");
    const std::string answer = bodyOf(get("/api/weld?id=1"));
    EXPECT_THAT(answer,
                AllOf(HasSubstr(R"("name":"part_number")"), HasSubstr(R"("value":"<script>")"),
                      HasSubstr(R"("unit":"A","meaning":"mean current")"), HasSubstr(R"("findings":[])")));
    // A start in nanoseconds keeps all digits.
    EXPECT_THAT(answer, HasSubstr("\"" + std::to_string(kStart + kHour) + "\""));
    EXPECT_THAT(get("/api/weld?id=2"), StartsWith("HTTP/1.1 404"));
    EXPECT_THAT(get("/api/weld?id=1%20OR%201"), StartsWith("HTTP/1.1 404"));
    EXPECT_THAT(get("/api/weld"), StartsWith("HTTP/1.1 404"));
}

/// The sum of the samples of a curve, and the extremes of the current.
struct Drawn
{
    double samples = 0.0;
    double low = 1e9;
    double high = -1e9;
    std::size_t columns = 0;
};

Drawn readColumns(const cJSON* curve)
{
    Drawn drawn;
    const cJSON* column = nullptr;
    cJSON_ArrayForEach(column, cJSON_GetObjectItem(curve, "columns"))
    {
        ++drawn.columns;
        if (cJSON_IsArray(column)) {
            drawn.samples += cJSON_GetArrayItem(column, 0)->valuedouble;
            drawn.low = std::min(drawn.low, cJSON_GetArrayItem(column, 1)->valuedouble);
            drawn.high = std::max(drawn.high, cJSON_GetArrayItem(column, 3)->valuedouble);
        }
    }
    return drawn;
}

TEST_F(WebWelds, DrawsAWholeWeldWithoutLosingASample)
{
    const auto store = openStore(m_path);
    keep(*store, 0, 10'000);
    const JsonTree curve = ask("/api/curve?id=1&columns=1000");
    const Drawn drawn = readColumns(curve.get());
    EXPECT_EQ(drawn.samples, 10'000);
    EXPECT_LE(drawn.columns, 1000U);
    EXPECT_EQ(drawn.low, 180);
    EXPECT_EQ(drawn.high, 186);
}

TEST_F(WebWelds, ReducesAPartOfAWeldWithoutLosingASample)
{
    const auto store = openStore(m_path);
    keep(*store, 0, 10'000); // 5 s
    const JsonTree curve = ask("/api/curve?id=1&from=1&to=2&columns=100");
    EXPECT_STREQ(cJSON_GetObjectItem(curve.get(), "kind")->valuestring, "columns");
    const Drawn drawn = readColumns(curve.get());
    EXPECT_EQ(drawn.samples, 2000);
    EXPECT_EQ(drawn.columns, 100U);
    EXPECT_EQ(drawn.low, 180);
    EXPECT_EQ(drawn.high, 186);
}

TEST_F(WebWelds, GivesSingleSamplesOnceTheyAreFew)
{
    const auto store = openStore(m_path);
    keep(*store, 0, 10'000);
    const JsonTree curve = ask("/api/curve?id=1&from=2.5&to=2.505&columns=100");
    EXPECT_STREQ(cJSON_GetObjectItem(curve.get(), "kind")->valuestring, "samples");
    const cJSON* const samples = cJSON_GetObjectItem(curve.get(), "samples");
    ASSERT_EQ(cJSON_GetArraySize(samples), 10);
    const cJSON* const first = cJSON_GetArrayItem(samples, 0);
    EXPECT_DOUBLE_EQ(cJSON_GetArrayItem(first, 0)->valuedouble, 2.5);
    EXPECT_EQ(cJSON_GetArrayItem(first, 1)->valuedouble, 5000);
    EXPECT_EQ(cJSON_GetArrayItem(first, 2)->valuedouble, makeSample(5000)[Channel::Amps]);
    EXPECT_EQ(cJSON_GetArrayItem(first, 3)->valuedouble, makeSample(5000)[Channel::Volts]);
}

TEST_F(WebWelds, ReadsNoPartThatThereIsNot)
{
    const auto store = openStore(m_path);
    keep(*store, 0, 100);
    for (const char* const query : {"from=9&to=8", "from=-1", "from=nan&to=inf", "from=1e308&to=1e309",
                                    "columns=-1", "columns=99999999999", "from=0.01&to=0.01", "id=1;"}) {
        EXPECT_THAT(get(std::string("/api/curve?id=1&") + query), StartsWith("HTTP/1.1 200")) << query;
    }
    EXPECT_THAT(get("/api/curve?id=9"), StartsWith("HTTP/1.1 404"));
}

TEST_F(WebWelds, DrawsTheBandOfFormerWelds)
{
    const auto store = openStore(m_path);
    keep(*store, 1, 1000);
    keep(*store, 2, 1000);
    keep(*store, 3, 1000, "", 8); // another program
    keep(*store, 4, 1000);
    const JsonTree band = ask("/api/band?id=4");
    EXPECT_EQ(numberAt(band.get(), "welds"), 2);
    const cJSON* const columns = cJSON_GetObjectItem(band.get(), "columns");
    ASSERT_EQ(cJSON_GetArraySize(columns), 200);
    const cJSON* const column = cJSON_GetArrayItem(columns, 100);
    EXPECT_EQ(cJSON_GetArrayItem(column, 0)->valuedouble, 2);
    const double low = cJSON_GetArrayItem(column, 1)->valuedouble;
    const double high = cJSON_GetArrayItem(column, 2)->valuedouble;
    EXPECT_GE(low, 180);
    EXPECT_LE(high, 186);
    EXPECT_DOUBLE_EQ(low, high) << "the welds are equal";
    EXPECT_EQ(numberAt(ask("/api/band?program=7").get(), "welds"), 3);
    EXPECT_EQ(numberAt(ask("/api/band?program=9").get(), "welds"), 0);
    EXPECT_THAT(get("/api/band?id=99"), StartsWith("HTTP/1.1 404"));
}

TEST_F(WebWelds, SavesAllWelds)
{
    const auto store = openStore(m_path);
    for (int i = 0; i < 230; ++i) { // more than two pieces
        add(*store, i, 1, i == 5 ? "a \"b\", c" : "");
    }
    EXPECT_TRUE(store->commit());
    const std::string csv = download("/api/welds.csv");
    EXPECT_THAT(csv, HasSubstr("Content-Disposition: attachment; filename=\"welds.csv\""));
    EXPECT_THAT(csv, HasSubstr("id,uid,module,"));
    EXPECT_THAT(csv, HasSubstr("\"a \"\"b\"\", c\""));
    for (int i = 0; i < 230; ++i) {
        EXPECT_THAT(csv, HasSubstr("\n" + std::to_string(i + 1) + ",weld-" + std::to_string(i) + ","));
    }
    const std::string json = download("/api/welds.jsonl?where=part_number%20is%20not%20empty");
    EXPECT_THAT(json, HasSubstr(R"("uid":"weld-5")"));
    EXPECT_THAT(json, Not(HasSubstr(R"("uid":"weld-6")")));
}

TEST_F(WebWelds, SavesNoFormulas)
{
    const auto store = openStore(m_path);
    for (const char* const part : {"=1+1", "+1", "-1", "@A1", "=a\"b", "1=1"}) {
        keep(*store, 0, 1, part);
    }
    EXPECT_THAT(download("/api/welds.csv"),
                AllOf(HasSubstr(R"(,"'=1+1",)"), HasSubstr(R"(,"'+1",)"), HasSubstr(R"(,"'-1",)"),
                      HasSubstr(R"(,"'@A1",)"), HasSubstr(R"(,"'=a""b",)"), HasSubstr(",1=1,")));
    // Programs get the text itself.
    EXPECT_THAT(download("/api/welds.jsonl"), HasSubstr(R"("part_number":"=1+1")"));
}

TEST_F(WebWelds, SavesAllSamplesOfAWeld)
{
    const auto store = openStore(m_path);
    keep(*store, 0, 5000);
    const std::string csv = download("/api/weld.csv?id=1");
    EXPECT_THAT(csv, HasSubstr("time_s,number,amps,volts,wfs,gas,power,motor"));
    for (const int i : {0, 1999, 2000, 4095, 4096, 4999}) {
        EXPECT_THAT(csv,
                    HasSubstr(formatted("\n%.9f,%d,%.17g,", i * 0.0005, i, makeSample(i)[Channel::Amps])));
    }
    EXPECT_THAT(download("/api/weld.jsonl?id=1"),
                HasSubstr(formatted("{\"time_s\":%.9f,\"number\":4999,\"amps\":", 4999 * 0.0005)));
}

TEST_F(WebWelds, EndsADownloadThatIsNotRead)
{
    const auto store = openStore(m_path);
    keep(*store, 0, 50'000); // more than all buffers hold
    Client client(*this, 4096);
    client.send("GET /api/weld.jsonl?id=1 HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_TRUE(pump([&] { return m_server.statistics().bytes > 0; }));
    EXPECT_TRUE(pump([&] {
        m_now += kSecond;
        return m_server.statistics().openStreams == 0;
    }));
}

TEST_F(WebWelds, ReportAnArchiveThatIsNotThereYet)
{
    const std::string answer = get("/api/welds");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 503"));
    EXPECT_THAT(bodyOf(answer), StartsWith("the archive: "));
    const auto store = openStore(m_path);
    keep(*store, 0, 10);
    EXPECT_THAT(idsAt("/api/welds"), ElementsAre(1));
    EXPECT_THAT(get("/metrics"), AllOf(HasSubstr("telvane_web_archive_questions_total 2\n"),
                                       HasSubstr("telvane_web_archive_failures_total 1\n")));
}

TEST_F(WebWelds, ShowAWeldThatIsUnderWay)
{
    const auto store = openStore(m_path);
    const std::int64_t handle = store->begin(makeWeld("running"));
    for (std::int32_t i = 0; i < 5000; ++i) {
        store->add(handle, makeSample(i), 0);
    }
    EXPECT_TRUE(store->commit());
    EXPECT_THAT(idsAt("/api/welds"), ElementsAre(1));
    EXPECT_THAT(get("/api/curve?id=1"), StartsWith("HTTP/1.1 200"));
    const JsonTree curve = ask("/api/curve?id=1&from=1&to=1.004");
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(curve.get(), "samples")), 8);
}

} // namespace
} // namespace TelvaneTool
