#pragma once

#include "plot/WeldTraces.h"

#include <string>
#include <vector>

namespace TelvaneTool
{

/// What is drawn of some samples that share a column of the picture.
struct PlotPoint
{
    double time = 0.0; ///< s
    double min = 0.0;
    double mean = 0.0;
    double max = 0.0;
};

/// Brings a curve down to what a picture can show without hiding its peaks.
/// \param quantity member of the data point that is drawn
std::vector<PlotPoint> downsample(const std::vector<RecordedWeld::Sample>& samples,
                                  double Telvane::WeldTraceDataPoint::*quantity, std::size_t columns);

/// \return what gnuplot is to be told to draw the welds
/// \param path of the picture; its end decides on the kind, see plotTerminal()
std::string printPlot(const std::vector<RecordedWeld>& welds, const std::string& path,
                      const std::string& title);

/// \return gnuplot's name of the kind of picture that belongs to a file name, or an empty text
std::string plotTerminal(const std::string& path);

} // namespace TelvaneTool
