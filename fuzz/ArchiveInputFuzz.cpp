// What the archive reads: stored chunks, envelopes and blocks, conditions, rules of the judge, columns from a scanner, and the
// records of welds. The first byte says which.
//
// What is read can be written and read again. No condition leads to a statement that the database refuses, and every
// sample of a record is in a weld or counted as a stray.

#include "FuzzSupport.h"

#include "archive/follow/WeldImporter.h"
#include "archive/judge/JudgeRules.h"
#include "archive/reader/ArchiveReader.h"
#include "archive/samples/Envelope.h"
#include "archive/samples/SampleCodec.h"
#include "archive/welds/WeldBlock.h"
#include "common/bus/RecordCheck.h"
#include "helpers/SampleBits.h"
#include "recording/RecordingLine.h"

#include <filesystem>
#include <zlib.h>

using Telvane::require;
using Telvane::Testing::sameBits;

namespace TelvaneArchive
{
namespace
{

/// One archive for all inputs.
class FuzzedArchive
{
public:
    FuzzedArchive() : m_folder(makeFolder())
    {
        Status status;
        m_store = ArchiveStore::open(m_folder + "/welds.db", {}, status);
        require(m_store != nullptr, "an archive is made");
        m_reader = ArchiveReader::open(m_folder + "/welds.db", status);
        require(m_reader != nullptr, "an archive is opened");
    }
    ~FuzzedArchive()
    {
        m_reader.reset();
        m_store.reset();
        std::error_code error;
        std::filesystem::remove_all(m_folder, error);
    }
    FuzzedArchive(const FuzzedArchive&) = delete;
    FuzzedArchive& operator=(const FuzzedArchive&) = delete;

    ArchiveStore& store() { return *m_store; }
    ArchiveReader& reader() { return *m_reader; }

private:
    static std::string makeFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "telvane-fuzz-XXXXXX").string();
        require(mkdtemp(name.data()) != nullptr, "a folder is made");
        return name;
    }

    std::string m_folder;
    std::unique_ptr<ArchiveStore> m_store;
    std::unique_ptr<ArchiveReader> m_reader;
};

FuzzedArchive& archive()
{
    static FuzzedArchive archive;
    return archive;
}

void checkChunk(std::string_view input)
{
    ChunkHeader header;
    std::vector<Sample> samples;
    if (!decodeChunk(input, header, samples)) {
        return;
    }
    require(samples.size() == header.samples && !samples.empty(),
            "a chunk has the samples that its header says");
    const std::string chunk = encodeChunk(samples.data(), samples.size(), header.weld, header.number);
    if (chunk.empty()) {
        return; // too large when compressed by us
    }
    std::vector<Sample> again;
    require(decodeChunk(chunk, header, again) && again.size() == samples.size(),
            "what was written can be read");
    for (std::size_t i = 0; i < samples.size(); ++i) {
        require(sameBits(samples[i], again[i]), "samples keep each bit");
    }
}

void append(std::string& output, std::uint64_t bits, std::size_t bytes)
{
    for (std::size_t i = 0; i < bytes; ++i) {
        output += static_cast<char>(bits >> (8 * i));
    }
}

/// Reads columns that are damaged although the checksum is right. The first byte is the number of samples, less one.
void checkColumns(std::string_view input)
{
    if (input.empty()) {
        return;
    }
    const std::string_view raw = input.substr(1);
    std::string rest;
    append(rest, 1, 8); // weld
    append(rest, 0, 4); // number of the chunk
    append(rest, static_cast<unsigned char>(input[0]) + 1U, 4);
    append(rest, raw.size(), 4);
    append(rest, 0, 8);
    rest += pack(raw);
    const Sample sample;
    std::string chunk = encodeChunk(&sample, 1, 1, 0).substr(0, 4); // the magic number
    append(chunk, 12 + rest.size(), 4);
    append(chunk, crc32(0, reinterpret_cast<const Bytef*>(rest.data()), static_cast<uInt>(rest.size())), 4);
    checkChunk(chunk + rest);
}

void checkEnvelope(std::string_view input)
{
    Envelope envelope;
    if (decodeEnvelope(input, envelope)) {
        Envelope again;
        require(decodeEnvelope(encodeEnvelope(envelope), again), "what was written can be read");
        require(again.start == envelope.start && again.end == envelope.end &&
                    again.parts.size() == envelope.parts.size(),
                "an envelope keeps its range");
    }
}

