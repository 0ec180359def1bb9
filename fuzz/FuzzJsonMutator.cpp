// Changes inputs as what they are: conversations of packets that hold JSON values. A fuzzer that changes
// bytes seldom gets a record past the reader, and never an array of a hundred elements; so every other change
// is one of the tree: a value repeated, removed, moved, replaced, a key in other letters. The rest is left to
// the fuzzer, whose changes of bytes reach what is not JSON.

#include "FuzzSupport.h"
#include "support/JsonTree.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <random>
#include <utility>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed);

namespace Telvane
{
namespace
{

/// A value and what it stands in.
struct Place
{
    cJSON* parent;
    cJSON* item;
};

class Mutator
{
public:
    explicit Mutator(unsigned seed) : m_random(seed) {}

    /// \return the changed input; empty when there is nothing to change that way
    std::string mutate(std::string_view input)
    {
        std::vector<std::string> packets;
        for (const std::string_view packet : packetsOf(input)) {
            packets.emplace_back(packet);
        }
        if (packets.size() > 1 && below(8) == 0) {
            changeConversation(packets);
        } else if (!changeJson(packets[below(packets.size())])) {
            return {};
        }
        std::string changed;
        for (const std::string& packet : packets) {
            changed += packet;
            changed += kPacketSeparator;
        }
        changed.pop_back();
        return changed;
    }

private:
    std::size_t below(std::size_t limit) { return m_random() % limit; }

    /// Mostly few, but sometimes more than any limit of elements.
    std::size_t someTimes() { return below(4) == 0 ? 1 + below(128) : 1 + below(2); }

    void changeConversation(std::vector<std::string>& packets)
    {
        const std::size_t one = below(packets.size());
        const std::size_t other = below(packets.size());
        switch (below(3)) {
        case 0:
            std::swap(packets[one], packets[other]);
            break;
        case 1:
            packets.erase(packets.begin() + static_cast<std::ptrdiff_t>(one));
            break;
        default:
            packets.insert(packets.begin() + static_cast<std::ptrdiff_t>(one), std::string(packets[other]));
        }
    }

    bool changeJson(std::string& packet)
    {
        const std::size_t begin = packet.find_first_of("{[");
        if (begin == std::string::npos) {
            return false;
        }
        const JsonTree tree(cJSON_Parse(packet.c_str() + begin));
        if (tree == nullptr) {
            return false;
        }
        std::vector<Place> places;
        collect(*tree, places);
        if (places.empty()) {
            return false;
        }
        change(places[below(places.size())], places);
        const JsonText text(below(4) == 0 ? cJSON_Print(tree.get()) : cJSON_PrintUnformatted(tree.get()));
        packet.replace(begin, std::string::npos, text.get());
        return true;
    }

    static void collect(cJSON& parent, std::vector<Place>& places)
    {
        for (cJSON* item = parent.child; item != nullptr; item = item->next) {
            places.push_back({&parent, item});
            collect(*item, places);
        }
    }

    void change(const Place& place, const std::vector<Place>& places)
    {
        switch (below(6)) {
        case 0:
            repeat(place);
            break;
        case 1:
            cJSON_Delete(cJSON_DetachItemViaPointer(place.parent, place.item));
            break;
        case 2:
            insert(*place.parent, JsonTree(cJSON_DetachItemViaPointer(place.parent, place.item)));
            break;
        case 3:
            replace(place, JsonTree(cJSON_Duplicate(places[below(places.size())].item, 1)));
            break;
        case 4:
            replace(place, edgeValue());
            break;
        default:
            changeText(place.item->string != nullptr && below(2) == 0 ? place.item->string
                                                                      : place.item->valuestring);
        }
    }

    void repeat(const Place& place)
    {
        for (std::size_t times = someTimes(); times > 0; --times) {
            insert(*place.parent, JsonTree(cJSON_Duplicate(place.item, 1)));
        }
    }

    /// Anywhere. Behind the new item the others are added once more: the JSON library's own insertion
    /// refuses, in some of its versions, every place but the two ends.
    void insert(cJSON& parent, JsonTree item)
    {
        const auto size = static_cast<std::size_t>(cJSON_GetArraySize(&parent));
        cJSON* next = cJSON_GetArrayItem(&parent, static_cast<int>(below(size + 1)));
        const cJSON* const added = item.get();
        cJSON_AddItemToArray(&parent, item.release());
        while (next != nullptr && next != added) {
            cJSON* const following = next->next;
            cJSON_AddItemToArray(&parent, cJSON_DetachItemViaPointer(&parent, next));
            next = following;
        }
    }

    /// The new value takes over the key.
    static void replace(const Place& place, JsonTree item)
    {
        cJSON_free(item->string);
        item->string = std::exchange(place.item->string, nullptr);
        cJSON_ReplaceItemViaPointer(place.parent, place.item, item.release());
    }

    JsonTree edgeValue()
    {
        static constexpr std::array<const char*, 22> kEdges = {
            "null",        "true", "false",      "{}",          "[]",         "\"\"",        "0",
            "-1",          "-0",   "2147483647", "-2147483649", "4294967296", "1e15",        "0.1",
            "1e999",       "3.9",  "1e-320",     "\"req_\"",    "\"weld\"",   "\"\\u0000\"", "\"/Date(0)/\"",
            "\"/Date()/\""};
        return JsonTree(cJSON_CreateRaw(kEdges[below(kEdges.size())]));
    }

    /// In place, so never longer.
    void changeText(char* text)
    {
        const std::size_t length = text != nullptr ? std::strlen(text) : 0;
        if (length == 0) {
            return;
        }
        char& character = text[below(length)];
        const auto byte = static_cast<unsigned char>(character);
        switch (below(3)) {
        case 0:
            character = static_cast<char>(std::isupper(byte) != 0 ? std::tolower(byte) : std::toupper(byte));
            break;
        case 1:
            character = static_cast<char>('A' + below('z' - 'A' + 1));
            break;
        default:
            text[length - 1] = '\0';
        }
    }

    std::minstd_rand m_random;
};

} // namespace
} // namespace Telvane

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed)
{
    if (seed % 2 == 0) {
        const std::string changed = Telvane::Mutator(seed).mutate(Telvane::textOf(data, size));
        if (!changed.empty() && changed.size() <= maxSize) {
            std::copy(changed.begin(), changed.end(), data);
            return changed.size();
        }
    }
    return LLVMFuzzerMutate(data, size, maxSize);
}
