// Operators read the names of the menu lines and other programs compare them, so their spelling must not
// change.

#include <Telvane/PanelRecords.h>

#include <cstddef>
#include <iterator>

namespace Telvane
{

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
