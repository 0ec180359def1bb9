/// \file
/// What happens at the arc: weld start and end, metrics, trace samples, and the small records that
/// acknowledge, throttle and log the flow of that data.
///
/// The unit texts and channel descriptions are set by the producer; the records only carry them. For how arc
/// energy is measured see ISO/TR 18491.
#pragma once

#include <Telvane/DateTime.h>
#include <Telvane/RecordTable.h>

namespace Telvane
{

/// A quantity with a whole-number value and the name of its unit.
class TELVANE_EXPORT UnitValuePair : public TelvaneDataTypeBase
{
public:
    std::string Unit; ///< unit in which the value is expressed
    int Value = 0;    ///< the quantity

    TELVANE_RECORD(UnitValuePair, Unit, Value)
};

/// A quantity with a fractional value and the name of its unit.
class TELVANE_EXPORT UnitValueDoublePair : public TelvaneDataTypeBase
{
public:
    std::string Unit;   ///< unit in which the value is expressed
    double Value = 0.0; ///< the quantity

    TELVANE_RECORD(UnitValueDoublePair, Unit, Value)
};

/// The commanded set points of the power source at the start of a weld.
class TELVANE_EXPORT MachineSettings : public TelvaneDataTypeBase
{
public:
    UnitValueDoublePair CommandVoltage;    ///< commanded arc voltage
    UnitValueDoublePair CommandAmperage;   ///< commanded current
    UnitValueDoublePair CommandWFS;        ///< commanded wire-feed speed
    UnitValueDoublePair CommandArcControl; ///< commanded arc-control setting

    TELVANE_RECORD(MachineSettings, CommandVoltage, CommandAmperage, CommandWFS, CommandArcControl)
};

/// The summary of one weld. Durations, voltage and deposition carry fractions, the others are whole numbers.
class TELVANE_EXPORT WeldMetrics : public TelvaneDataTypeBase
{
public:
    UnitValueDoublePair ArcDuration;     ///< time the arc burned
    UnitValueDoublePair AverageVoltage;  ///< mean arc voltage
    UnitValuePair AverageAmperage;       ///< mean current
    UnitValuePair AverageWFS;            ///< mean wire-feed speed
    UnitValuePair AverageGas;            ///< mean shielding-gas flow
    UnitValueDoublePair TotalDeposition; ///< weld metal deposited
    UnitValuePair TotalEnergy;           ///< arc energy of the weld
    UnitValuePair AverageMotor;          ///< mean wire-feed motor load

    TELVANE_RECORD(WeldMetrics, ArcDuration, AverageVoltage, AverageAmperage, AverageWFS, AverageGas,
                   TotalDeposition, TotalEnergy, AverageMotor)
};

/// One sample of the weld trace, one number per channel.
class TELVANE_EXPORT WeldTraceDataPoint : public TelvaneDataTypeBase
{
public:
    double amps = 0.0;  ///< current
    double volts = 0.0; ///< arc voltage
    double wfs = 0.0;   ///< wire-feed speed
    double gas = 0.0;   ///< gas flow
    double power = 0.0; ///< arc power
    double motor = 0.0; ///< wire-feed motor load

    TELVANE_RECORD(WeldTraceDataPoint, amps, volts, wfs, gas, power, motor)
};

/// The description of the trace channels: the unit or label that a reader shows beside a sample's numbers.
class TELVANE_EXPORT WeldTraceDataPointDefinition : public TelvaneDataTypeBase
{
public:
    std::string amps;  ///< description of the current channel
    std::string volts; ///< description of the voltage channel
    std::string wfs;   ///< description of the wire-feed-speed channel
    std::string gas;   ///< description of the gas-flow channel
    std::string power; ///< description of the power channel
    std::string motor; ///< description of the motor channel

    TELVANE_RECORD(WeldTraceDataPointDefinition, amps, volts, wfs, gas, power, motor)
};

/// One trace sample as published during a weld.
class TELVANE_EXPORT WeldTraceData : public TelvaneDataTypeBase
{
public:
    int sequence = 0;        ///< running number of the sample within the weld
    DateTime timestamp;      ///< when the sample was taken
    WeldTraceDataPoint data; ///< the sample
    int messageSerial = 0;   ///< serial number of the message, see MessageSerialType

    TELVANE_RECORD(WeldTraceData, sequence, timestamp, data, messageSerial)
};

/// A weld starts. The trace channels are described once here; each later WeldTraceData carries only numbers.
class TELVANE_EXPORT WeldTriggerStart : public TelvaneDataTypeBase
{
public:
    int tag = 0;                       ///< identifier of the weld, repeated in the matching WeldTriggerEnd
    DateTime timestamp;                ///< when the trigger was pulled
    int samplePeriodus = 0;            ///< period of the trace samples, in microseconds
    int program = 0;                   ///< number of the weld program in use
    int process = 0;                   ///< weld process code, a number of _ProcessID_e
    int wireType = 0;                  ///< wire-type code, a number of _WireType_e
    int wireSize = 0;                  ///< wire-size code, a number of _WireSize_e
    int alloy = 0;                     ///< alloy code, a number of _AlloyID_e
    int gas = 0;                       ///< shielding-gas code, a number of _GasID_e
    MachineSettings settings;          ///< commanded set points
    WeldTraceDataPointDefinition data; ///< description of the trace channels
    int messageSerial = 0;             ///< serial number of the message
    std::string FeederSide;            ///< which feeder (side of a dual feeder) made the weld

    TELVANE_RECORD(WeldTriggerStart, tag, timestamp, samplePeriodus, program, process, wireType, wireSize,
                   alloy, gas, settings, data, messageSerial, FeederSide)
};

/// A weld ends. The time stamp comes before the tag, the other way round from WeldTriggerStart.
class TELVANE_EXPORT WeldTriggerEnd : public TelvaneDataTypeBase
{
public:
    DateTime timestamp;            ///< when the arc ended
    int tag = 0;                   ///< identifier of the weld, equal to the start event's
    double lifetimeArcHours = 0.0; ///< the machine's accumulated arc time, in hours
    WeldMetrics metrics;           ///< summary of the weld
    int messageSerial = 0;         ///< serial number of the message

    TELVANE_RECORD(WeldTriggerEnd, timestamp, tag, lifetimeArcHours, metrics, messageSerial)
};

/// Acknowledges that a published record has been taken over by its receiver.
class TELVANE_EXPORT TelvaneDataConfirmation : public TelvaneDataTypeBase
{
public:
    std::string id;         ///< the `_id` of the record being confirmed
    std::string channel;    ///< the bus channel on which that record travelled
    bool confirmed = false; ///< true when the record was accepted

    TELVANE_RECORD(TelvaneDataConfirmation, id, channel, confirmed)
};

/// Reports whether the store of records is full.
class TELVANE_EXPORT TelvaneDataFullStatus : public TelvaneDataTypeBase
{
public:
    bool isFull = false; ///< true while the store is full

    TELVANE_RECORD(TelvaneDataFullStatus, isFull)
};

/// A time-to-live notice for data.
class TELVANE_EXPORT DataStatus : public TelvaneDataTypeBase
{
public:
    int ttl = 0; ///< time to live of the data

    TELVANE_RECORD(DataStatus, ttl)
};

/// One line of log text sent over the bus.
class TELVANE_EXPORT LogData : public TelvaneDataTypeBase
{
public:
    std::string log; ///< the log text

    TELVANE_RECORD(LogData, log)
};

} // namespace Telvane
