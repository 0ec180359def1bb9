#include "weld/WeldPublisher.h"

#include <Telvane/WireComputations.h>

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

/// Two seconds of arc with 210 in/min of wire.
WeldSummary summaryOfTwoSeconds()
{
    WeldSummary summary(false);
    WeldSample sample;
    sample[Quantity::Amps] = 180.4;
    sample[Quantity::Volts] = 20.25;
    sample[Quantity::Wfs] = 210;
    sample[Quantity::Gas] = 13.5;
    sample[Quantity::Motor] = 2.4;
    summary.add(sample, true);
    sample.time = 2 * kSecond;
    summary.end(sample);
    return summary;
}

SampleSource::Traits allMeasured()
{
    SampleSource::Traits traits;
    traits.measured = {true, true, true, true, true, false};
    return traits;
}

TEST(WeldMetrics, HaveUnits)
{
    const auto metrics = weldMetrics(summaryOfTwoSeconds(), allMeasured(), {});
    EXPECT_EQ(metrics.ArcDuration.Unit, "s");
    EXPECT_EQ(metrics.ArcDuration.Value, 2.0);
    EXPECT_EQ(metrics.AverageVoltage.Unit, "V");
    EXPECT_EQ(metrics.AverageVoltage.Value, 20.25);
    EXPECT_EQ(metrics.AverageAmperage.Unit, "A");
    EXPECT_EQ(metrics.AverageAmperage.Value, 180);
    EXPECT_EQ(metrics.AverageWFS.Unit, "in/min");
    EXPECT_EQ(metrics.AverageWFS.Value, 210);
    EXPECT_EQ(metrics.AverageGas.Unit, "l/min");
    EXPECT_EQ(metrics.AverageGas.Value, 14);
    EXPECT_EQ(metrics.AverageMotor.Unit, "A");
    EXPECT_EQ(metrics.AverageMotor.Value, 2);
    EXPECT_EQ(metrics.TotalEnergy.Unit, "J");
    EXPECT_EQ(metrics.TotalEnergy.Value, 7306); // 180.4 A x 20.25 V x 2 s
}

TEST(WeldMetrics, ComputeTheDepositFromDiameterAndAlloy)
{
    WeldSetup setup;
    setup.wireSize = Telvane::WireSize_Inch_0_035;
    setup.alloy = Telvane::AlloyID_AL_4XXX;
    const auto metrics = weldMetrics(summaryOfTwoSeconds(), allMeasured(), setup);
    const double feet = 210.0 / 60.0 * 2.0 / 12.0;
    EXPECT_EQ(metrics.TotalDeposition.Unit, "lb");
    EXPECT_NEAR(metrics.TotalDeposition.Value, feet * 12.0 * 3.141592653589793 * 0.0175 * 0.0175 * 0.0975,
                1e-6);
}

TEST(WeldMetrics, HaveNoUnitForUnmeasuredQuantities)
{
    SampleSource::Traits traits;
    traits.measured = {true, true, false, false, false, false};
    const auto metrics = weldMetrics(summaryOfTwoSeconds(), traits, {});
    EXPECT_EQ(metrics.AverageGas.Unit, "");
    EXPECT_EQ(metrics.AverageGas.Value, 0);
    EXPECT_EQ(metrics.AverageMotor.Unit, "");
    EXPECT_EQ(metrics.AverageWFS.Unit, "");
    EXPECT_EQ(metrics.TotalDeposition.Unit, "");
    EXPECT_EQ(metrics.TotalDeposition.Value, 0.0);
}

TEST(WeldMetrics, AreDefinedForAWeldWithoutDuration)
{
    WeldSummary summary(false);
    WeldSample sample;
    sample[Quantity::Amps] = 100;
    summary.add(sample, true);
    summary.end(sample);
    const auto metrics = weldMetrics(summary, allMeasured(), {});
    EXPECT_EQ(metrics.ArcDuration.Value, 0.0);
    EXPECT_EQ(metrics.AverageAmperage.Value, 0);
    EXPECT_EQ(metrics.AverageWFS.Value, 0);
}

} // namespace
} // namespace TelvaneTool