/// Reads a column of a block whose compression is right.
void checkBlock(std::string_view input)
{
    for (const Column name : {Column::StartNs, Column::MeanVolts, Column::PartNumber}) {
        BlockColumn column(name);
        if (!column.decode(pack(input))) {
            continue;
        }
        BlockColumn copy(name);
        for (std::size_t i = 0; i < column.size(); ++i) {
            const bool text = column.type() == ColumnType::Text;
            require(!text || column.place(i) < column.texts().size(), "a place is in the list");
            require(copy.add(column.isNull(i) ? Value()
                             : text           ? Value(column.texts()[column.place(i)])
                                              : column.value(i)),
                    "a value can be written");
        }
        BlockColumn again(name);
        require(again.decode(copy.encode()) && again.size() == column.size(), "what was written can be read");
    }
}

void checkCondition(std::string_view input)
{
    ArchiveReader::Query query;
    std::string error;
    if (!readWhere(std::string(input), query.filter, error)) {
        require(!error.empty(), "a refusal has a reason");
        return;
    }
    std::vector<Weld> welds;
    const Status status = archive().reader().list(query, welds);
    require(status.code != Status::Code::Refused, "a condition makes a valid statement");
    matches(Weld(), query.filter);
}

void checkRules(std::string_view input)
{
    std::vector<JudgeRule> rules;
    if (!readRules(std::string(input), rules).empty()) {
        return;
    }
    require(!rules.empty(), "there are rules");
    RuleJudge judge(rules, archive().reader());
    Judge::Verdict verdict;
    std::string name;
    std::vector<std::string> remarks;
    require(judge.prepare(remarks).code != Status::Code::Refused, "a rule makes valid statements");
    judge.judge(Weld(), verdict, name);
}

void checkRecords(std::string_view input)
{
    ArchiveStore& store = archive().store();
    WeldImporter importer(store, {});
    TelvaneTool::RecordingLineReader lines;
    TelvaneTool::RecordedMessage message;
    Status status;
    std::uint64_t samples = 0;
    while (!input.empty() && status) {
        const std::string_view line = input.substr(0, input.find('\n'));
        input.remove_prefix(std::min(line.size() + 1, input.size()));
        Telvane::WeldTriggerStart start;
        Telvane::WeldTraceData trace;
        Telvane::WeldTriggerEnd end;
        if (!lines.read(line, message) || message.isNote()) {
            continue;
        }
        if (message.channel == "WeldTraceData" && TelvaneTool::readRecord(message.payload, trace)) {
            importer.add(trace);
            ++samples;
        } else if (message.channel == "WeldTriggerStart" && TelvaneTool::readRecord(message.payload, start)) {
            importer.add(start, std::string(message.group));
        } else if (message.channel == "WeldTriggerEnd" && TelvaneTool::readRecord(message.payload, end)) {
            status = importer.add(end);
        }
    }
    status = status ? importer.finish() : status;
    require(static_cast<bool>(status), "records can be stored");
    const std::vector<std::int64_t> closed = store.takeClosed();
    std::uint64_t found = importer.strays();
    for (const std::int64_t id : closed) {
        std::uint64_t damaged = 0;
        store.readSamples(
            id, [&found](const std::vector<Sample>& some) { found += some.size(); }, damaged);
        require(damaged == 0, "what was stored is sound");
        std::optional<Weld> weld;
        require(static_cast<bool>(archive().reader().weld(id, weld)) && weld, "the row is there");
    }
    require(importer.known() != 0 || found == samples, "each sample is in a weld or counted");
    require(static_cast<bool>(store.deleteWelds(closed)), "welds can be deleted");
}

void check(char kind, std::string_view input)
{
    switch (kind) {
    case 'c':
        return checkChunk(input);
    case 'd':
        return checkColumns(input);
    case 'e':
        return checkEnvelope(input);
    case 'p':
        return checkEnvelope(pack(input));
    case 't':
        return checkBlock(input);
    case 'w':
        return checkCondition(input);
    case 'r':
        return checkRules(input);
    case 's': {
        Context context;
        Weld weld;
        if (context.add(std::string(input)).empty()) {
            require(context.apply(weld).empty(), "a column that was read can be set");
        }
        return;
    }
    default:
        return checkRecords(input);
    }
}

} // namespace
} // namespace TelvaneArchive

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input = Telvane::textOf(data, size);
    if (!input.empty()) {
        TelvaneArchive::check(input[0], input.substr(1));
    }
    return 0;
}
