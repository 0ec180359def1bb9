#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace TelvaneTool
{

/// The quantities that the page draws, in this order.
enum class LiveQuantity : std::size_t
{
    Amps,
    Volts,
    Wfs,
    Gas,
    Power,
};
constexpr std::size_t kLiveQuantities = 5;
using LiveValues = std::array<double, kLiveQuantities>;

/// The samples of one column of a chart.
struct EnvelopeColumn
{
    std::uint64_t samples = 0; ///< without samples, the other members have no meaning
    LiveValues min = {};
    LiveValues max = {};
    LiveValues sum = {};

    void add(const LiveValues& values);
    void merge(const EnvelopeColumn& other);
    double mean(std::size_t quantity) const { return sum[quantity] / static_cast<double>(samples); }
};

/// A weld of any length as at most kCapacity columns with minimum, mean and maximum. No sample is left out: if the
/// columns do not suffice, neighbours are merged, and each column then holds twice as many samples.
class Envelope
{
public:
    static constexpr std::size_t kCapacity = 4096;

    void clear();

    /// Adds a sample. Samples with negative numbers are ignored.
    /// \param number  of the sample within its weld, from 0
    void add(std::int64_t number, const LiveValues& values);

    /// \return the binary logarithm of the samples that a column can hold
    unsigned level() const { return m_level; }
    /// \return the columns in use, including empty ones between others
    std::size_t size() const { return m_columns.size(); }
    const EnvelopeColumn& operator[](std::size_t index) const { return m_columns[index]; }

    /// \return the lowest level with which the weld fits into so many columns
    unsigned levelFor(std::size_t columns) const;
    /// \return a column as it is at a level, which is at least level()
    EnvelopeColumn merged(std::size_t index, unsigned level) const;
    /// \return the columns in use at a level, which is at least level()
    std::size_t sizeAt(unsigned level) const;

    /// \return a number that changes when a sample is added before the newest column
    std::uint64_t revision() const { return m_revision; }

private:
    void fold();

    unsigned m_level = 0;
    std::uint64_t m_revision = 0;
    std::vector<EnvelopeColumn> m_columns;
};

} // namespace TelvaneTool
