/// \file
/// The state of the module's automation links.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// State of the module's automation links.
class TELVANE_EXPORT AutomationStatus : public TelvaneDataTypeBase
{
public:
    bool PowersourceConnection = false; ///< true while the power source is connected
    bool ModbusConnected = false;       ///< true while a Modbus link is connected
    bool ModbusActive = false;          ///< true while Modbus is active
    bool EIPConnected = false;          ///< true while an EIP (EtherNet/IP) link is connected
    int StatusCounter = 0;              ///< counter that the publisher increments; the library does not
    bool TouchSenseEnabled = false;     ///< true while touch sensing is enabled
    bool CoProcLinkUp = false;          ///< true while the link to the co-processor is up

    TELVANE_RECORD(AutomationStatus, PowersourceConnection, ModbusConnected, ModbusActive, EIPConnected,
                   StatusCounter, TouchSenseEnabled, CoProcLinkUp)
};

} // namespace Telvane
