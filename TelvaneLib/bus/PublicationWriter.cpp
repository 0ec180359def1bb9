#include "bus/PublicationWriter.h"

#include "base/RecordEngine.h"
#include "transport/Envelope.h"

#include <Telvane/TelvaneDataTypeBase.h>

#include <cerrno>
#include <new>

namespace Telvane
{

int PublicationWriter::write(const std::string& channel, TelvaneDataTypeBase& record, const char*& text)
{
    beginPublication(m_text, channel);
    try {
        if (!RecordEngine::print(record, m_text, 1)) {
            return -1;
        }
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    endPublication(m_text);
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
