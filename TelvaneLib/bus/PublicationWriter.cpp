// A publication's tree is built by the JSON library once for each class of record, and used again for the
// next record of that class with its values exchanged: of what publishing costs, building the tree anew and
// freeing it was the larger part. That holds only for classes whose list of fields tells everything about
// their JSON form; a class with a `_packageData` of its own is packaged anew each time.

#include "bus/PublicationWriter.h"

#include "base/Repackaging.h"
#include "transport/Envelope.h"

#include <Telvane/TelvaneDataTypeBase.h>

#include <cerrno>
#include <new>
#include <utility>

namespace Telvane
{

int PublicationWriter::write(const std::string& channel, TelvaneDataTypeBase& record, const char*& text)
{
    if (const int result = package(record); result != 0) {
        m_message.reset();
        m_class = nullptr;
        return result;
    }
    m_header->valuestring = const_cast<char*>(channel.c_str()); // a reference: neither changed nor freed
    text = m_printer.print(m_message.get(), MessagePrinter::Form::Formatted);
    return text != nullptr ? 0 : -ENOMEM;
}

int PublicationWriter::package(TelvaneDataTypeBase& record)
{
    if (m_class == nullptr || *m_class != typeid(record)) {
        return packageAnew(record);
    }
    bool packaged = false;
    bool reused = false;
    try {
        const Repackaging used(record, m_payload);
        packaged = record._packageData(m_payload);
        reused = used.listTellsAll();
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    if (!reused) {
        return packageAnew(record);
    }
    return packaged ? 0 : -1;
}

int PublicationWriter::packageAnew(TelvaneDataTypeBase& record)
{
    const Repackaging watched(record, nullptr);
    cJSON* packaged = nullptr;
    const int result = record.Package(&packaged);
    JsonTree payload(packaged);
    if (result < 0) {
        return result;
    }
    m_payload = packaged;
    m_message = makePublication("", std::move(payload));
    if (m_message == nullptr) {
        return -ENOMEM;
    }
    m_header = m_message->child;
    m_class = watched.listTellsAll() ? &typeid(record) : nullptr;
    return 0;
}

} // namespace Telvane
