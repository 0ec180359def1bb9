// Which samples of a file an import keeps.

#include "archive/follow/WeldImporter.h"
#include "archive/ArchiveTestSupport.h"

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;

namespace
{

/// Imports a weld of some samples into an archive of its own.
class ImportedWeld
{
public:
    /// \param serialOf  serial number of a sample
    template <class SerialOf>
    explicit ImportedWeld(int samples, int firstSerial, SerialOf serialOf)
    {
        const auto store = openStore(m_directory.path("welds.db"));
        WeldImporter::Settings settings;
        settings.module = "bench";
        WeldImporter importer(*store, settings);
        Telvane::WeldTriggerStart start;
        start.samplePeriodus = 1000;
        start.messageSerial = firstSerial;
        start.timestamp.time = timeOf(0);
        importer.add(start, "");
        for (int i = 0; i < samples; ++i) {
            Telvane::WeldTraceData trace;
            trace.sequence = i;
            trace.messageSerial = serialOf(i);
            trace.timestamp.time = timeOf(i);
            trace.data.amps = 180.0;
            importer.add(trace);
        }
        EXPECT_TRUE(importer.finish());
        EXPECT_EQ(importer.strays(), 0U);
    }

    Weld weld() const { return listWelds(*openReader(m_directory.path("welds.db")))[0]; }

private:
    static timespec timeOf(int number) { return {1'704'164'645 + number / 1000, number % 1000 * 1'000'000L}; }

    TemporaryDirectory m_directory;
};

} // namespace

TEST(WeldImporter, KeepsAllSamplesOfASourceThatCountsAgainFromOne)
{
    const ImportedWeld imported(3000, 70'000, [](int i) { return i < 1000 ? 70'001 + i : i - 999; });
    EXPECT_EQ(imported.weld().whole(Column::Samples), 3000);
    EXPECT_EQ(imported.weld().whole(Column::Missed), 0);
}

TEST(WeldImporter, KeepsAllSamplesWhenTheSerialNumbersWrap)
{
    const ImportedWeld imported(3000, std::numeric_limits<int>::max() - 1000, [](int i) {
        return static_cast<int>(static_cast<unsigned>(std::numeric_limits<int>::max()) - 999U +
                                static_cast<unsigned>(i));
    });
    EXPECT_EQ(imported.weld().whole(Column::Samples), 3000);
    EXPECT_EQ(imported.weld().whole(Column::Missed), 0);
}
