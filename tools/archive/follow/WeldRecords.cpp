#include "archive/follow/WeldRecords.h"

#include "common/support/Json.h"
#include "common/weld/WeldMatcher.h"

namespace TelvaneArchive
{

namespace
{

template <class Pair>
void takeMetric(Weld& weld, Column column, const Pair& pair)
{
    if (!pair.Unit.empty()) {
        weld[column] = static_cast<double>(pair.Value);
    }
}

/// A set point of 0 means that it is unknown.
void takeSetting(Weld& weld, Column column, const Telvane::UnitValueDoublePair& pair)
{
    if (pair.Value != 0.0) {
        weld[column] = pair.Value;
    }
}

/// \return the record on one line, so that a line of an export is a weld
template <class Record>
std::string jsonOf(Record record)
{
    std::string error;
    return TelvaneTool::printJson(TelvaneTool::parseJson(record.GetString(), error).get());
}

} // namespace

Sample sampleOf(const Telvane::WeldTraceData& trace)
{
    const Telvane::WeldTraceDataPoint& point = trace.data;
    Sample sample;
    sample.number = trace.sequence;
    sample.serial = trace.messageSerial;
    sample.time = TelvaneTool::stampOf(trace.timestamp);
    sample.values = {point.amps, point.volts, point.wfs, point.gas, point.power, point.motor};
    return sample;
}

void takeStart(Weld& weld, const Telvane::WeldTriggerStart& start)
{
    weld[Column::StartNs] = TelvaneTool::stampOf(start.timestamp);
    weld[Column::Tag] = std::int64_t{start.tag};
    weld[Column::Program] = std::int64_t{start.program};
    weld[Column::Process] = std::int64_t{start.process};
    weld[Column::WireType] = std::int64_t{start.wireType};
    weld[Column::WireSize] = std::int64_t{start.wireSize};
    weld[Column::Alloy] = std::int64_t{start.alloy};
    weld[Column::GasCode] = std::int64_t{start.gas};
    weld[Column::SamplePeriodUs] = std::int64_t{start.samplePeriodus};
    if (!start.FeederSide.empty()) {
        weld[Column::FeederSide] = start.FeederSide;
    }
    takeSetting(weld, Column::SetVolts, start.settings.CommandVoltage);
    takeSetting(weld, Column::SetAmps, start.settings.CommandAmperage);
    takeSetting(weld, Column::SetWfs, start.settings.CommandWFS);
    takeSetting(weld, Column::SetArcControl, start.settings.CommandArcControl);
    weld[Column::StartRecord] = jsonOf(start);
}

void takeEnd(Weld& weld, const Telvane::WeldTriggerEnd& end)
{
    weld[Column::EndNs] = TelvaneTool::stampOf(end.timestamp);
    const Telvane::WeldMetrics& metrics = end.metrics;
    takeMetric(weld, Column::PubArcTime, metrics.ArcDuration);
    takeMetric(weld, Column::PubVolts, metrics.AverageVoltage);
    takeMetric(weld, Column::PubAmps, metrics.AverageAmperage);
    takeMetric(weld, Column::PubWfs, metrics.AverageWFS);
    takeMetric(weld, Column::PubGas, metrics.AverageGas);
    takeMetric(weld, Column::PubMotor, metrics.AverageMotor);
    takeMetric(weld, Column::PubEnergy, metrics.TotalEnergy);
    takeMetric(weld, Column::PubDeposition, metrics.TotalDeposition);
    weld[Column::LifetimeArcHours] = end.lifetimeArcHours;
    weld[Column::EndRecord] = jsonOf(end);
}

} // namespace TelvaneArchive
