#pragma once

#include "common/bus/TopModel.h"

namespace TelvaneTool
{

struct TopViewSettings
{
    std::string path; ///< of the bus
    TopModel::Order order = TopModel::Order::Name;
    std::size_t width = 80;
    bool colour = false;
};

/// \param moment the current time, since the Unix epoch
std::string printTop(const TopModel& model, const TopViewSettings& settings, Nanoseconds moment);

/// \return one line of JSON
std::string printTopJson(const TopModel& model, const TopViewSettings& settings, Nanoseconds moment);

} // namespace TelvaneTool
