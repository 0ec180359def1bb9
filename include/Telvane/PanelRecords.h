/// \file
/// Operator panel: status lights, torches of a dual setup, the memory lock, and the status lines of the menu.
///
/// Publishers define the states of lights and the codes of events; the library does not check them.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// State of the module's connections, which the status lights show.
class TELVANE_EXPORT SystemLedStatus : public TelvaneDataTypeBase
{
public:
    bool ethernetIsUp = false;       ///< true while the wired network link is up
    bool wifiIsUp = false;           ///< true while the wireless link is up
    bool operatorIsUp = false;       ///< true while an operator is identified
    bool internetIsUp = false;       ///< true if the internet was reachable when last checked
    bool internetQueried = false;    ///< true once the internet has been checked
    bool isAccessingUSB = false;     ///< true while the module reads or writes a USB stick
    bool doNotSendToCarrier = false; ///< true to send no data to the carrier board

    TELVANE_RECORD(SystemLedStatus, ethernetIsUp, wifiIsUp, operatorIsUp, internetIsUp, internetQueried,
                   isAccessingUSB, doNotSendToCarrier)
};

/// State of the module's connections, as far as its own status light shows it.
class TELVANE_EXPORT TelvaneLedStatus : public TelvaneDataTypeBase
{
public:
    bool operatorIsUp = false;    ///< true while an operator is identified
    bool internetIsUp = false;    ///< true if the internet was reachable when last checked
    bool internetQueried = false; ///< true once the internet has been checked

    TELVANE_RECORD(TelvaneLedStatus, operatorIsUp, internetIsUp, internetQueried)
};

/// Commanded state of each light: 0 for off, another number for a state that the publisher defines.
class TELVANE_EXPORT LedSettings : public TelvaneDataTypeBase
{
public:
    int cloudGreenLed = 0;         ///< green light of the cloud connection
    int cloudYellowLed = 0;        ///< yellow light of the cloud connection
    int wifiGreenLed = 0;          ///< green light of the wireless link
    int wifiYellowLed = 0;         ///< yellow light of the wireless link
    int ethernetGreenLed = 0;      ///< green light of the wired link
    int ethernetYellowLed = 0;     ///< yellow light of the wired link
    int usbGreenLed = 0;           ///< green light of the USB port, which has no yellow one
    int opIDGreenLed = 0;          ///< green light of the operator identification
    int opIDYellowLed = 0;         ///< yellow light of the operator identification
    int robotConnectedLed = 0;     ///< light for a connected robot interface
    int robotActivityLed = 0;      ///< light for activity of the robot interface
    int touchSenseEnabledBool = 0; ///< light for touch sensing; an integer despite its name

    TELVANE_RECORD(LedSettings, cloudGreenLed, cloudYellowLed, wifiGreenLed, wifiYellowLed, ethernetGreenLed,
                   ethernetYellowLed, usbGreenLed, opIDGreenLed, opIDYellowLed, robotConnectedLed,
                   robotActivityLed, touchSenseEnabledBool)
};

/// Lights of an attached Ferrolux unit.
class TELVANE_EXPORT FerroluxLedFlags : public TelvaneDataTypeBase
{
public:
    int LedFlags = 0;              ///< the flags of the lights in one integer, bits as the unit defines them
    int Network = 0;               ///< state of the network light, a code of the unit
    bool NetworkAmber = false;     ///< true if the network light is amber
    bool PartArrowCircle = false;  ///< true if the part light (arrow and circle) is on
    bool PartAmber = false;        ///< true if the part light is amber
    bool Trigger = false;          ///< true if the trigger light is on
    bool Gear = false;             ///< true if the gear light is on
    bool TriggerGearAmber = false; ///< true if the trigger and gear lights are amber
    bool User = false;             ///< true if the user light is on
    bool UserAmber = false;        ///< true if the user light is amber

    TELVANE_RECORD(FerroluxLedFlags, LedFlags, Network, NetworkAmber, PartArrowCircle, PartAmber, Trigger,
                   Gear, TriggerGearAmber, User, UserAmber)
};

/// Torches of a dual setup that are disabled; the opposite of LtdTorchConfiguration.
class TELVANE_EXPORT TorchDisable : public TelvaneDataTypeBase
{
public:
    bool DisableLeft = false;  ///< true if the left torch is disabled
    bool DisableRight = false; ///< true if the right torch is disabled

    TELVANE_RECORD(TorchDisable, DisableLeft, DisableRight)
};

/// Torches of a dual setup that are enabled; the opposite of TorchDisable.
class TELVANE_EXPORT LtdTorchConfiguration : public TelvaneDataTypeBase
{
public:
    bool EnabledLeft = false;  ///< true if the left torch is enabled
    bool EnabledRight = false; ///< true if the right torch is enabled

    TELVANE_RECORD(LtdTorchConfiguration, EnabledLeft, EnabledRight)
};

/// Use of a torch button.
class TELVANE_EXPORT LtdTorchButtonRequest : public TelvaneDataTypeBase
{
public:
    int EventEnum = 0; ///< what was done with the button, a code of the publisher

    TELVANE_RECORD(LtdTorchButtonRequest, EventEnum)
};

/// Lock of the memory slots.
class TELVANE_EXPORT SystemLockMemoryState : public TelvaneDataTypeBase
{
public:
    bool Lock = false; ///< true while the memory slots are locked

    TELVANE_RECORD(SystemLockMemoryState, Lock)
};

/// Status lines of the menu. UIMenuStatus::statusType contains the numbers, which never change.
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
/// Line 4 is named "EtherneMAC": the misspelling is part of the interface.
/// \return the line's name, for example "WifiSSID"; "?unknown?" for 255 and for each number without a name
/// @{

/// Returns the name of a menu line.
TELVANE_EXPORT std::string GetUIMenuStatusStringType(int code);
TELVANE_EXPORT std::string GetUIMenuStatusStringType(UIMenuStatusString_e code);
/// @}

/// One status line of the menu.
class TELVANE_EXPORT UIMenuStatus : public TelvaneDataTypeBase
{
public:
    int statusType = 0;     ///< the line, a number of UIMenuStatusString_e
    std::string statusInfo; ///< the text to show on the line

    TELVANE_RECORD(UIMenuStatus, statusType, statusInfo)
};

} // namespace Telvane
