#pragma once

// Turns records into the text of publications, and keeps what it can from one to the next.

#include "support/JsonTree.h"
#include "transport/MessagePrinter.h"

#include <string>
#include <typeinfo>

namespace Telvane
{

class TelvaneDataTypeBase;

/// Not for two threads at a time.
class PublicationWriter
{
public:
    /// \param[out] text the publication, valid until the next call
    /// \return 0; `-ENOMEM`; -1 when a field of the record could not be written
    int write(const std::string& channel, TelvaneDataTypeBase& record, const char*& text);

    /// Prints a message that is not a record's publication.
    const char* print(cJSON* message, MessagePrinter::Form form) { return m_printer.print(message, form); }

    /// \return the length of the text printed last
    int length() const { return m_printer.length(); }

private:
    int package(TelvaneDataTypeBase& record);
    int packageAnew(TelvaneDataTypeBase& record);

    MessagePrinter m_printer;
    JsonTree m_message;                      ///< the last publication's tree
    cJSON* m_header = nullptr;               ///< of m_message
    cJSON* m_payload = nullptr;              ///< of m_message
    const std::type_info* m_class = nullptr; ///< whose records the tree can be used for again, or null
};

} // namespace Telvane
