#include <Telvane/PanelRecords.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <iterator>
#include <limits>
#include <string>

namespace Telvane
{
namespace
{

const char* const kMenuLines[] = {"Unknown",
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
                                  "AdditionalLine-05"};

TEST(MenuLineNames, AreKnownForTheTwentyLines)
{
    ASSERT_EQ(std::size(kMenuLines), 20U);
    for (int code = 0; code < 20; ++code) {
        EXPECT_EQ(GetUIMenuStatusStringType(code), kMenuLines[code]);
        EXPECT_EQ(GetUIMenuStatusStringType(UIMenuStatusString_e(code)), kMenuLines[code]);
    }
}

TEST(MenuLineNames, AreUnknownForNoLineAndForEveryOtherNumber)
{
    EXPECT_EQ(GetUIMenuStatusStringType(255), "?unknown?");
    EXPECT_EQ(GetUIMenuStatusStringType(UIMenuStatusString_None), "?unknown?");
    for (const int code :
         {20, 21, 254, 256, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(GetUIMenuStatusStringType(code), "?unknown?") << code;
        EXPECT_EQ(GetUIMenuStatusStringType(UIMenuStatusString_e(code)), "?unknown?") << code;
    }
}

TEST(MenuLineNames, BelongToTheirEnumerators)
{
    EXPECT_EQ(GetUIMenuStatusStringType(UIMenuStatusString_Unknown), "Unknown");
    EXPECT_EQ(GetUIMenuStatusStringType(UIMenuStatusString_EthernetMAC), "EtherneMAC");
    EXPECT_EQ(GetUIMenuStatusStringType(UIMenuStatusString_WifiStrength), "WifiStrength");
    EXPECT_EQ(GetUIMenuStatusStringType(UIMenuStatusString_AdditionalLine05), "AdditionalLine-05");
}

TEST(PanelRecords, PackageTheirKeysInOrder)
{
    EXPECT_EQ(defaultJson<SystemLedStatus>(),
              R"({"ethernetIsUp":false,"wifiIsUp":false,"operatorIsUp":false,"internetIsUp":false,)"
              R"("internetQueried":false,"isAccessingUSB":false,"doNotSendToCarrier":false})");
    EXPECT_EQ(defaultJson<TelvaneLedStatus>(),
              R"({"operatorIsUp":false,"internetIsUp":false,"internetQueried":false})");
    EXPECT_EQ(defaultJson<LedSettings>(),
              R"({"cloudGreenLed":0,"cloudYellowLed":0,"wifiGreenLed":0,"wifiYellowLed":0,)"
              R"("ethernetGreenLed":0,"ethernetYellowLed":0,"usbGreenLed":0,"opIDGreenLed":0,)"
              R"("opIDYellowLed":0,"robotConnectedLed":0,"robotActivityLed":0,)"
              R"("touchSenseEnabledBool":0})");
    EXPECT_EQ(defaultJson<FerroluxLedFlags>(),
              R"({"LedFlags":0,"Network":0,"NetworkAmber":false,"PartArrowCircle":false,)"
              R"("PartAmber":false,"Trigger":false,"Gear":false,"TriggerGearAmber":false,)"
              R"("User":false,"UserAmber":false})");
    EXPECT_EQ(defaultJson<TorchDisable>(), R"({"DisableLeft":false,"DisableRight":false})");
    EXPECT_EQ(defaultJson<LtdTorchConfiguration>(), R"({"EnabledLeft":false,"EnabledRight":false})");
    EXPECT_EQ(defaultJson<LtdTorchButtonRequest>(), R"({"EventEnum":0})");
    EXPECT_EQ(defaultJson<SystemLockMemoryState>(), R"({"Lock":false})");
    EXPECT_EQ(defaultJson<UIMenuStatus>(), R"({"statusType":0,"statusInfo":""})");
}

TEST(LedSettings, RefuseABooleanForTouchSensing)
{
    LedSettings settings;
    std::string json = compactJson(settings);
    json.replace(json.size() - 2, 1, "true");
    const ReadOutcome outcome = read(settings, json);
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _int_fromJson touchSenseEnabledBool\n");
}

TEST(TorchRecords, AreNotCopiedIntoEachOther)
{
    TorchDisable disable;
    LtdTorchConfiguration enable;
    EXPECT_EQ(disable.copy(&enable), -EINVAL);
    EXPECT_EQ(enable.copy(&disable), -EINVAL);
}

} // namespace
} // namespace Telvane
