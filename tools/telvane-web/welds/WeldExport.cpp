#include "telvane-web/welds/WeldExport.h"

#include "archive/reader/WeldText.h"
#include "telvane-web/http/Query.h"

#include <limits>

namespace TelvaneTool
{

using TelvaneArchive::ArchiveReader;
using TelvaneArchive::Sample;
using TelvaneArchive::Weld;

namespace
{

constexpr std::size_t kWeldsPerPiece = 100;
constexpr std::size_t kSamplesPerPiece = 2000;
constexpr Nanoseconds kRetry = 50 * kMillisecond;
constexpr Nanoseconds kPatience = 30 * kSecond;
constexpr std::int64_t kEnd = std::numeric_limits<std::int64_t>::max();

/// A file in pieces that the worker makes. The next one is made when the client has taken the one before.
class ExportStream : public HttpStream
{
public:
    /// \param piece  makes the next piece; a body without text is the end, and a status other than 200 a failure
    ExportStream(Worker& worker, Worker::Job piece)
        : m_worker(worker), m_piece(std::make_shared<Worker::Job>(std::move(piece)))
    {}

    std::string next(Nanoseconds now) override
    {
        if (m_job == nullptr) {
            m_job = m_worker.run([piece = m_piece] { return (*piece)(); });
            m_retry = now + kRetry;
            return {};
        }
        if (!m_job->isReady()) {
            return {};
        }
        const std::optional<HttpReply> piece = m_job->take();
        m_job = nullptr;
        m_retry = now;
        m_failed = !piece || piece->status != 200;
        m_complete = !m_failed && piece->body.empty();
        return m_failed ? std::string() : piece->body;
    }
    bool isComplete() const override { return m_complete; }
    Nanoseconds due() override { return m_job == nullptr ? m_retry : m_job->isReady() ? 0 : kEnd; }
    bool observe(Nanoseconds now, std::size_t /*unsent*/, bool blocked) override
    {
        m_blockedSince = blocked ? m_blockedSince : now;
        return !m_failed && now - m_blockedSince < kPatience;
    }

private:
    Worker& m_worker;
    std::shared_ptr<Worker::Job> m_piece; ///< it knows where the next piece begins
    std::unique_ptr<HttpLater> m_job;
    Nanoseconds m_retry = 0;
    Nanoseconds m_blockedSince = kEnd;
    bool m_complete = false;
    bool m_failed = false; ///< the file ends in the middle, so that the browser reports a failed download
};

HttpReply fileReply(Worker& worker, Worker::Job piece, const std::string& name, ExportFormat format)
{
    const bool csv = format == ExportFormat::Csv;
    HttpReply reply;
    reply.type = csv ? "text/csv; charset=utf-8" : "application/jsonl";
    reply.fileName = name + (csv ? ".csv" : ".jsonl");
    reply.stream = std::make_unique<ExportStream>(worker, std::move(piece));
    return reply;
}

} // namespace

HttpReply exportWelds(Worker& worker, std::shared_ptr<WeldArchive> archive, TelvaneArchive::WeldFilter filter,
                      ExportFormat format)
{
    const bool csv = format == ExportFormat::Csv;
    Worker::Job piece = [archive = std::move(archive), filter = std::move(filter), csv,
                         lastId = std::int64_t{-1}]() mutable {
        HttpReply reply;
        ArchiveReader* const reader = archive->reader(reply);
        if (reader == nullptr) {
            return reply;
        }
        ArchiveReader::Query query;
        query.filter = filter;
        query.limit = kWeldsPerPiece;
        query.afterId = std::max<std::int64_t>(lastId, 0);
        std::vector<Weld> welds;
        if (const TelvaneArchive::Status status = reader->list(query, welds); !status) {
            return archive->failed(status);
        }
        if (lastId < 0 && csv) {
            reply.body = TelvaneArchive::csvHeading();
        }
        for (const Weld& weld : welds) {
            reply.body += csv ? TelvaneArchive::csvLine(weld, TelvaneArchive::CsvTexts::NoFormulas)
                              : TelvaneArchive::jsonLine(weld);
        }
        lastId = welds.empty() ? std::max<std::int64_t>(lastId, 0) : welds.back().id;
        return reply;
    };
    return fileReply(worker, std::move(piece), "welds", format);
}

HttpReply exportSamples(Worker& worker, std::shared_ptr<WeldArchive> archive, std::int64_t id,
                        ExportFormat format)
{
    const bool csv = format == ExportFormat::Csv;
    Worker::Job piece = [archive = std::move(archive), id, csv, first = true,
                         position = ArchiveReader::SamplePosition()]() mutable {
        HttpReply reply;
        ArchiveReader* const reader = archive->reader(reply);
        if (reader == nullptr) {
            return reply;
        }
        std::vector<Sample> samples;
        if (const TelvaneArchive::Status status =
                reader->samples(id, {}, kSamplesPerPiece, position, samples);
            !status) {
            return archive->failed(status);
        }
        if (first && csv) {
            reply.body = TelvaneArchive::sampleCsvHeading();
        }
        for (const Sample& sample : samples) {
            reply.body +=
                csv ? TelvaneArchive::sampleCsvLine(sample) : TelvaneArchive::sampleJsonLine(sample);
        }
        first = false;
        return reply;
    };
    return fileReply(worker, std::move(piece), "weld-" + std::to_string(id), format);
}

} // namespace TelvaneTool
