#include "telvane-welds/OverlayPlot.h"
#include "archive/ArchiveTestSupport.h"

#include <gmock/gmock.h>

#include <limits>

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using testing::HasSubstr;
using testing::Not;

namespace
{

/// \return the envelope of a weld of constant current, without gas
Envelope envelopeAt(double amps, double seconds)
{
    const auto end = kStart + static_cast<std::int64_t>(seconds * 1e9);
    EnvelopeBuilder builder(kStart, end, kCoarseParts);
    for (std::int64_t i = 0; i < 1000; ++i) {
        Sample sample;
        sample.time = kStart + (end - kStart) * i / 1000;
        sample[Channel::Amps] = amps;
        sample[Channel::Volts] = 18.0;
        builder.add(sample);
    }
    return builder.finish();
}

OverlaidWeld weldAt(std::int64_t id, double amps, const std::string& verdict = "")
{
    OverlaidWeld weld;
    weld.id = id;
    weld.verdict = verdict;
    weld.envelope = envelopeAt(amps, 10.0);
    return weld;
}

} // namespace

TEST(OverlayPlot, HasTheBandOfThreeWeldsAndMoreAsLongAsTheyLast)
{
    const OverlayBand band =
        bandOf({envelopeAt(180, 10), envelopeAt(182, 5), envelopeAt(184, 10), envelopeAt(190, 5)}, 10.0);
    EXPECT_EQ(band.welds, 4U);
    ASSERT_FALSE(band.points.empty());
    EXPECT_EQ(band.points.front().low[0], 180.0);
    EXPECT_EQ(band.points.front().high[0], 190.0);
    EXPECT_NEAR(band.points.back().seconds, 5.0, 0.06) << "then only two are left";
    EXPECT_TRUE(bandOf({envelopeAt(180, 10), envelopeAt(182, 10)}, 10.0).points.empty());
}

TEST(OverlayPlot, DrawsAWeldWithTimesOutOfRange)
{
    OverlaidWeld weld = weldAt(16, 180.0);
    weld.envelope.start = -kStart;
    weld.envelope.end = std::numeric_limits<std::int64_t>::max();
    EXPECT_THAT(printOverlay({weld}, {}, "svg"), HasSubstr("set xrange [0:9.22337204e+09]"));
}

TEST(OverlayPlot, DrawsEachMeasuredQuantityOnce)
{
    const std::string script = printOverlay({weldAt(16, 180.0), weldAt(17, 190.0, "not_ok")}, {}, "svg");
    EXPECT_THAT(script, HasSubstr("multiplot layout 2,1"));
    EXPECT_THAT(script, HasSubstr("title 'weld 16'"));
    EXPECT_THAT(script, HasSubstr("title 'weld 17, not_ok'"));
    EXPECT_THAT(script, Not(HasSubstr("gas")));
    EXPECT_THAT(script, Not(HasSubstr("$band")));
}

TEST(OverlayPlot, MarksWhereTheJudgeFoundSomething)
{
    OverlaidWeld weld = weldAt(16, 180.0, "x'; system('id'); '");
    Finding& finding = weld.findings.emplace_back();
    finding.metric = "course of volts";
    finding.fromSeconds = 2.0;
    finding.toSeconds = 3.5;
    const std::string script = printOverlay({weld}, {}, "svg");
    EXPECT_THAT(script, HasSubstr("rect from 2,graph 0 to 3.5,graph 1"));
    EXPECT_THAT(script, Not(HasSubstr("system"))) << "no text of the archive is part of the script";
}
