// These records are nothing but their lists of fields, which stand in the header. The names of the menu lines
// are shown to operators and compared by peers, so their spellings stay as they are.

#include <Telvane/PanelRecords.h>

#include <cstddef>
#include <iterator>

namespace Telvane
{

TELVANE_DEFINE_RECORD(SystemLedStatus)
TELVANE_DEFINE_RECORD(TelvaneLedStatus)
TELVANE_DEFINE_RECORD(LedSettings)
TELVANE_DEFINE_RECORD(FerroluxLedFlags)
TELVANE_DEFINE_RECORD(TorchDisable)
TELVANE_DEFINE_RECORD(LtdTorchConfiguration)
TELVANE_DEFINE_RECORD(LtdTorchButtonRequest)
TELVANE_DEFINE_RECORD(SystemLockMemoryState)
TELVANE_DEFINE_RECORD(UIMenuStatus)

std::string GetUIMenuStatusStringType(int code)
{
    static const char* const names[] = {
        "Unknown",
        "EthernetIP",
        "EthernetSubMask",
        "EthernetDefaultGateway",
        "EtherneMAC",
        "WifiSSID",
        "WifiIP",
        "WifiSubMask",
        "WifiDefaultGateway",
        "WifiMAC",
        "WifiFCCID",
        "WifiStrength",
        "OperatorIdCount",
        "OperatorName",
        "OperatorStatusLine",
        "AdditionalLine-01",
        "AdditionalLine-02",
        "AdditionalLine-03",
        "AdditionalLine-04",
        "AdditionalLine-05",
    };
    const auto index = static_cast<std::size_t>(code);
    return index < std::size(names) ? names[index] : "?unknown?";
}

std::string GetUIMenuStatusStringType(UIMenuStatusString_e code)
{
    return GetUIMenuStatusStringType(static_cast<int>(code));
}

} // namespace Telvane
