/// \file
/// Indicator lights and operator-facing controls: what the status lights show, the state of each light, the
/// torches of a dual setup, the memory lock, and the status lines of the user-interface menu.
///
/// Light states and event codes are set by the producers on the bus.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// The connectivity state that the status lights present.
class TELVANE_EXPORT SystemLedStatus : public TelvaneDataTypeBase
{
public:
    bool ethernetIsUp = false;       ///< the wired network link is up
    bool wifiIsUp = false;           ///< the wireless link is up
    bool operatorIsUp = false;       ///< an operator is identified
    bool internetIsUp = false;       ///< the internet is reachable
    bool internetQueried = false;    ///< reachability of the internet has been checked at least once
    bool isAccessingUSB = false;     ///< the module is reading or writing a USB stick
    bool doNotSendToCarrier = false; ///< data is not to be forwarded to the carrier board

    TELVANE_RECORD(SystemLedStatus, ethernetIsUp, wifiIsUp, operatorIsUp, internetIsUp, internetQueried,
                   isAccessingUSB, doNotSendToCarrier)
};

/// The reduced state set for the module's own status light.
class TELVANE_EXPORT TelvaneLedStatus : public TelvaneDataTypeBase
{
public:
    bool operatorIsUp = false;    ///< an operator is identified
    bool internetIsUp = false;    ///< the internet is reachable
    bool internetQueried = false; ///< reachability of the internet has been checked

    TELVANE_RECORD(TelvaneLedStatus, operatorIsUp, internetIsUp, internetQueried)
};

/// The commanded state of each light: a state code of the producer's, 0 when the light is off.
class TELVANE_EXPORT LedSettings : public TelvaneDataTypeBase
{
public:
    int cloudGreenLed = 0;         ///< cloud connection, green
    int cloudYellowLed = 0;        ///< cloud connection, yellow
    int wifiGreenLed = 0;          ///< wireless, green
    int wifiYellowLed = 0;         ///< wireless, yellow
    int ethernetGreenLed = 0;      ///< wired network, green
    int ethernetYellowLed = 0;     ///< wired network, yellow
    int usbGreenLed = 0;           ///< USB, green (there is no yellow USB light)
    int opIDGreenLed = 0;          ///< operator identification, green
    int opIDYellowLed = 0;         ///< operator identification, yellow
    int robotConnectedLed = 0;     ///< robot interface connected
    int robotActivityLed = 0;      ///< robot interface activity
    int touchSenseEnabledBool = 0; ///< touch sensing enabled; an integer in spite of its name

    TELVANE_RECORD(LedSettings, cloudGreenLed, cloudYellowLed, wifiGreenLed, wifiYellowLed, ethernetGreenLed,
                   ethernetYellowLed, usbGreenLed, opIDGreenLed, opIDYellowLed, robotConnectedLed,
                   robotActivityLed, touchSenseEnabledBool)
};

/// The indicator flags of an attached Ferrolux unit.
class TELVANE_EXPORT FerroluxLedFlags : public TelvaneDataTypeBase
{
public:
    int LedFlags = 0;              ///< the flags as one integer
    int Network = 0;               ///< state code of the network light
    bool NetworkAmber = false;     ///< network light amber
    bool PartArrowCircle = false;  ///< part (arrow and circle) light on
    bool PartAmber = false;        ///< part light amber
    bool Trigger = false;          ///< trigger light on
    bool Gear = false;             ///< gear light on
    bool TriggerGearAmber = false; ///< trigger and gear lights amber
    bool User = false;             ///< user light on
    bool UserAmber = false;        ///< user light amber

    TELVANE_RECORD(FerroluxLedFlags, LedFlags, Network, NetworkAmber, PartArrowCircle, PartAmber, Trigger,
                   Gear, TriggerGearAmber, User, UserAmber)
};

/// Which torches of a dual setup are disabled; the opposite sense of LtdTorchConfiguration.
class TELVANE_EXPORT TorchDisable : public TelvaneDataTypeBase
{
public:
    bool DisableLeft = false;  ///< the left torch is disabled
    bool DisableRight = false; ///< the right torch is disabled

