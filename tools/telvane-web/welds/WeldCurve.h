#pragma once

#include "telvane-web/welds/WeldArchive.h"

#include <cstddef>
#include <cstdint>

namespace TelvaneTool
{

/// A part of a weld, to be drawn.
struct CurveQuery
{
    static constexpr std::size_t kMaxColumns = 4096;

    std::int64_t id = 0;
    double from = 0.0; ///< s since the start of the weld
    double to = 0.0;   ///< 0 for the end
    std::size_t columns = 1000;
};

/// \return as JSON, either each sample of the part, if they are not more than the columns, or minimum, mean and maximum
///         of each column
HttpReply curveOf(WeldArchive& archive, const CurveQuery& query);

/// Which welds to compare one with: the last ones that ended normally and were not judged bad.
struct BandQuery
{
    std::int64_t id = 0;      ///< those before this weld, with its program; 0 for the newest
    std::int64_t program = 0; ///< the program, if \p id is 0
};

/// \return the lowest and the highest mean of former welds in each column, as JSON
HttpReply bandOf(WeldArchive& archive, const BandQuery& query);

/// \return how long a weld took, ns; up to now for one that has not ended
std::int64_t lengthOf(const TelvaneArchive::Weld& weld);

} // namespace TelvaneTool
