#pragma once

#include "telvane-web/welds/WeldArchive.h"

#include <optional>
#include <string>

namespace TelvaneTool
{

/// Which welds a page wants to see, from the query of its request: where, part, program, verdict, from and to (ms since
/// the Unix epoch), order, ascending, limit, and where the page before ended.
struct WeldListQuery
{
    static constexpr std::size_t kPage = 50;
    static constexpr std::size_t kMaxPage = 200;

    TelvaneArchive::ArchiveReader::Query query;
    std::size_t page = kPage;
    std::size_t skip = 0;               ///< welds of the pages before
    std::optional<std::int64_t> lastNs; ///< start of the last weld of the page before, in order of time
    std::int64_t lastId = 0;

    /// \return an error message, or an empty text
    std::string read(const HttpRequest& request);
};

/// \return a page of welds as JSON: {"welds": [...], "next": "..."}; without "next" it is the last one
HttpReply listWelds(WeldArchive& archive, const WeldListQuery& wanted);

} // namespace TelvaneTool
