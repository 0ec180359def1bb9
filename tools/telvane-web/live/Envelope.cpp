// Columns are aligned to powers of two of the sample's number, so that merging neighbours gives the same columns as
// filling wider ones from the start. The page relies on this: it merges its own columns instead of asking for them
// again.

#include "telvane-web/live/Envelope.h"

#include <algorithm>

namespace TelvaneTool
{

void EnvelopeColumn::add(const LiveValues& values)
{
    for (std::size_t i = 0; i < kLiveQuantities; ++i) {
        min[i] = samples == 0 ? values[i] : std::min(min[i], values[i]);
        max[i] = samples == 0 ? values[i] : std::max(max[i], values[i]);
        sum[i] += values[i];
    }
    ++samples;
}

void EnvelopeColumn::merge(const EnvelopeColumn& other)
{
    if (other.samples == 0) {
        return;
    }
    for (std::size_t i = 0; i < kLiveQuantities; ++i) {
        min[i] = samples == 0 ? other.min[i] : std::min(min[i], other.min[i]);
        max[i] = samples == 0 ? other.max[i] : std::max(max[i], other.max[i]);
        sum[i] += other.sum[i];
    }
    samples += other.samples;
}

void Envelope::clear()
{
    m_level = 0;
    m_columns.clear();
    ++m_revision;
}

void Envelope::add(std::int64_t number, const LiveValues& values)
{
    if (number < 0) {
        return;
    }
    while ((number >> m_level) >= static_cast<std::int64_t>(kCapacity)) {
        fold();
    }
    const auto index = static_cast<std::size_t>(number >> m_level);
    if (index >= m_columns.size()) {
        m_columns.resize(index + 1);
    } else if (index + 1 < m_columns.size()) {
        ++m_revision;
    }
    m_columns[index].add(values);
}

void Envelope::fold()
{
    ++m_level;
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        if (i % 2 == 0) {
            m_columns[i / 2] = m_columns[i];
        } else {
            m_columns[i / 2].merge(m_columns[i]);
        }
    }
    m_columns.resize((m_columns.size() + 1) / 2);
}

unsigned Envelope::levelFor(std::size_t columns) const
{
    unsigned level = m_level;
    while (sizeAt(level) > columns) {
        ++level;
    }
    return level;
}

EnvelopeColumn Envelope::merged(std::size_t index, unsigned level) const
{
    const unsigned steps = level - m_level;
    const std::size_t end = std::min((index + 1) << steps, m_columns.size());
    EnvelopeColumn column;
    for (std::size_t i = index << steps; i < end; ++i) {
        column.merge(m_columns[i]);
    }
    return column;
}

std::size_t Envelope::sizeAt(unsigned level) const
{
    const unsigned steps = level - m_level;
    return (m_columns.size() + (std::size_t{1} << steps) - 1) >> steps;
}

} // namespace TelvaneTool
