/// \file
/// Weld data: weld start and end, metrics, trace samples, and the small records that confirm, throttle
/// and log them.
///
/// Publishers set the texts of units and channel descriptions; the library does not check them. ISO/TR 18491
/// describes how arc energy is measured.
#pragma once

#include <Telvane/DateTime.h>
#include <Telvane/RecordTable.h>

namespace Telvane
{

/// A quantity with its unit, as a whole number.
class TELVANE_EXPORT UnitValuePair : public TelvaneDataTypeBase
{
public:
    std::string Unit; ///< unit of Value, for example "A"
    int Value = 0;    ///< magnitude, in the unit that Unit holds

    TELVANE_RECORD(UnitValuePair, Unit, Value)
};

/// A quantity with its unit, as a decimal number.
class TELVANE_EXPORT UnitValueDoublePair : public TelvaneDataTypeBase
{
public:
    std::string Unit;   ///< unit of Value, for example "A"
    double Value = 0.0; ///< magnitude, in the unit that Unit holds

    TELVANE_RECORD(UnitValueDoublePair, Unit, Value)
};

/// Set points of the power source when a weld starts.
class TELVANE_EXPORT MachineSettings : public TelvaneDataTypeBase
{
public:
    UnitValueDoublePair CommandVoltage;    ///< set point of the arc voltage
    UnitValueDoublePair CommandAmperage;   ///< set point of the current
    UnitValueDoublePair CommandWFS;        ///< set point of the wire-feed speed
    UnitValueDoublePair CommandArcControl; ///< set point of the arc control

    TELVANE_RECORD(MachineSettings, CommandVoltage, CommandAmperage, CommandWFS, CommandArcControl)
};

/// Summary of one weld. Each quantity holds its own unit.
class TELVANE_EXPORT WeldMetrics : public TelvaneDataTypeBase
{
public:
    UnitValueDoublePair ArcDuration;     ///< time for which the arc burned
    UnitValueDoublePair AverageVoltage;  ///< mean arc voltage
    UnitValuePair AverageAmperage;       ///< mean current
    UnitValuePair AverageWFS;            ///< mean wire-feed speed
    UnitValuePair AverageGas;            ///< mean shielding-gas flow
    UnitValueDoublePair TotalDeposition; ///< weld metal deposited
    UnitValuePair TotalEnergy;           ///< arc energy over the whole weld
    UnitValuePair AverageMotor;          ///< mean load of the wire-feed motor

    TELVANE_RECORD(WeldMetrics, ArcDuration, AverageVoltage, AverageAmperage, AverageWFS, AverageGas,
                   TotalDeposition, TotalEnergy, AverageMotor)
};

/// One sample of a weld trace. The WeldTriggerStart of the weld holds the units, in `data`.
class TELVANE_EXPORT WeldTraceDataPoint : public TelvaneDataTypeBase
{
public:
    double amps = 0.0;  ///< current, in the unit in WeldTraceDataPointDefinition::amps
    double volts = 0.0; ///< arc voltage, in the unit in WeldTraceDataPointDefinition::volts
    double wfs = 0.0;   ///< wire-feed speed, in the unit in WeldTraceDataPointDefinition::wfs
    double gas = 0.0;   ///< gas flow, in the unit in WeldTraceDataPointDefinition::gas
    double power = 0.0; ///< arc power, in the unit in WeldTraceDataPointDefinition::power
    double motor = 0.0; ///< load of the wire-feed motor, in the unit in WeldTraceDataPointDefinition::motor

    TELVANE_RECORD(WeldTraceDataPoint, amps, volts, wfs, gas, power, motor)
};

/// Units or labels of the channels of a weld trace, to show with the numbers of a WeldTraceDataPoint.
class TELVANE_EXPORT WeldTraceDataPointDefinition : public TelvaneDataTypeBase
{
public:
    std::string amps;  ///< unit or label of the current
    std::string volts; ///< unit or label of the arc voltage
    std::string wfs;   ///< unit or label of the wire-feed speed
    std::string gas;   ///< unit or label of the gas flow
    std::string power; ///< unit or label of the arc power
    std::string motor; ///< unit or label of the load of the wire-feed motor

