#pragma once

#include "top/TopView.h"

#include <string>
#include <string_view>

namespace TelvaneTool
{

/// What the user of `telvane top` has selected with keys.
class TopScreen
{
public:
    enum class Effect
    {
        None,
        Redraw,
        Quit,
    };

    explicit TopScreen(TopModel::Order order) : m_order(order) {}

    /// \param typed  bytes from the terminal, any number of keys
    Effect take(std::string_view typed);

    /// Enters the selection into the settings of a view.
    void apply(TopViewSettings& settings) const;

    /// Takes back scrolling beyond the end.
    void limit(const TopRows& rows);

    bool paused() const { return m_paused; }
    bool showsHelp() const { return m_help; }

    /// \return a page that explains the keys
    static std::string help();

private:
    Effect takeKey(char key, std::string_view& rest);
    Effect takeSequence(std::string_view& typed);
    Effect edit(char key);
    Effect scroll(long rows);

    TopModel::Order m_order;
    std::string m_filter;
    bool m_editing = false; ///< the filter
    bool m_paused = false;
    bool m_help = false;
    bool m_scrollsClients = false;
    std::size_t m_channelOffset = 0;
    std::size_t m_clientOffset = 0;
};

} // namespace TelvaneTool
