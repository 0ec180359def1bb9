#pragma once

#include "common/bus/TopModel.h"

#include <limits>

namespace TelvaneTool
{

struct TopViewSettings
{
    std::string path; ///< of the bus
    TopModel::Order order = TopModel::Order::Name;
    std::size_t width = 80;
    std::size_t height = std::numeric_limits<std::size_t>::max(); ///< lines; the tables are cut to fit
    bool colour = false;
    bool keys = false;        ///< the last line shows keys and what they have selected
    std::string filter;       ///< part of a channel's name, or a pattern; empty for all
    bool editsFilter = false; ///< the user is typing it
    bool paused = false;
    bool scrollsClients = false;   ///< not the channels
    std::size_t channelOffset = 0; ///< the first row to show
    std::size_t clientOffset = 0;  ///< the first row to show
};

/// Which rows of the tables fit on the page.
struct TopRows
{
    struct Range
    {
        std::size_t begin = 0;
        std::size_t end = 0;
        std::size_t total = 0; ///< rows that match the filter
    };
    Range channels;
    Range clients;
};

TopRows rowsOf(const TopModel& model, const TopViewSettings& settings);

/// \param moment the current time, since the Unix epoch
std::string printTop(const TopModel& model, const TopViewSettings& settings, Nanoseconds moment);

/// \return one line of JSON
std::string printTopJson(const TopModel& model, const TopViewSettings& settings, Nanoseconds moment);

} // namespace TelvaneTool
