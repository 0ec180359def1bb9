#include "weld/RecordSink.h"

#include "common/bus/BusConnection.h"
#include "common/bus/SequenceNumbers.h"
#include "common/cli/Messages.h"
#include "common/support/Json.h"
#include "common/support/Saturating.h"
#include "recording/RecordingLine.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kMaxPending = 262144;

} // namespace

void BusSink::publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record, Nanoseconds /*stamp*/,
                      const std::string& /*group*/)
{
    m_connection.publish(channel, record);
}

bool BusSink::sleepUntil(Nanoseconds deadline)
{
    return m_connection.sleepUntil(deadline);
}

bool RecordingSink::open(const std::string& path, bool replace)
{
    m_path = path;
    m_compressor = makeCompressor(compressionOfPath(path));
    m_error = m_file.open(path, replace);
    return report();
}

bool RecordingSink::report() const
{
    if (m_error == EEXIST) {
        printError(m_path + " exists; use --force to replace it");
    } else if (m_error != 0) {
        printError("cannot write " + m_path + ": " + std::strerror(m_error));
    }
    return m_error == 0;
}

void RecordingSink::publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record,
                            Nanoseconds stamp, const std::string& group)
{
    if (!m_begun) {
        m_begun = true;
        m_started = stamp;
        m_pending = printHeader({m_started, "", {"WeldTriggerStart", "WeldTraceData", "WeldTriggerEnd"}, 1});
    }
    cJSON* packaged = nullptr;
    if (record.Package(&packaged) != 0) {
        cJSON_Delete(packaged);
        m_error = ENOMEM;
        return;
    }
    const std::string payload = printJson(JsonTree(packaged).get());
    m_last = std::max(m_last, subtractSaturated(stamp, m_started));
    RecordedMessage message = {m_last, channel, static_cast<int>(m_records++ % kSequenceNumbers), payload};
    message.group = group;
    appendMessage(m_pending, message);
    if (m_pending.size() >= kMaxPending) {
        write(false);
    }
}

void RecordingSink::write(bool last)
{
    if (m_error == 0) {
        m_error = m_file.write(m_compressor != nullptr ? m_compressor->compress(m_pending, last) : m_pending);
    }
    m_pending.clear();
}

bool RecordingSink::sleepUntil(Nanoseconds /*deadline*/)
{
    return m_error == 0 && !m_connection.stopping();
}

bool RecordingSink::finish()
{
    write(true);
    m_error = m_error == 0 ? m_file.commit() : m_error;
    return report();
}

} // namespace TelvaneTool
