// What the library makes of records, for comparing the Python package with it.
//
// Reads pairs of texts from standard input, each after its length in four bytes, least significant first: the name
// of a class and the JSON text of a record. For each pair writes a length and the record as the library prints it
// after reading; the length 0xFFFFFFFF says that the library refuses it.

#include <Telvane/RecordCatalogue.h>
#include <Telvane/TelvaneDataTypeBase.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace
{

constexpr std::uint32_t kRefused = 0xFFFFFFFFU;

bool readLength(std::uint32_t& length)
{
    unsigned char bytes[4];
    if (std::fread(bytes, 1, sizeof bytes, stdin) != sizeof bytes) {
        return false;
    }
    length = 0;
    for (int i = 3; i >= 0; --i) {
        length = length << 8U | bytes[i];
    }
    return true;
}

bool readText(std::string& text)
{
    std::uint32_t length = 0;
    if (!readLength(length)) {
        return false;
    }
    text.resize(length);
    return length == 0 || std::fread(text.data(), 1, length, stdin) == length;
}

void writeLength(std::uint32_t length, std::FILE* output)
{
    for (unsigned shift = 0; shift < 32; shift += 8) {
        std::fputc(static_cast<int>(length >> shift & 0xFFU), output);
    }
}

bool reprint(const Telvane::TelvaneDataTypeBase& prototype, const std::string& text, std::string& printed)
{
    const std::unique_ptr<Telvane::TelvaneDataTypeBase> record(prototype.BuildNewDataType());
    try {
        return record->FromJson(text) && record->ToJson(printed);
    } catch (const std::out_of_range&) {
        return false; // a time without a number that fits
    }
}

} // namespace

int main()
{
    // The library reports what it refuses on both standard streams.
    std::FILE* const output = fdopen(dup(STDOUT_FILENO), "w");
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);

    std::map<std::string, std::unique_ptr<Telvane::TelvaneDataTypeBase>> prototypes;
    std::string name;
    std::string text;
    while (readText(name) && readText(text)) {
        std::unique_ptr<Telvane::TelvaneDataTypeBase>& prototype = prototypes[name];
        if (prototype == nullptr) {
            prototype = Telvane::RecordCatalogue::build(name);
        }
        std::string printed;
        if (prototype != nullptr && reprint(*prototype, text, printed)) {
            writeLength(static_cast<std::uint32_t>(printed.size()), output);
            std::fwrite(printed.data(), 1, printed.size(), output);
        } else {
            writeLength(kRefused, output);
        }
    }
    return std::fclose(output) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
