#include "top/TopScreen.h"

#include <algorithm>
#include <array>
#include <limits>

namespace TelvaneTool
{

namespace
{

constexpr long kPage = 10;                                  ///< rows
constexpr long kAll = std::numeric_limits<long>::max() / 2; ///< more rows than there are
constexpr std::size_t kMaxFilter = 80;

constexpr char kEscape = '\x1b';
constexpr char kBackspace = '\x08';
constexpr char kDelete = '\x7f';

struct Sequence
{
    std::string_view bytes; ///< after the escape
    long rows;
};

constexpr std::array<Sequence, 14> kSequences = {{{"[A", -1},
                                                  {"OA", -1},
                                                  {"[B", 1},
                                                  {"OB", 1},
                                                  {"[5~", -kPage},
                                                  {"[6~", kPage},
                                                  {"[H", -kAll},
                                                  {"OH", -kAll},
                                                  {"[1~", -kAll},
                                                  {"[7~", -kAll},
                                                  {"[F", kAll},
                                                  {"OF", kAll},
                                                  {"[4~", kAll},
                                                  {"[8~", kAll}}};

TopModel::Order orderAfter(TopModel::Order order)
{
    switch (order) {
    case TopModel::Order::Name:
        return TopModel::Order::Rate;
    case TopModel::Order::Rate:
        return TopModel::Order::Bytes;
    case TopModel::Order::Bytes:
        return TopModel::Order::Missed;
    case TopModel::Order::Missed:
        break;
    }
    return TopModel::Order::Name;
}

} // namespace

std::string TopScreen::help()
{
    return "Keys of telvane top\n\n"
           "  q            quit\n"
           "  s            sort channels by name, rate, bytes or missed records\n"
           "  /            filter channels by a part of the name, or by a pattern with * and ?,\n"
           "               and clients by their subscriptions; Enter accepts, Esc shows all\n"
           "  p, space     pause, and continue\n"
           "  up, down, j, k, PgUp, PgDn, Home, End\n"
           "               scroll\n"
           "  Tab          scroll the other table\n"
           "  h, ?         this help\n\n"
           "Press any key to return.\n";
}

TopScreen::Effect TopScreen::take(std::string_view typed)
{
    Effect effect = Effect::None;
    while (!typed.empty() && effect != Effect::Quit) {
        const char key = typed.front();
        typed.remove_prefix(1);
        effect = std::max(effect, takeKey(key, typed));
    }
    return effect;
}

/// \param rest  what was typed after the key; it may be the rest of a sequence
TopScreen::Effect TopScreen::takeKey(char key, std::string_view& rest)
{
    if (m_help) {
        m_help = false;
        return key == 'q' ? Effect::Quit : Effect::Redraw;
    }
    if (key == kEscape && !rest.empty()) {
        return takeSequence(rest);
    }
    if (m_editing) {
        return edit(key);
    }
    switch (key) {
    case 'q':
    case 'Q':
        return Effect::Quit;
    case 's':
        m_order = orderAfter(m_order);
        return Effect::Redraw;
    case '/':
        m_editing = true;
        return Effect::Redraw;
    case kEscape:
        m_filter.clear();
        return Effect::Redraw;
    case 'p':
    case ' ':
        m_paused = !m_paused;
        return Effect::Redraw;
    case 'h':
    case '?':
        m_help = true;
        return Effect::Redraw;
    case '\t':
        m_scrollsClients = !m_scrollsClients;
        return Effect::Redraw;
    case 'j':
        return scroll(1);
    case 'k':
        return scroll(-1);
    default:
        return Effect::None;
    }
}

/// Takes the bytes after an escape. Unknown ones end with a letter or '~'.
TopScreen::Effect TopScreen::takeSequence(std::string_view& typed)
{
    for (const Sequence& sequence : kSequences) {
        if (typed.substr(0, sequence.bytes.size()) == sequence.bytes) {
            typed.remove_prefix(sequence.bytes.size());
            return scroll(sequence.rows);
        }
    }
    const auto isEnd = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '~';
    };
    const auto begin = typed.begin() + (typed.front() == '[' || typed.front() == 'O' ? 1 : 0);
    const auto end = std::find_if(begin, typed.end(), isEnd);
    typed.remove_prefix(std::min(static_cast<std::size_t>(end - typed.begin()) + 1, typed.size()));
    return Effect::None;
}

TopScreen::Effect TopScreen::edit(char key)
{
    if (key == '\r' || key == '\n') {
        m_editing = false;
    } else if (key == kEscape) {
        m_editing = false;
        m_filter.clear();
    } else if ((key == kBackspace || key == kDelete) && !m_filter.empty()) {
        m_filter.pop_back();
    } else if (key > ' ' && key < kDelete && m_filter.size() < kMaxFilter) {
        m_filter += key;
    } else {
        return Effect::None;
    }
    m_channelOffset = 0;
    m_clientOffset = 0;
    return Effect::Redraw;
}

TopScreen::Effect TopScreen::scroll(long rows)
{
    std::size_t& offset = m_scrollsClients ? m_clientOffset : m_channelOffset;
    const auto distance = static_cast<std::size_t>(rows < 0 ? -rows : rows);
    offset = rows > 0 ? offset + distance : offset - std::min(offset, distance);
    return Effect::Redraw;
}

void TopScreen::apply(TopViewSettings& settings) const
{
    settings.order = m_order;
    settings.filter = m_filter;
    settings.editsFilter = m_editing;
    settings.paused = m_paused;
    settings.scrollsClients = m_scrollsClients;
    settings.channelOffset = m_channelOffset;
    settings.clientOffset = m_clientOffset;
}

void TopScreen::limit(const TopRows& rows)
{
    m_channelOffset = rows.channels.begin;
    m_clientOffset = rows.clients.begin;
}

} // namespace TelvaneTool
