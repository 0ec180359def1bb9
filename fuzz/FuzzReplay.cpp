// Runs a fuzz target on files instead of on a fuzzer's inventions. So what was once found, and what the
// fuzzer starts from, is tested with every compiler and sanitizer, without the fuzzer.

#include "FuzzSupport.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace
{

using Path = std::filesystem::path;

std::vector<Path> filesIn(const std::vector<Path>& places)
{
    std::vector<Path> files;
    for (const Path& place : places) {
        if (std::filesystem::is_directory(place)) {
            for (const auto& entry : std::filesystem::directory_iterator(place)) {
                files.push_back(entry.path());
            }
        } else {
            files.push_back(place);
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

int replay(const std::vector<Path>& places)
{
    const std::vector<Path> files = filesIn(places);
    for (const Path& file : files) {
        // Said beforehand: the last name is the culprit's when the process ends here.
        std::fprintf(stderr, "replaying %s\n", file.c_str());
        std::ifstream stream(file, std::ios::binary);
        if (!stream) {
            std::fprintf(stderr, "cannot read %s\n", file.c_str());
            return 1;
        }
        const std::vector<char> input{std::istreambuf_iterator<char>(stream), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    }
    std::fprintf(stderr, "%zu inputs replayed\n", files.size());
    return files.empty() ? 1 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return replay({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "the target let an exception pass, or a file cannot be read: %s\n",
                     error.what());
        return 1;
    }
}
