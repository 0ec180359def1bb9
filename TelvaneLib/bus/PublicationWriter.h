#pragma once

// Turns records into the text of publications.

#include "support/JsonWriter.h"
#include "transport/SeqpacketSocket.h"

#include <string>

namespace Telvane
{

class TelvaneDataTypeBase;

/// Keeps its buffer from one text to the next. Not for two threads at a time.
class PublicationWriter
{
public:
    /// \param limit bytes at which a text ends
    explicit PublicationWriter(std::size_t limit = kMessageLimit) : m_text(limit) {}

    /// \param[out] text the publication, valid until the next call
    /// \return 0; `-ENOMEM`; -1 if a field of the record could not be written
    int write(const std::string& channel, TelvaneDataTypeBase& record, const char*& text);

    /// Prints a message that is not a record's publication.
    /// \return the text, valid until the next call; null if memory runs out
    const char* print(const cJSON* message);

    /// \return the length of the text printed last
    int length() const { return static_cast<int>(m_text.length()); }

private:
    JsonWriter m_text;
};

} // namespace Telvane
