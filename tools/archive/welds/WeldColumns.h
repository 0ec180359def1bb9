#pragma once

// The columns of the table "weld", once: table, rows, filters, exports and the judge are all made from this list.

#include "archive/database/Sql.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace TelvaneArchive
{

enum class ColumnType
{
    Whole,
    Real,
    Text,
};

/// What a column is for.
enum class ColumnUse
{
    Key,       ///< identity and origin of the row
    Setting,   ///< what was set on the machine
    Published, ///< metric that the machine published
    Computed,  ///< metric that the archive computed from the samples
    Context,   ///< what belongs to the weld, from outside the bus
};

// name, SQL name, type, use, unit, meaning
#define TELVANE_WELD_COLUMNS(X)                                                                              \
    X(Uid, "uid", Text, Key, "", "identity of the weld in all archives")                                     \
    X(Module, "module", Text, Key, "", "name of the module")                                                 \
    X(Source, "source", Text, Key, "", "bus, recording or csv")                                              \
    X(SourceName, "source_name", Text, Key, "", "path of the bus or the file")                               \
    X(Boot, "boot", Text, Key, "", "boot of the machine that kept the weld")                                 \
    X(MonotonicNs, "monotonic_ns", Whole, Key, "ns", "monotonic clock at the start, within the boot")        \
    X(ClockSet, "clock_set", Whole, Key, "", "1 if the clock was synchronised at the start")                 \
    X(StartNs, "start_ns", Whole, Key, "ns", "start, since 1970 in UTC")                                     \
    X(EndNs, "end_ns", Whole, Key, "ns", "end, since 1970 in UTC")                                           \
    X(UtcOffsetS, "utc_offset_s", Whole, Key, "s", "local time minus UTC at the start")                      \
    X(Ending, "ending", Text, Key, "", "running, complete, bus, no_end, stopped, killed or power")           \
    X(Samples, "samples", Whole, Key, "", "samples kept")                                                    \
    X(Missed, "missed", Whole, Key, "", "samples missed, by the gaps in their numbers")                      \
    X(Unstored, "unstored", Whole, Key, "", "samples that arrived and could not be stored")                  \
    X(BytesStored, "bytes_stored", Whole, Key, "B", "size of the samples on the disk")                       \
    X(Label, "label", Text, Key, "", "name of the weld in an imported file")                                 \
    X(Tag, "tag", Whole, Key, "", "tag on the bus")                                                          \
    X(Program, "program", Whole, Setting, "", "number of the weld program")                                  \
    X(Process, "process", Whole, Setting, "", "code of the weld process")                                    \
    X(WireType, "wire_type", Whole, Setting, "", "code of the wire type")                                    \
    X(WireSize, "wire_size", Whole, Setting, "", "code of the wire size")                                    \
    X(Alloy, "alloy", Whole, Setting, "", "code of the alloy")                                               \
    X(GasCode, "gas_code", Whole, Setting, "", "code of the shielding gas")                                  \
    X(FeederSide, "feeder_side", Text, Setting, "", "side of a dual feeder")                                 \
    X(SamplePeriodUs, "sample_period_us", Whole, Setting, "us", "time between samples")                      \
    X(SetVolts, "set_volts", Real, Setting, "V", "set voltage")                                              \
    X(SetAmps, "set_amps", Real, Setting, "A", "set current")                                                \
    X(SetWfs, "set_wfs", Real, Setting, "in/min", "set wire-feed speed")                                     \
    X(SetArcControl, "set_arc_control", Real, Setting, "", "set arc control")                                \
    X(MachineType, "machine_type", Text, Setting, "", "type of the machine")                                 \
    X(MachineSerial, "machine_serial", Text, Setting, "", "serial number of the machine")                    \
    X(PubArcTime, "pub_arc_time", Real, Published, "s", "arc time")                                          \
    X(PubVolts, "pub_volts", Real, Published, "V", "mean voltage")                                           \
    X(PubAmps, "pub_amps", Real, Published, "A", "mean current")                                             \
    X(PubWfs, "pub_wfs", Real, Published, "in/min", "mean wire-feed speed")                                  \
    X(PubGas, "pub_gas", Real, Published, "l/min", "mean gas flow")                                          \
    X(PubMotor, "pub_motor", Real, Published, "A", "mean motor load")                                        \
    X(PubEnergy, "pub_energy", Real, Published, "J", "arc energy")                                           \
    X(PubDeposition, "pub_deposition", Real, Published, "lb", "metal deposited")                             \
    X(LifetimeArcHours, "lifetime_arc_hours", Real, Published, "h", "arc time of the machine")               \
    X(ArcTime, "arc_time", Real, Computed, "s", "time with an arc")                                          \
    X(MeanAmps, "mean_amps", Real, Computed, "A", "mean current")                                            \
    X(MinAmps, "min_amps", Real, Computed, "A", "smallest current")                                          \
    X(MaxAmps, "max_amps", Real, Computed, "A", "largest current")                                           \
    X(SdAmps, "sd_amps", Real, Computed, "A", "standard deviation of the current")                           \
    X(MeanVolts, "mean_volts", Real, Computed, "V", "mean voltage")                                          \
    X(MinVolts, "min_volts", Real, Computed, "V", "smallest voltage")                                        \
    X(MaxVolts, "max_volts", Real, Computed, "V", "largest voltage")                                         \
    X(SdVolts, "sd_volts", Real, Computed, "V", "standard deviation of the voltage")                         \
    X(MeanWfs, "mean_wfs", Real, Computed, "in/min", "mean wire-feed speed")                                 \
    X(SdWfs, "sd_wfs", Real, Computed, "in/min", "standard deviation of the wire-feed speed")                \
    X(MeanGas, "mean_gas", Real, Computed, "l/min", "mean gas flow")                                         \
    X(SdGas, "sd_gas", Real, Computed, "l/min", "standard deviation of the gas flow")                        \
    X(MeanMotor, "mean_motor", Real, Computed, "A", "mean motor load")                                       \
    X(SdMotor, "sd_motor", Real, Computed, "A", "standard deviation of the motor load")                      \
    X(Energy, "energy", Real, Computed, "J", "arc energy, sum of u*i*dt")                                    \
    X(EnergyMethod, "energy_method", Text, Computed, "", "how the energy was computed")                      \
    X(EnergyOfMeans, "energy_of_means", Real, Computed, "J", "mean voltage * mean current * arc time")       \
    X(ShortRate, "short_rate", Real, Computed, "1/s", "short circuits per second of arc")                    \
    X(ShortTime, "short_time", Real, Computed, "ms", "mean time of a short circuit")                         \
    X(SdShortTime, "sd_short_time", Real, Computed, "ms", "standard deviation of that time")                 \
    X(ShortPeriod, "short_period", Real, Computed, "ms", "mean time between starts of short circuits")       \
    X(SdShortPeriod, "sd_short_period", Real, Computed, "ms", "standard deviation of that time")             \
    X(ArcStability, "arc_stability", Real, Computed, "",                                                     \
      "sd_short_period / short_period; 0 is most regular")                                                   \
    X(ShortMethod, "short_method", Text, Computed, "", "thresholds of the short circuits and the sampling")  \
    X(Interruptions, "interruptions", Whole, Computed, "", "times the arc went out within the weld")         \
    X(WireLength, "wire_length", Real, Computed, "in", "wire fed, by the feed speed")                        \
    X(Deposition, "deposition", Real, Computed, "g", "wire fed, by the table of wire weights")               \
    X(TravelSpeed, "travel_speed", Real, Context, "mm/s", "travel speed, if it is known")                    \
    X(Efficiency, "efficiency", Real, Context, "", "thermal efficiency k that was used")                     \
    X(HeatInput, "heat_input", Real, Computed, "kJ/mm", "k * energy / (travel speed * arc time)")            \
    X(PartNumber, "part_number", Text, Context, "", "part number")                                           \
    X(PartSerial, "part_serial", Text, Context, "", "serial number of the part")                             \
    X(Seam, "seam", Text, Context, "", "seam")                                                               \
    X(Pass, "pass", Text, Context, "", "pass")                                                               \
    X(Wps, "wps", Text, Context, "", "welding procedure (WPS)")                                              \
    X(Operator, "operator", Text, Context, "", "welder or operator")                                         \
    X(WireBatch, "wire_batch", Text, Context, "", "batch of the wire")                                       \
    X(GasBatch, "gas_batch", Text, Context, "", "batch of the gas")                                          \
    X(Calibration, "calibration", Text, Context, "", "calibration of the meters")                            \
    X(MeasuredAt, "measured_at", Text, Context, "", "where the voltage is measured")                         \
    X(ProgramName, "program_name", Text, Context, "", "name of the weld program")                            \
    X(StartRecord, "start_record", Text, Key, "", "record of the start, as published")                       \
    X(EndRecord, "end_record", Text, Key, "", "record of the end, as published")                             \
    X(Verdict, "verdict", Text, Key, "", "ok, warning or not_ok; empty if not judged")

enum class Column : std::size_t
{
#define X(name, sql, type, use, unit, meaning) name,
    TELVANE_WELD_COLUMNS(X)
#undef X
};

#define X(name, sql, type, use, unit, meaning) +1
constexpr std::size_t kColumns = 0 TELVANE_WELD_COLUMNS(X);
#undef X

struct ColumnInfo
{
    const char* name; ///< in SQL
    ColumnType type;
    ColumnUse use;
    const char* unit;
    const char* meaning;
};

/// \return what is known about a column
const ColumnInfo& infoOf(Column column);
/// \return the column's name as SQL
const Sql& sqlOf(Column column);
/// \return the column with a name
std::optional<Column> findColumn(std::string_view name);
/// \return all columns, in their order
const std::array<Column, kColumns>& allColumns();
/// \return the names of all columns, separated by commas
const Sql& columnList();
/// \return whether the column is a metric: a number, published or computed
bool isMetric(Column column);

/// A row of the table "weld".
struct Weld
{
    std::int64_t id = 0; ///< in its database
    std::array<Value, kColumns> values;

    Value& operator[](Column column) { return values[static_cast<std::size_t>(column)]; }
    const Value& operator[](Column column) const { return values[static_cast<std::size_t>(column)]; }
    bool has(Column column) const { return !isNull((*this)[column]); }
    double number(Column column) const { return numberOf((*this)[column]); }
    std::int64_t whole(Column column) const { return wholeOf((*this)[column]); }
    const std::string& text(Column column) const { return textOf((*this)[column]); }
};

/// What the judge found in a weld.
struct Finding
{
    std::string level;  ///< "ok", "warning" or "not_ok"
    std::string metric; ///< name of a column, or "course of amps" and the like
    double value = 0.0;
    double low = 0.0; ///< limits
    double high = 0.0;
    double fromSeconds = 0.0; ///< where in the weld; both 0 for the whole weld
    double toSeconds = 0.0;
    std::string reference;   ///< what the limits came from
    std::int64_t judged = 0; ///< ns since the Unix epoch; set when the weld is read
};

} // namespace TelvaneArchive
