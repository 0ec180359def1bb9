#include <Telvane/MemorySlotRecords.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace Telvane
{
namespace
{

/// The keys of the fleet-management settings, in order, group by group.
const char* const kFleetKeys =
    "Id ControlByte "
    "presetArcControl limitArcControlHigh limitArcControlLow "
    "presetArcLength limitArcLengthHigh limitArcLengthLow "
    "presetCurrent limitCurrentHigh limitCurrentLow "
    "presetWireFeedSpeed limitWfsHigh limitWfsLow "
    "presetVoltage limitVoltHigh limitVoltLow "
    "presetSequenceType triggerSelect triggerSelectMemory triggerTackTime "
    "presetWireCleanTime presetPreflow presetPreflowTime "
    "presetAutoJogDistance presetAutoPurgeTime presetRunInMode presetRunInSpeed "
    "presetStartMode presetSureStartTime startArcLength startDwellTime "
    "startRampTime startSpeed startTackTime startVoltage "
    "presetCraterMode craterArcLength craterDwellTime craterRampTime "
    "craterSpeed craterTackTime craterVoltage "
    "presetBurnbackTime presetPostflow presetPostflowTime retractDistance retractEnable weldTackTime "
    "presetProfileMode profileArcLength profileFrequence profileSpeed profileSpeedDelta profileVoltage "
    "enablePresetLimits programPartNumber presetSynergic";
constexpr int kFleetKeyCount = 58;

/// \return the settings with the first \p filled numbers equal to their place (from 1), the others 0
std::string fleetSettings(int filled)
{
    std::istringstream keys(kFleetKeys);
    std::string json;
    std::string key;
    for (int place = 1; keys >> key; ++place) {
        json += (place == 1 ? "{\"" : ",\"") + key + "\":" + std::to_string(place <= filled ? place : 0);
    }
    return json + "}";
}

TEST(MemorySlotRecords, PackageTheirKeysInOrder)
{
    EXPECT_EQ(defaultJson<WeldProcessLibraryRequest>(), R"({"JsonFilePath":"","LibraryJsonKey":""})");
    EXPECT_EQ(defaultJson<WeldProcessLibraryReport>(), R"({"IsJsonReportReady":false})");
    EXPECT_EQ(defaultJson<GetMemorySlotSettingsRequest>(), R"({"All":false})");
    EXPECT_EQ(defaultJson<MemorySlotDownloadSummary>(), R"({"NumberOfIncomingSlots":0})");
    EXPECT_EQ(defaultJson<SetMemorySlotSettingsWeldControlRequest>(),
              R"({"Id":0,"Voltage":0,"ShouldSetVoltage":false,"ArcLength":0,"ShouldSetArcLength":false,)"
              R"("WireFeedSpeed":0,"ShouldSetWireFeedSpeed":false,"ArcControl":0,)"
              R"("ShouldSetArcControl":false})");
    EXPECT_EQ(defaultJson<MemorySlotSettingsWeldControlReply>(),
              R"({"Id":0,"Voltage":0,"ArcLength":0,"WireFeedSpeed":0,"ArcControl":0})");
    EXPECT_EQ(defaultJson<MemorySlotSettingsGlobal>(),
              R"({"PresetJogSpeed":0,"AutoJogDistance":0,"AutoPurgeTime":0,"LockCode":0})");
    EXPECT_EQ(defaultJson<MemorySlotLimitsEnable>(), R"({"Enable":false})");
}

TEST(FleetManagementSettings, PackageTheirFiftyEightNumbersInOrder)
{
    EXPECT_EQ(defaultJson<MemorySlotFleetManagementDownloadSettings>(), fleetSettings(0));
}

TEST(FleetManagementSettings, ReadEachNumberUnderItsOwnKey)
{
    MemorySlotFleetManagementDownloadSettings settings;
    const std::string json = fleetSettings(kFleetKeyCount);
    ASSERT_TRUE(settings.FromJson(json));
    EXPECT_EQ(settings.Id, 1);
    EXPECT_EQ(settings.presetSynergic, kFleetKeyCount);
    EXPECT_EQ(compactJson(settings), json);
}

TEST(FleetManagementSettings, ChangeOnlyTheFieldsBeforeAMissingKey)
{
    std::string json = fleetSettings(kFleetKeyCount);
    const std::string missing = R"("presetVoltage":15,)";
    json.erase(json.find(missing), missing.size());

    MemorySlotFleetManagementDownloadSettings settings;
    const ReadOutcome outcome = read(settings, json);
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _int_fromJson presetVoltage\n");
    EXPECT_EQ(compactJson(settings), fleetSettings(14));
}

TEST(WeldControlRequest, RefusesANumberForAFlag)
{
    SetMemorySlotSettingsWeldControlRequest request;
    const ReadOutcome outcome =
        read(request, R"({"Id":2,"Voltage":240,"ShouldSetVoltage":1,"ArcLength":5,"ShouldSetArcLength":true,)"
                      R"("WireFeedSpeed":6,"ShouldSetWireFeedSpeed":true,"ArcControl":7,)"
                      R"("ShouldSetArcControl":true})");
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _bool_fromJson ShouldSetVoltage\n");
    EXPECT_EQ(request.Voltage, 240);
    EXPECT_EQ(request.ArcLength, 0);
}

TEST(WeldControlRequest, IsNotCopiedFromItsReply)
{
    MemorySlotSettingsWeldControlReply reply;
    reply.Id = 3;
    SetMemorySlotSettingsWeldControlRequest request;
    EXPECT_EQ(request.copy(&reply), -EINVAL);
    EXPECT_EQ(request.Id, 0);
}

TEST(MemorySlotSettingsReport, PackagesItsLetteredParametersInOrder)
{
    std::vector<std::string> letters;
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        letters.emplace_back(1, letter);
    }
    for (char letter = 'A'; letter <= 'M'; ++letter) {
        letters.push_back(std::string("A") + letter);
    }
    ASSERT_EQ(letters.size(), 39U);

    std::string expected = R"({"IsActive":false,"SlotId":0,"ControlByte":0,)";
    for (const std::string& letter : letters) {
        expected += "\"" + letter + "\":0,";
    }
    expected += R"("PartText":"","_id":"x"})";

    MemorySlotSettingsReport report;
    report._id = "x";
    EXPECT_EQ(compactJson(report), expected);
}

TEST(MemorySlotSettingsReport, DistinguishesLettersFromDoubleLetters)
{
    MemorySlotSettingsReport report;
    report.A = 1;
    report.AA = 27;
    report.M = 13;
    report.AM = 39;
    MemorySlotSettingsReport other;
    ASSERT_TRUE(other.FromJson(report.GetString()));
    EXPECT_EQ(other.A, 1);
    EXPECT_EQ(other.AA, 27);
    EXPECT_EQ(other.M, 13);
    EXPECT_EQ(other.AM, 39);
}

} // namespace
} // namespace Telvane
