#pragma once

#include "archive/samples/Sample.h"
#include "archive/welds/WeldColumns.h"

#include <Telvane/WeldRecords.h>

namespace TelvaneArchive
{

/// \return the sample of a record
Sample sampleOf(const Telvane::WeldTraceData& trace);

/// Fills in what the record of a start says.
void takeStart(Weld& weld, const Telvane::WeldTriggerStart& start);

/// Fills in what the record of an end says. Quantities without a unit were not measured and stay empty.
void takeEnd(Weld& weld, const Telvane::WeldTriggerEnd& end);

} // namespace TelvaneArchive
