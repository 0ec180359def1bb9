#include "SampleExport.h"

#include "Commands.h"
#include "archive/reader/WeldText.h"

namespace TelvaneArchive
{

int writeSamples(ArchiveReader& reader, const Weld& weld, const std::string& path)
{
    constexpr std::size_t kPage = 10'000;
    std::string text = sampleCsvHeading();
    std::vector<Sample> samples;
    ArchiveReader::SamplePosition position;
    do {
        samples.clear();
        if (const Status status = reader.samples(weld.id, {}, kPage, position, samples); !status) {
            return reportFailure(status);
        }
        for (const Sample& sample : samples) {
            text += sampleCsvLine(sample);
        }
    } while (samples.size() == kPage);
    return writeFile(path, text);
}

} // namespace TelvaneArchive
