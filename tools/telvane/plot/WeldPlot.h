#pragma once

#include "plot/WeldTraces.h"

#include <string>
#include <vector>

namespace TelvaneTool
{

/// The samples that share a column of the picture.
struct PlotPoint
{
    double time = 0.0;     ///< mean, s
    bool afterGap = false; ///< do not connect with the previous point
    double min = 0.0;
    double mean = 0.0;
    double max = 0.0;
};

/// Reduces a curve to what a picture can show, and keeps its peaks. Gaps in the sample numbers that are at least
/// one column wide remain gaps.
/// \param quantity  member of the data point to draw
std::vector<PlotPoint> downsample(const std::vector<RecordedWeld::Sample>& samples,
                                  double Telvane::WeldTraceDataPoint::*quantity, std::size_t columns);

/// A range of time, in s.
struct PlotRange
{
    double from = 0.0;
    double to = 0.0;
};

/// \return where samples are missing: in order, at least \p minWidth wide, not overlapping
std::vector<PlotRange> gapsIn(const std::vector<RecordedWeld::Sample>& samples, double minWidth);

/// \return the gnuplot script that draws the welds to standard output
/// \param terminal  see plotTerminal()
std::string printPlot(const std::vector<RecordedWeld>& welds, const std::string& terminal,
                      const std::string& title);

/// \return gnuplot's terminal for the ending of a file name; empty if not supported
std::string plotTerminal(const std::string& path);

} // namespace TelvaneTool
