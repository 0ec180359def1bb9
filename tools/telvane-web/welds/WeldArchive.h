#pragma once

#include "archive/reader/ArchiveReader.h"
#include "common/support/Clock.h"
#include "telvane-web/http/HttpTypes.h"

#include <memory>
#include <string>

namespace TelvaneTool
{

/// The archive as the pages see it: opened when the first page asks, and again after its server was away.
/// \par Threads  That of the worker.
class WeldArchive
{
public:
    /// How long the server may work on a statement. Meanwhile other questions wait.
    static constexpr Nanoseconds kLongestStatement = 10 * kSecond;

    explicit WeldArchive(std::string location, Nanoseconds longestStatement = kLongestStatement)
        : m_location(std::move(location)), m_longestStatement(longestStatement)
    {}

    /// \param[out] failure  the answer if the archive cannot be opened
    /// \return null if it cannot be opened
    TelvaneArchive::ArchiveReader* reader(HttpReply& failure);

    /// \return the answer to a failed question
    HttpReply failed(const TelvaneArchive::Status& status);

private:
    const std::string m_location;
    const Nanoseconds m_longestStatement;
    std::unique_ptr<TelvaneArchive::ArchiveReader> m_reader;
};

} // namespace TelvaneTool
