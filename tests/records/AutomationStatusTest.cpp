#include <Telvane/AutomationStatus.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

namespace Telvane
{
namespace
{

TEST(AutomationStatus, PackagesItsSevenKeysInOrder)
{
    EXPECT_EQ(defaultJson<AutomationStatus>(),
              R"({"PowersourceConnection":false,"ModbusConnected":false,"ModbusActive":false,)"
              R"("EIPConnected":false,"StatusCounter":0,"TouchSenseEnabled":false,"CoProcLinkUp":false})");
}

TEST(AutomationStatus, KeepsWhatItReadBeforeAMistypedCounter)
{
    AutomationStatus status;
    const ReadOutcome outcome = read(
        status, R"({"PowersourceConnection":true,"ModbusConnected":true,"ModbusActive":true,)"
                R"("EIPConnected":true,"StatusCounter":"1","TouchSenseEnabled":true,"CoProcLinkUp":true})");
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _int_fromJson StatusCounter\n");
    EXPECT_TRUE(status.EIPConnected);
    EXPECT_FALSE(status.TouchSenseEnabled);
}

TEST(AutomationStatus, ReportsAMissingLastKey)
{
    AutomationStatus status;
    const ReadOutcome outcome =
        read(status, R"({"PowersourceConnection":true,"ModbusConnected":true,"ModbusActive":true,)"
                     R"("EIPConnected":true,"StatusCounter":41,"TouchSenseEnabled":true})");
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _bool_fromJson CoProcLinkUp\n");
    EXPECT_EQ(status.StatusCounter, 41);
    EXPECT_TRUE(status.TouchSenseEnabled);
}

} // namespace
} // namespace Telvane
