#include <Telvane/RtaModuleRecords.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace Telvane
{
namespace
{

const std::string kOutBound =
    R"({"One":0,"Two":0,"Three":0,"Four":0,"Five":0,"Six":0,"Seven":0,"Eight":0,"Nine":0,"PartLabel":""})";
const std::string kInBound = R"({"One":0,"Two":0,"Three":0,"Four":0,"PartLabel":""})";

TEST(RtaModuleRecords, PackageTheirKeysInOrder)
{
    EXPECT_EQ(defaultJson<RtaModuleOutBoundData>(), kOutBound);
    EXPECT_EQ(defaultJson<RtaModuleInBoundData>(), kInBound);
    EXPECT_EQ(defaultJson<RtaModuleData>(),
              R"({"OutBoundData":)" + kOutBound + R"(,"InBoundData":)" + kInBound + R"(,"Status":0})");
    EXPECT_EQ(defaultJson<RtaModuleDataRequest>(), R"({"Request":false})");
}

TEST(RtaModuleInBoundData, ReadsFromAnOutboundBlock)
{
    RtaModuleOutBoundData outbound;
    outbound.One = 1;
    outbound.Four = 4;
    outbound.Nine = 9;
    outbound.PartLabel = "bracket";
    RtaModuleInBoundData inbound;
    ASSERT_TRUE(inbound.FromJson(outbound.GetString()));
    EXPECT_EQ(compactJson(inbound), R"({"One":1,"Two":0,"Three":0,"Four":4,"PartLabel":"bracket"})");
}

TEST(RtaModuleOutBoundData, FailsAtTheFifthSlotOfAnInboundBlock)
{
    RtaModuleOutBoundData outbound;
    const ReadOutcome outcome = read(outbound, R"({"One":1,"Two":2,"Three":3,"Four":4,"PartLabel":"p"})");
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _int_fromJson Five\n");
    EXPECT_EQ(outbound.Four, 4);
    EXPECT_EQ(outbound.PartLabel, "");
}

TEST(RtaModuleData, KeepsBothBlocksWhenTheStatusIsMissing)
{
    RtaModuleOutBoundData outbound;
    outbound.Nine = 9;
    RtaModuleInBoundData inbound;
    inbound.Four = 4;
    RtaModuleData data;
    const ReadOutcome outcome = read(data, R"({"OutBoundData":)" + compactJson(outbound) +
                                               R"(,"InBoundData":)" + compactJson(inbound) + "}");
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _int_fromJson Status\n");
    EXPECT_EQ(data.OutBoundData.Nine, 9);
    EXPECT_EQ(data.InBoundData.Four, 4);
}

TEST(RtaModuleData, PackagesTheBaseKeysOfItsBlocks)
{
    RtaModuleData data;
    data.OutBoundData._sequence_tag = 1;
    data.InBoundData._id = "in";
    data._sequence_tag = 2;
    const std::string json = compactJson(data);
    EXPECT_NE(json.find(R"("Nine":0,"PartLabel":"","_sequence_tag":1},"InBoundData":)"), std::string::npos);
    EXPECT_NE(json.find(R"("PartLabel":"","_id":"in"},"Status":0,"_sequence_tag":2})"), std::string::npos);
}

TEST(RtaModuleData, CopiesBothBlocks)
{
    RtaModuleData source;
    source.OutBoundData.One = 1;
    source.InBoundData.PartLabel = "bracket";
    RtaModuleData target;
    ASSERT_EQ(target.copy(&source), 0);
    EXPECT_EQ(compactJson(target), compactJson(source));
}

} // namespace
} // namespace Telvane
