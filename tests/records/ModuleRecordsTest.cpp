#include <Telvane/ModuleRecords.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace Telvane
{
namespace
{

TEST(ModuleRecords, PackageTheirKeysInOrder)
{
    EXPECT_EQ(defaultJson<NetworkInfo>(), R"({"timestamp":"/Date(0)/","signalStrength":0,)"
                                          R"("wiFiIsConnected":false,"ethernetIsConnected":false})");
    EXPECT_EQ(defaultJson<TimeSyncType>(),
              R"({"serverTimestamp":"/Date(0)/","receivedTimeFromCloud":false})");
    EXPECT_EQ(defaultJson<TimeType>(), R"({"timestamp":"/Date(0)/"})");
    EXPECT_EQ(defaultJson<USBDetection>(), R"({"USBPresent":false,"USBDone":false,"USB_path":""})");
    EXPECT_EQ(defaultJson<FileInfoType>(), R"({"typeEnum":0,"fileName":"","filePath":""})");
    EXPECT_EQ(defaultJson<ErrorLogType>(),
              R"({"code":"","message":"","timestamp":"/Date(0)/","messageSerial":0})");
    EXPECT_EQ(defaultJson<IncomingCommands>(),
              R"({"firmwareFilePath":"","currentSensorType":0,"currentSensorTypeReceived":false,)"
              R"("arcStartThreshold":0,"logFilesAreRequested":false,"operatorName":""})");
    EXPECT_EQ(defaultJson<CarrierFileInfo>(), R"({"fileFullPath":"","fileName":"","fileSize":0})");
    EXPECT_EQ(defaultJson<CarrierInfo>(), R"({"appVersion":"","bootloaderVersion":"","HALVersion":0})");
    EXPECT_EQ(defaultJson<CanTelvaneUpdateCode>(), R"({"Code":0})");
    EXPECT_EQ(defaultJson<FirmwareUpdateStart>(), R"({"partGettingUpdated":""})");
    EXPECT_EQ(defaultJson<FirmwareUpdateEnd>(), R"({"partThatWasUpdated":"","wasUpdateSuccessful":false})");
    EXPECT_EQ(defaultJson<PostConfig>(), R"({"Key":"","Value":""})");
    EXPECT_EQ(defaultJson<ConfigRequest>(), R"({"Key":""})");
    EXPECT_EQ(defaultJson<ConfigReply>(), R"({"Key":"","Value":""})");
    EXPECT_EQ(defaultJson<SocketInfo>(), R"({"IPAddress":"","Port":0})");
    EXPECT_EQ(defaultJson<SocketConnectionStatus>(), R"({"Errno":0})");
}

TEST(NetworkInfo, ReadsTheWirelessKeyInAnyLetterCaseAndWritesItAsSpelled)
{
    NetworkInfo info;
    ASSERT_TRUE(info.FromJson(R"({"timestamp":"/Date(5000)/","signalStrength":-60,"wifiIsConnected":true,)"
                              R"("ethernetIsConnected":false})"));
    EXPECT_EQ(compactJson(info), R"({"timestamp":"/Date(5000)/","signalStrength":-60,)"
                                 R"("wiFiIsConnected":true,"ethernetIsConnected":false})");
}

TEST(ConfigReply, IsReadAsAPostConfigButNotCopiedIntoOne)
{
    ConfigReply reply;
    reply.Key = "volume";
    reply.Value = "11";
    PostConfig post;
    EXPECT_TRUE(post.FromJson(reply.GetString()));
    EXPECT_EQ(post.Key, "volume");
    EXPECT_EQ(post.Value, "11");
    EXPECT_EQ(post.copy(&reply), -EINVAL);
    EXPECT_EQ(reply.copy(&post), -EINVAL);
}

TEST(ErrorLogType, RefusesANumericCode)
{
    ErrorLogType entry;
    const ReadOutcome outcome =
        read(entry, R"({"code":5,"message":"m","timestamp":"/Date(0)/","messageSerial":1})");
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _str_fromJson code\n");
    EXPECT_EQ(entry.message, "");
}

TEST(IncomingCommands, CarryAFractionalArcThreshold)
{
    IncomingCommands commands;
    commands.arcStartThreshold = 7.5;
    IncomingCommands other;
    ASSERT_TRUE(other.FromJson(commands.GetString()));
    EXPECT_EQ(other.arcStartThreshold, 7.5);
}

TEST(TimeSyncType, CopiesItsTimeStamp)
{
    TimeSyncType source;
    source.serverTimestamp.time.tv_sec = 7;
    TimeSyncType target;
    ASSERT_EQ(target.copy(&source), 0);
    EXPECT_EQ(target.serverTimestamp.time.tv_sec, 7);
}

} // namespace
} // namespace Telvane
