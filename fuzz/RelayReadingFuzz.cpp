// What a subscriber reads straight from a relay's text against what it reads from its tree. The first byte picks
// the record class, the second a place that is changed; the rest is a text.
//
// The text is tried as it is, as a payload in the form in which a server prints it, and that with one character
// changed, left out or put in. What is read without a tree must be what is read with it, to the bit; nothing may be
// reported; and a relay that the server prints of a record is read without a tree, unless it has characters that are
// written as codes. The payload's text must have the value that the tree has.

#include <Telvane/RecordCatalogue.h>

#include "FuzzRelay.h"
#include "FuzzSupport.h"
#include "helpers/RelayText.h"
#include "helpers/RelayWithoutTree.h"

#include <iostream>
#include <memory>
#include <string>

namespace Telvane
{
namespace
{

/// Counts what is reported, and drops it.
class CountingBuffer : public NullBuffer
{
public:
    int count() const { return m_count; }

protected:
    int_type overflow(int_type character) override
    {
        ++m_count;
        return NullBuffer::overflow(character);
    }
    std::streamsize xsputn(const char* text, std::streamsize size) override
    {
        ++m_count;
        return NullBuffer::xsputn(text, size);
    }

private:
    int m_count = 0;
};

int reports()
{
    static const CountingBuffer* const buffer = [] {
        auto* const installed = new CountingBuffer(); // stays: streams are used until the very end
        std::cout.rdbuf(installed);
        std::cerr.rdbuf(installed);
        return installed;
    }();
    return buffer->count();
}

/// \return whether the text has been read without a tree
bool check(const std::string& text, const TelvaneDataTypeBase& prototype, const RecordTable& table)
{
    requireSame(Testing::errorInRelayText(text), "", "the text of a payload has the payload's value");
    const int before = reports();
    const auto straight = Testing::relayStraight(text, prototype);
    require(reports() == before, "nothing is reported before the text has been parsed");
    if (!straight) {
        return false;
    }
    const Testing::ReadRelay expected = Testing::relayByTree(text, prototype);
    require(expected.record != nullptr, "what is read without a tree can be read with one");
    requireSame(straight->channel, expected.channel, "a relay belongs to the same channel either way");
    require(straight->sequence == expected.sequence, "a relay has the same number either way");
    require(Testing::haveSameValues(*straight->record, *expected.record, table),
            "a record has the same values either way");
    return true;
}

void checkChanged(std::string text, std::uint8_t place, const TelvaneDataTypeBase& prototype,
                  const RecordTable& table)
{
    const std::size_t position = text.size() * place / 256;
    const char character = text[text.size() - 1 - position];
    std::string shorter = text;
    check(shorter.erase(position, 1), prototype, table);
    check(text.substr(0, position), prototype, table);
    check(text + "anything", prototype, table);
    std::string longer = text;
    check(longer.insert(position, 1, character), prototype, table);
    text[position] = character;
    check(text, prototype, table);
}

} // namespace
} // namespace Telvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace Telvane;
    reports(); // from now on
    if (size < 2) {
        return 0;
    }
    const auto& classes = RecordCatalogue::classes();
    const RecordClass& recordClass = classes[data[0] % classes.size()];
    const std::unique_ptr<TelvaneDataTypeBase> prototype(recordClass.build());
    const std::string text(textOf(data + 2, size - 2));
    check(text, *prototype, recordClass.table());

    const JsonTree payload(cJSON_Parse(text.c_str()));
    if (payload == nullptr) {
        return 0;
    }
    const std::string relay = relayOf(payload.get(), "channel");
    check(relay, *prototype, recordClass.table());
    checkChanged(relay, data[1], *prototype, recordClass.table());

    const Testing::ReadRelay read = Testing::relayByTree(relay, *prototype);
    if (read.record != nullptr) {
        const JsonTree own(cJSON_Parse(read.record->GetString().c_str()));
        const std::string printed = relayOf(own.get(), recordClass.name);
        const bool hasCodes = printed.find("\\u") != std::string::npos;
        const bool again = Testing::relayByTree(printed, *prototype).record != nullptr;
        require(check(printed, *prototype, recordClass.table()) || hasCodes || !again,
                "a relay as it is printed is read without a tree");
    }
    return 0;
}
