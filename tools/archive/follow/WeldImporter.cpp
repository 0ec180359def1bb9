// The identity of an imported weld is made from its contents, so that the same file adds nothing the second time. A
// weld that was also followed on the bus has another identity; it is recognised by module, tag, start and number of
// samples.

#include "archive/follow/WeldImporter.h"

#include "archive/follow/WeldRecords.h"

#include <cstdio>
#include <cstring>

namespace TelvaneArchive
{

namespace
{

/// FNV-1a of 64 bits with two different starts: against chance, not against malice.
class Fingerprint
{
public:
    void add(std::uint64_t bits)
    {
        for (unsigned shift = 0; shift < 64; shift += 8) {
            addByte(static_cast<unsigned char>(bits >> shift));
        }
    }
    void add(double value)
    {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        add(bits);
    }
    void add(std::string_view text)
    {
        for (const char byte : text) {
            addByte(static_cast<unsigned char>(byte));
        }
        add(std::uint64_t{text.size()});
    }
    std::string text() const
    {
        char text[40];
        std::snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(m_first),
                      static_cast<unsigned long long>(m_second));
        return text;
    }

private:
    void addByte(unsigned char byte)
    {
        constexpr std::uint64_t kPrime = 1099511628211U;
        m_first = (m_first ^ byte) * kPrime;
        m_second = (m_second ^ static_cast<unsigned char>(byte + 1U)) * kPrime;
    }

    std::uint64_t m_first = 14695981039346656037U;
    std::uint64_t m_second = 1469598103934665603U;
};

} // namespace

void WeldImporter::add(const Telvane::WeldTriggerStart& start, const std::string& group)
{
    Open& open = m_open[m_next];
    open.start = start;
    open.group = group;
    m_matcher.addStart(m_next++, start);
}

void WeldImporter::add(const Telvane::WeldTraceData& trace)
{
    const auto match = m_matcher.addSample(trace);
    if (!match) {
        ++m_strays;
        return;
    }
    Open& open = m_open[match->weld];
    open.samples.push_back(sampleOf(trace));
    open.missed += match->missing;
}

Status WeldImporter::add(const Telvane::WeldTriggerEnd& end)
{
    const auto match = m_matcher.addEnd(end);
    if (!match) {
        return {};
    }
    const auto found = m_open.find(*match);
    Status status = store(found->second, &end);
    m_open.erase(found);
    return status;
}

Status WeldImporter::finish()
{
    Status status;
    for (auto& [number, open] : m_open) {
        status = status ? store(open, nullptr) : status;
    }
    m_open.clear();
    return status;
}

std::string WeldImporter::uidOf(const Open& open, const Weld& weld) const
{
    Fingerprint fingerprint;
    fingerprint.add(m_settings.module);
    fingerprint.add(open.group);
    const auto start = static_cast<std::uint64_t>(weld.whole(Column::StartNs));
    if (m_settings.absoluteTime) {
        fingerprint.add(start);
    }
    fingerprint.add(std::uint64_t{open.samples.size()});
    for (const Sample& sample : open.samples) {
        fingerprint.add(static_cast<std::uint64_t>(sample.number));
        if (m_settings.absoluteTime) {
            fingerprint.add(static_cast<std::uint64_t>(sample.time));
        }
        for (const double value : sample.values) {
            fingerprint.add(value);
        }
    }
    return "import-" + fingerprint.text();
}

Status WeldImporter::isKnown(const Weld& weld, std::size_t samples, bool& known)
{
    std::vector<Row> rows;
    Status status =
        m_store.database().run("SELECT count(*) FROM weld WHERE uid = $1 OR (module = $2 AND tag = $3 AND "
                               "start_ns = $4 AND samples = $5 "
                               "AND source = 'bus')",
                               {weld.text(Column::Uid), m_settings.module, weld.whole(Column::Tag),
                                weld.whole(Column::StartNs), static_cast<std::int64_t>(samples)},
                               &rows);
    known = status && wholeOf(rows[0][0]) != 0;
    return status;
}

Status WeldImporter::store(Open& open, const Telvane::WeldTriggerEnd* end)
{
    Weld weld;
    takeStart(weld, open.start);
    weld[Column::Uid] = uidOf(open, weld);
    weld[Column::Module] = m_settings.module;
    weld[Column::Source] = m_settings.source;
    weld[Column::SourceName] = m_settings.file;
    weld[Column::UtcOffsetS] = utcOffset(weld.whole(Column::StartNs));
    if (!open.group.empty()) {
        weld[m_settings.groupIsPart ? Column::PartNumber : Column::Label] = open.group;
    }
    const std::string wrong = m_settings.context.apply(weld);
    if (!wrong.empty()) {
        return {Status::Code::Failed, wrong};
    }
    if (end != nullptr) {
        takeEnd(weld, *end);
    }
    bool known = false;
    Status status = isKnown(weld, open.samples.size(), known);
    if (!status || known) {
        m_known += known ? 1 : 0;
        return status;
    }
    const std::int64_t handle = m_store.begin(std::move(weld), "importing");
    std::uint64_t missing = open.missed;
    constexpr std::size_t kPiece = 100'000;
    for (std::size_t i = 0; i < open.samples.size() && status; ++i) {
        m_store.add(handle, open.samples[i], std::exchange(missing, 0));
        if (i % kPiece == kPiece - 1) {
            status = m_store.commit();
        }
    }
    m_store.end(handle, end != nullptr ? "complete" : "no_end");
    status = status ? m_store.commit() : status;
    m_imported += status ? 1 : 0;
    m_samples += open.samples.size();
    return status;
}

} // namespace TelvaneArchive