    TELVANE_RECORD(WeldTraceDataPointDefinition, amps, volts, wfs, gas, power, motor)
};

/// One sample of a weld trace, published while the arc burns.
class TELVANE_EXPORT WeldTraceData : public TelvaneDataTypeBase
{
public:
    int sequence = 0;        ///< number of the sample within its weld; not the sequence number of the bus
    DateTime timestamp;      ///< when the sample was taken
    WeldTraceDataPoint data; ///< the measured values
    int messageSerial = 0;   ///< publisher's number for the message; see MessageSerialType

    TELVANE_RECORD(WeldTraceData, sequence, timestamp, data, messageSerial)
};

/// Start of a weld. Holds the units of the trace once; each WeldTraceData that follows holds only numbers.
class TELVANE_EXPORT WeldTriggerStart : public TelvaneDataTypeBase
{
public:
    int tag = 0;                       ///< identifies the weld; its WeldTriggerEnd has the same
    DateTime timestamp;                ///< when the trigger was pulled
    int samplePeriodus = 0;            ///< time between two samples of the trace, in microseconds
    int program = 0;                   ///< number of the weld program, as the power source numbers them
    int process = 0;                   ///< weld process, a code of _ProcessID_e
    int wireType = 0;                  ///< wire type, a code of _WireType_e
    int wireSize = 0;                  ///< wire size, a code of _WireSize_e
    int alloy = 0;                     ///< wire alloy, a code of _AlloyID_e
    int gas = 0;                       ///< shielding gas, a code of _GasID_e
    MachineSettings settings;          ///< set points of the power source
    WeldTraceDataPointDefinition data; ///< units of the trace samples
    int messageSerial = 0;             ///< publisher's number for the message; see MessageSerialType
    std::string FeederSide;            ///< side of a dual wire feeder that made the weld

    TELVANE_RECORD(WeldTriggerStart, tag, timestamp, samplePeriodus, program, process, wireType, wireSize,
                   alloy, gas, settings, data, messageSerial, FeederSide)
};

/// End of a weld. Unlike in WeldTriggerStart, the time stamp precedes the tag.
class TELVANE_EXPORT WeldTriggerEnd : public TelvaneDataTypeBase
{
public:
    DateTime timestamp;            ///< when the arc went out
    int tag = 0;                   ///< identifies the weld; its WeldTriggerStart has the same
    double lifetimeArcHours = 0.0; ///< accumulated arc time of the machine, in hours
    WeldMetrics metrics;           ///< averages and totals of the weld
    int messageSerial = 0;         ///< publisher's number for the message; see MessageSerialType

    TELVANE_RECORD(WeldTriggerEnd, timestamp, tag, lifetimeArcHours, metrics, messageSerial)
};

/// Confirmation by a receiver that it has accepted or rejected a record.
class TELVANE_EXPORT TelvaneDataConfirmation : public TelvaneDataTypeBase
{
public:
    std::string id;         ///< `_id` of that record
    std::string channel;    ///< channel on which that record was published
    bool confirmed = false; ///< true if the receiver accepted the record

    TELVANE_RECORD(TelvaneDataConfirmation, id, channel, confirmed)
};

/// State of the store of records.
class TELVANE_EXPORT TelvaneDataFullStatus : public TelvaneDataTypeBase
{
public:
    bool isFull = false; ///< true while the store is full

    TELVANE_RECORD(TelvaneDataFullStatus, isFull)
};

/// Time to live of data.
class TELVANE_EXPORT DataStatus : public TelvaneDataTypeBase
{
public:
    int ttl = 0; ///< time to live; the unit is the publisher's

    TELVANE_RECORD(DataStatus, ttl)
};

/// One line of a log.
class TELVANE_EXPORT LogData : public TelvaneDataTypeBase
{
public:
    std::string log; ///< text of the line

    TELVANE_RECORD(LogData, log)
};

} // namespace Telvane
