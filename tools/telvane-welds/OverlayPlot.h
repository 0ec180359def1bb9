#pragma once

#include "archive/reader/ArchiveReader.h"

#include <array>
#include <string>
#include <vector>

namespace TelvaneArchive
{

/// A weld among those that are drawn over each other.
struct OverlaidWeld
{
    std::int64_t id = 0;
    std::string verdict;
    Envelope envelope;
    std::vector<Finding> findings;
};

/// The range of welds that are like the ones drawn.
struct OverlayBand
{
    struct Point
    {
        double seconds = 0.0;
        std::array<double, kChannels> low = {};
        std::array<double, kChannels> high = {};
    };

    std::size_t welds = 0;
    std::vector<Point> points; ///< where at least three of them have samples
};

/// Welds that can be told apart by their colours.
constexpr std::size_t kMaxOverlaid = 8;

/// \param like      envelopes of other welds
/// \param duration  in s
OverlayBand bandOf(const std::vector<Envelope>& like, double duration);

/// \return the gnuplot script that draws the welds over each other, one panel for each measured quantity
std::string printOverlay(const std::vector<OverlaidWeld>& welds, const OverlayBand& band,
                         const std::string& terminal);

/// Draws welds of an archive over each other, with the band of their like.
/// \param like    condition; empty for complete welds of the same program and part as the first one that are not "not_ok"
/// \param output  file that ends with .svg or .png
/// \return an exit code
int drawOverlay(ArchiveReader& reader, const std::vector<Weld>& welds, const std::string& like,
                const std::string& output);

} // namespace TelvaneArchive