    TELVANE_RECORD(TorchDisable, DisableLeft, DisableRight)
};

/// Which torches of a dual setup are enabled; the opposite sense of TorchDisable.
class TELVANE_EXPORT LtdTorchConfiguration : public TelvaneDataTypeBase
{
public:
    bool EnabledLeft = false;  ///< the left torch is enabled
    bool EnabledRight = false; ///< the right torch is enabled

    TELVANE_RECORD(LtdTorchConfiguration, EnabledLeft, EnabledRight)
};

/// A torch button was used.
class TELVANE_EXPORT LtdTorchButtonRequest : public TelvaneDataTypeBase
{
public:
    int EventEnum = 0; ///< code of the torch button event

    TELVANE_RECORD(LtdTorchButtonRequest, EventEnum)
};

/// The lock of the memory slots.
class TELVANE_EXPORT SystemLockMemoryState : public TelvaneDataTypeBase
{
public:
    bool Lock = false; ///< the memory lock is engaged

    TELVANE_RECORD(SystemLockMemoryState, Lock)
};

/// The status lines of the user-interface menu. The numbers are the contract; see UIMenuStatus::statusType.
enum UIMenuStatusString_e : int
{
    UIMenuStatusString_Unknown = 0,                ///< an unknown line
    UIMenuStatusString_EthernetIP = 1,             ///< address of the wired link
    UIMenuStatusString_EthernetSubMask = 2,        ///< subnet mask of the wired link
    UIMenuStatusString_EthernetDefaultGateway = 3, ///< default gateway of the wired link
    UIMenuStatusString_EthernetMAC = 4, ///< hardware address of the wired link; its name is "EtherneMAC"
    UIMenuStatusString_WifiSSID = 5,    ///< name of the wireless network
    UIMenuStatusString_WifiIP = 6,      ///< address of the wireless link
    UIMenuStatusString_WifiSubMask = 7, ///< subnet mask of the wireless link
    UIMenuStatusString_WifiDefaultGateway = 8,  ///< default gateway of the wireless link
    UIMenuStatusString_WifiMAC = 9,             ///< hardware address of the wireless link
    UIMenuStatusString_WifiFCCID = 10,          ///< radio approval (FCC) number
    UIMenuStatusString_WifiStrength = 11,       ///< signal strength of the wireless link
    UIMenuStatusString_OperatorIdCount = 12,    ///< number of operators known
    UIMenuStatusString_OperatorName = 13,       ///< name of the operator
    UIMenuStatusString_OperatorStatusLine = 14, ///< status of the operator
    UIMenuStatusString_AdditionalLine01 = 15,   ///< first additional line
    UIMenuStatusString_AdditionalLine02 = 16,   ///< second additional line
    UIMenuStatusString_AdditionalLine03 = 17,   ///< third additional line
    UIMenuStatusString_AdditionalLine04 = 18,   ///< fourth additional line
    UIMenuStatusString_AdditionalLine05 = 19,   ///< fifth additional line
    UIMenuStatusString_None = 255,              ///< no line
};

/// \name Names of the menu lines
/// Line 4 is called "EtherneMAC"; the spelling is part of the contract.
/// \return the line's name, for example "WifiSSID"; "?unknown?" for 255 and every number without a name
/// @{

/// Looks the name up.
TELVANE_EXPORT std::string GetUIMenuStatusStringType(int code);
TELVANE_EXPORT std::string GetUIMenuStatusStringType(UIMenuStatusString_e code);
/// @}

/// One status line of the user-interface menu.
class TELVANE_EXPORT UIMenuStatus : public TelvaneDataTypeBase
{
public:
    int statusType = 0;     ///< which line, a number of UIMenuStatusString_e
    std::string statusInfo; ///< the text shown on that line

    TELVANE_RECORD(UIMenuStatus, statusType, statusInfo)
};

} // namespace Telvane
