#include "telvane-web/welds/WeldPages.h"

#include "telvane-web/http/Query.h"
#include "telvane-web/welds/WeldCurve.h"
#include "telvane-web/welds/WeldDetails.h"
#include "telvane-web/welds/WeldExport.h"
#include "telvane-web/welds/WeldList.h"

#include <algorithm>
#include <cmath>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kMaxWaiting = 16;
constexpr unsigned kBadRequest = 400;
constexpr unsigned kUnavailable = 503;
constexpr unsigned kServerError = 500;
constexpr double kLongestWeld = 1e9; ///< s

std::int64_t idOf(const HttpRequest& request)
{
    return numberOr<std::int64_t>(valueOf(request, "id"), 0);
}

double secondsOf(const HttpRequest& request, const char* name)
{
    const double value = numberOr(valueOf(request, name), 0.0);
    return std::isfinite(value) ? std::clamp(value, 0.0, kLongestWeld) : 0.0;
}

} // namespace

WeldPages::WeldPages(const std::string& location, const WakeUp& wakeUp, Nanoseconds longestStatement)
    : m_archive(std::make_shared<WeldArchive>(location, longestStatement)), m_worker(kMaxWaiting, wakeUp)
{}

HttpReply WeldPages::ask(Worker::Job question)
{
    HttpReply reply;
    reply.later = m_worker.run([counts = m_counts, question = std::move(question)] {
        const Nanoseconds begin = monotonicNow();
        HttpReply answer = question();
        ++counts->questions;
        counts->failures += answer.status >= kServerError ? 1U : 0U;
        counts->nanoseconds += static_cast<std::uint64_t>(monotonicNow() - begin);
        return answer;
    });
    if (reply.later == nullptr) {
        reply = httpFailure(kUnavailable, "too many questions are waiting for the archive");
        reply.retryAfter = 1;
    }
    return reply;
}

HttpReply WeldPages::list(const HttpRequest& request)
{
    WeldListQuery query;
    if (std::string error = query.read(request); !error.empty()) {
        return httpFailure(kBadRequest, std::move(error));
    }
    return ask([archive = m_archive, query = std::move(query)] { return listWelds(*archive, query); });
}

HttpReply WeldPages::exportList(const HttpRequest& request, bool csv)
{
    WeldListQuery query;
    if (std::string error = query.read(request); !error.empty()) {
        return httpFailure(kBadRequest, std::move(error));
    }
    return exportWelds(m_worker, m_archive, std::move(query.query.filter),
                       csv ? ExportFormat::Csv : ExportFormat::JsonLines);
}

HttpReply WeldPages::curve(const HttpRequest& request)
{
    CurveQuery query;
    query.id = idOf(request);
    query.from = secondsOf(request, "from");
    query.to = secondsOf(request, "to");
    query.columns = std::clamp<std::size_t>(numberOr(valueOf(request, "columns"), query.columns), 16,
                                            CurveQuery::kMaxColumns);
    return ask([archive = m_archive, query] { return curveOf(*archive, query); });
}

std::optional<HttpReply> WeldPages::handle(const HttpRequest& request)
{
    const std::string_view path = request.path;
    if (path == "/api/welds") {
        return list(request);
    }
    if (path == "/api/weld") {
        return ask([archive = m_archive, id = idOf(request)] { return describeWeld(*archive, id); });
    }
    if (path == "/api/curve") {
        return curve(request);
    }
    if (path == "/api/band") {
        const BandQuery query{idOf(request), numberOr<std::int64_t>(valueOf(request, "program"), 0)};
        return ask([archive = m_archive, query] { return bandOf(*archive, query); });
    }
    if (path == "/api/welds.csv" || path == "/api/welds.jsonl") {
        return exportList(request, path == "/api/welds.csv");
    }
    if (path == "/api/weld.csv" || path == "/api/weld.jsonl") {
        return exportSamples(m_worker, m_archive, idOf(request),
                             path == "/api/weld.csv" ? ExportFormat::Csv : ExportFormat::JsonLines);
    }
    return std::nullopt;
}

void WeldPages::writeMetrics(OpenMetrics& page) const
{
    page.counter("web_archive_questions", "Questions that the archive has answered to the web server.");
    page.sample(m_counts->questions.load());
    page.counter("web_archive_failures", "Questions that the archive could not answer.");
    page.sample(m_counts->failures.load());
    page.counter("web_archive_milliseconds", "Time that the archive took for these questions.");
    page.sample(m_counts->nanoseconds.load() / static_cast<std::uint64_t>(kMillisecond));
}

} // namespace TelvaneTool
