#pragma once

#include <Telvane/RecordTable.h>

#include <cstdint>
#include <string>
#include <vector>

namespace TelvaneArchive
{

/// Why a weld is not OK, or nearly so.
class VerdictReason : public Telvane::TelvaneDataTypeBase
{
public:
    std::string level;      ///< "warning" or "not_ok"
    std::string metric;     ///< name of a column, or "course of amps" and the like
    double value = 0.0;     ///< in the unit of the metric
    double low = 0.0;       ///< limit
    double high = 0.0;      ///< limit
    double from = 0.0;      ///< where in the weld, s since its start; both 0 for the whole weld
    double to = 0.0;        ///< the end of that range
    std::string limitsFrom; ///< "absolute", or the number of references

    TELVANE_RECORD(VerdictReason, level, metric, value, low, high, from, to, limitsFrom)
};

/// A verdict, as it is published on the bus.
class WeldVerdict : public Telvane::TelvaneDataTypeBase
{
public:
    int tag = 0;            ///< of the weld on the bus
    std::string uid;        ///< identity of the weld in all archives
    std::int64_t id = 0;    ///< number of the weld in the archive that judged it
    std::string module;     ///< name of the module
    std::string partNumber; ///< empty if unknown
    std::string verdict;    ///< "ok", "warning" or "not_ok"
    std::string rule;       ///< which welds the rule is for
    std::vector<VerdictReason> reasons;

    TELVANE_RECORD(WeldVerdict, tag, uid, id, module, partNumber, verdict, rule, reasons)
};

} // namespace TelvaneArchive
