#pragma once

#include "telvane-web/http/Worker.h"
#include "telvane-web/welds/WeldArchive.h"

#include <memory>

namespace TelvaneTool
{

enum class ExportFormat
{
    Csv,
    JsonLines,
};

/// \return all columns of the welds that match, in pieces: any number of them needs no more memory than a few
HttpReply exportWelds(Worker& worker, std::shared_ptr<WeldArchive> archive, TelvaneArchive::WeldFilter filter,
                      ExportFormat format);

/// \return all samples of a weld, in pieces
HttpReply exportSamples(Worker& worker, std::shared_ptr<WeldArchive> archive, std::int64_t id,
                        ExportFormat format);

} // namespace TelvaneTool
