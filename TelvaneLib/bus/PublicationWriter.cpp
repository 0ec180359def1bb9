#include "bus/PublicationWriter.h"

#include "base/RecordEngine.h"
#include "transport/SeqpacketSocket.h"

#include <Telvane/TelvaneDataTypeBase.h>

#include <cerrno>
#include <new>

namespace Telvane
{

PublicationWriter::PublicationWriter() : m_text(kMessageLimit) {}

int PublicationWriter::write(const std::string& channel, TelvaneDataTypeBase& record, const char*& text)
{
    m_text.clear();
    m_text.put("{\n\t\"header\":\t");
    m_text.string(channel.c_str());
    m_text.put(",\n\t\"payload\":\t");
    try {
        if (!RecordEngine::print(record, m_text, 1)) {
            return -1;
        }
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    m_text.put("\n}");
    text = m_text.finish();
    return text != nullptr ? 0 : -ENOMEM;
}

const char* PublicationWriter::print(const cJSON* message)
{
    m_text.clear();
    m_text.tree(message, 0);
    return m_text.finish();
}

} // namespace Telvane
