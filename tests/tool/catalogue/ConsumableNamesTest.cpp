#include "catalogue/ConsumableNames.h"

#include "common/support/Json.h"

#include <Telvane/RecordCatalogue.h>

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

std::string withNames(const char* className, const std::string& json)
{
    std::string error;
    const JsonTree tree = parseJson(json, error);
    addConsumableNames(tree.get(), Telvane::RecordCatalogue::find(className)->table());
    return printJson(tree.get());
}

TEST(ConsumableNames, StandBehindEachCodeOfAWeld)
{
    EXPECT_EQ(withNames("WeldTriggerStart", R"({"program":1,"process":14,"wireType":1,"wireSize":2,)"
                                            R"("alloy":8,"gas":11,"FeederSide":"left"})"),
              R"({"program":1,"process":14,"processName":"Carbon Arc","wireType":1,)"
              R"("wireTypeName":"Stainless","wireSize":2,"wireSizeName":"0.035","alloy":8,)"
              R"("alloyName":"SS_ER308","gas":11,"gasName":"AR98_OX02","FeederSide":"left"})");
}

TEST(ConsumableNames, StandInEveryProgramOfAMemorySlot)
{
    EXPECT_EQ(
        withNames("PSMemorySlot", R"({"mMemory":7,"mPrograms":[{"PROC":0,"WT":3,"WS":4,"GT":1},)"
                                  R"({"PROC":15,"WT":15,"WS":22,"GT":0}]})"),
        R"({"mMemory":7,"mPrograms":[{"PROC":0,"PROCName":"MIG","WT":3,"WTName":"Aluminum",)"
        R"("WS":4,"WSName":"0.045","GT":1,"GTName":"AR"},{"PROC":15,"PROCName":"TIG","WT":15,"WTName":"Cu",)"
        R"("WS":22,"WSName":"0.063","GT":0,"GTName":"CO2"}]})");
}

TEST(ConsumableNames, AreUnknownForCodesOutsideTheTables)
{
    EXPECT_EQ(withNames("ProgramType", R"({"PROC":24,"WT":-1,"WS":255,"GT":21})"),
              R"({"PROC":24,"PROCName":"unknown","WT":-1,"WTName":"unknown","WS":255,"WSName":"unknown",)"
              R"("GT":21,"GTName":"unknown"})");
}

TEST(ConsumableNames, AreNotGivenToAFlowOfGas)
{
    const std::string sample = R"({"gas":1,"power":2})";
    EXPECT_EQ(withNames("WeldTraceDataPoint", sample), sample);
}

} // namespace
} // namespace TelvaneTool
