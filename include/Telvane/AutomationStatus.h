/// \file
/// The state of the module's automation links.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// The state of the module's automation links, with a running counter.
class TELVANE_EXPORT AutomationStatus : public TelvaneDataTypeBase
{
public:
    bool PowersourceConnection = false; ///< the power source is connected
    bool ModbusConnected = false;       ///< a Modbus link is connected
    bool ModbusActive = false;          ///< Modbus is active
    bool EIPConnected = false;          ///< an EIP link is connected
    int StatusCounter = 0;              ///< status counter, advanced by the producer
    bool TouchSenseEnabled = false;     ///< touch sensing is enabled
    bool CoProcLinkUp = false;          ///< the link to the co-processor is up

    TELVANE_RECORD(AutomationStatus, PowersourceConnection, ModbusConnected, ModbusActive, EIPConnected,
                   StatusCounter, TouchSenseEnabled, CoProcLinkUp)
};

} // namespace Telvane
