#pragma once

// Records of an application, with members of types that the library's own records do not have. A program that uses a
// class adds TELVANE_DEFINE_RECORD for it.

#include <Telvane/DateTime.h>
#include <Telvane/RecordTable.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Application
{

enum class Grade : std::uint8_t
{
    None,
    Good = 200,
};

class Defect : public Telvane::TelvaneDataTypeBase
{
public:
    float depth = 0.1F;
    TELVANE_RECORD(Defect, depth)
};

/// Numbers only: relays of it are read without a tree.
class Gauge : public Telvane::TelvaneDataTypeBase
{
public:
    float factor = 1.5F;
    unsigned cycles = 4000000000U;
    std::int64_t offset = -Telvane::kLargestInteger;
    std::uint64_t total = 0;
    std::int8_t step = -128;
    Grade grade = Grade::Good;

    TELVANE_RECORD(Gauge, factor, cycles, offset, total, step, grade)
};

/// A member of each other type.
class Inspection : public Telvane::TelvaneDataTypeBase
{
public:
    std::optional<double> length;
    std::optional<std::string> note;
    std::vector<double> currents;
    std::vector<bool> passed;
    std::vector<std::string> names;
    std::map<std::string, int> counts;
    std::unordered_map<std::string, Defect> worst;
    std::vector<std::vector<unsigned>> grid;
    std::map<std::string, std::vector<Defect>> defects;
    std::optional<Telvane::DateTime> repaired;
    int last = 1;

    TELVANE_RECORD(Inspection, length, note, currents, passed, names, counts, worst, grid, defects, repaired,
                   last)
};

} // namespace Application
