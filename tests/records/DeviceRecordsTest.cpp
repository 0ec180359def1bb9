#include <Telvane/DeviceRecords.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

namespace Telvane
{
namespace
{

TEST(DeviceRecords, PackageTheirKeysInOrder)
{
    EXPECT_EQ(defaultJson<DeviceIdentity>(),
              R"({"powerSourceType":0,"powerSourceStockNumber":"","powerSourceReportedSerialNumber":"",)"
              R"("powerSourceFirmwareRev":"","programSetPartNumber":"","standardLibraryPartNUmber":"",)"
              R"("custommLibraryPartNumber":"","feederType":0,"feederSerialNumber":"",)"
              R"("feederFirmwareRev":"","feederIsDual":0,"cultureSelection":0})");
    EXPECT_EQ(defaultJson<DeviceSettings>(),
              R"({"timestamp":"/Date(0)/","operatorIDVersion":"","operatorID":"","currentSensorConfig":0,)"
              R"("batteryVoltage":0,"lifetimeArc":0,"powerSourceDescription":"",)"
              R"("powerSourceStockNumber":"","powerSourceReportedSerialNumber":"",)"
              R"("powerSourceFirmwareRev":"","feederDescription":"","feederSerialNumber":"",)"
              R"("feederFirmwareRev":"","messageSerial":0,"arcStartThreshold":0})");
    EXPECT_EQ(defaultJson<HALInfo>(), R"({"serialNumber":"","machineType":"","hardwareRevisionNumber":0,)"
                                      R"("firmwareImageType":0,"revisionNumber":0})");
    EXPECT_EQ(defaultJson<HALStatus>(), R"({"ready":false})");
    EXPECT_EQ(defaultJson<PowerSourceConnection>(), R"({"isConnected":false})");
    EXPECT_EQ(defaultJson<ProcessSettings>(), R"({"IsProcessEnabled":false})");
    EXPECT_EQ(defaultJson<MessageSerialType>(), R"({"messageSerial":0})");
    EXPECT_EQ(defaultJson<TelvaneError>(), R"({"Message":""})");
    EXPECT_EQ(defaultJson<SystemHealth>(), R"({"code":0,"processName":""})");
    EXPECT_EQ(defaultJson<PowerDownStatus>(),
              R"({"isPoweringDown":false,"nameOfCaller":"","reasonForPowerdown":""})");
    EXPECT_EQ(defaultJson<AdminAccessSettings>(),
              R"({"expiryDate":"","enableShell":false,"enableConsole":false})");
    EXPECT_EQ(defaultJson<ApiErrorMessage>(), R"({"ErrorCode":0,"ErrorString":""})");
}

TEST(DeviceCapabilities, PackagesSixteenFlagsThenTheBaseKeys)
{
    DeviceCapabilities capabilities;
    capabilities._sequence_tag = 4;
    EXPECT_EQ(compactJson(capabilities),
              R"({"allowsFeederAttachment":false,"realTimeStatusDrivenByEvents":false,)"
              R"("reportsBatteryVoltage":false,"reportsVolts":false,"reportsAmps":false,)"
              R"("reportsWireFeedSpeed":false,"reportsProgramNumber":false,"reportsProcess":false,)"
              R"("reportsPowerSupplySerialNumber":false,"reportsGasType":false,"reportsWireAlloy":false,)"
              R"("reportsWireDiameter":false,"reportsLifetimeArcHours":false,"reportsWeldEvents":false,)"
              R"("reportsPower":false,"reportsGasFlowRate":false,"_sequence_tag":4})");
}

TEST(DeviceIdentity, ReadsTheLibraryKeyInAnyLetterCaseAndWritesItAsSpelled)
{
    const char* const json =
        R"({"powerSourceType":1,"powerSourceStockNumber":"K1","powerSourceReportedSerialNumber":"U1",)"
        R"("powerSourceFirmwareRev":"1.2","programSetPartNumber":"P1","standardLibraryPartNumber":"S1",)"
        R"("custommLibraryPartNumber":"C1","feederType":2,"feederSerialNumber":"F1",)"
        R"("feederFirmwareRev":"3.4","feederIsDual":1,"cultureSelection":9})";
    DeviceIdentity identity;
    ASSERT_TRUE(identity.FromJson(json));
    EXPECT_EQ(identity.standardLibraryPartNUmber, "S1");
    EXPECT_EQ(identity.cultureSelection, 9);
    EXPECT_NE(compactJson(identity).find(R"("standardLibraryPartNUmber":"S1")"), std::string::npos);
}

TEST(DeviceIdentity, RefusesABooleanForTheDualFeederNumber)
{
    DeviceIdentity identity;
    std::string json = compactJson(identity);
    const std::string number = R"("feederIsDual":0)";
    json.replace(json.find(number), number.size(), R"("feederIsDual":true)");

    const ReadOutcome outcome = read(identity, json);
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _int_fromJson feederIsDual\n");
    EXPECT_EQ(outcome.output, "");
}

TEST(DeviceSettings, PackagesFractionsBetweenSensorAndDescription)
{
    DeviceSettings settings;
    settings.currentSensorConfig = 3;
    settings.batteryVoltage = 12.5;
    settings.lifetimeArc = 0.25;
    EXPECT_NE(
        compactJson(settings).find(R"("currentSensorConfig":3,"batteryVoltage":12.5,"lifetimeArc":0.25,)"
                                   R"("powerSourceDescription":"")"),
        std::string::npos);
}

TEST(DeviceSettings, CopiesTheTimeStampToo)
{
    DeviceSettings source;
    source.timestamp.time.tv_sec = 86400;
    source.arcStartThreshold = 40;
    DeviceSettings target;
    ASSERT_EQ(target.copy(&source), 0);
    EXPECT_EQ(target.timestamp.time.tv_sec, 86400);
    EXPECT_EQ(target.arcStartThreshold, 40);
}

TEST(DeviceRecords, CarryValuesUnchecked)
{
    AdminAccessSettings access;
    EXPECT_TRUE(access.FromJson(R"({"expiryDate":"not a date","enableShell":true,"enableConsole":false})"));
    EXPECT_EQ(access.expiryDate, "not a date");
    SystemHealth health;
    EXPECT_TRUE(health.FromJson(R"({"code":-2147483648,"processName":""})"));
    EXPECT_EQ(compactJson(health), R"({"code":-2147483648,"processName":""})");
}

} // namespace
} // namespace Telvane
