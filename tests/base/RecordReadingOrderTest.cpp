// Reading goes in step with the keys of an object as long as they come in the record's order. What is read
// must be what a search for each key would find, in whatever order, number and spelling the keys come.

#include <Telvane/PSPrimitives.h>
#include <Telvane/RecordTable.h>

#include "helpers/JsonTestSupport.h"
#include "helpers/ProcessTestSupport.h"
#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Application
{

class Kettle : public Telvane::TelvaneDataTypeBase
{
public:
    int serialNumber = 7;
    double volume = 0.5;
    bool closed = true;
    std::string Label = "new";
    Telvane::ValueType lid;
    std::vector<Telvane::ValueType> history;

    TELVANE_RECORD(Kettle, serialNumber, volume, closed, Label, lid, history)
};

TELVANE_DEFINE_RECORD(Kettle)

} // namespace Application

namespace Telvane
{
namespace
{

using Application::Kettle;
using Testing::diagnosticsOf;
using Testing::Member;
using Testing::Members;
using Testing::parse;
using Testing::textOf;
using Testing::Tree;

Members filledMembers()
{
    return {{"serialNumber", "31"},
            {"volume", "2.5"},
            {"closed", "false"},
            {"Label", "\"L\""},
            {"lid", R"({"Value":3,"Status":true,"_id":"w"})"},
            {"history", R"([{"Value":1,"Status":false},{"Value":2,"Status":true}])"},
            {"_id", "\"kettle\""},
            {"_sequence_tag", "6"}};
}

/// What a Kettle must read from an object, found with nothing but the JSON library's own lookup.
class Search
{
public:
    explicit Search(cJSON* object) : m_object(object) {}

    bool read(Kettle& kettle) const
    {
        return number("serialNumber", kettle.serialNumber) && number("volume", kettle.volume) &&
               flag("closed", kettle.closed) && text("Label", kettle.Label) && record("lid", kettle.lid) &&
               vector("history", kettle.history) && readBase(kettle);
    }

private:
    cJSON* find(const char* key) const { return cJSON_GetObjectItem(m_object, key); }

    template <class Number>
    bool number(const char* key, Number& target) const
    {
        const cJSON* const item = find(key);
        if (cJSON_IsNumber(item) == 0) {
            return false;
        }
        target = std::is_same_v<Number, int> ? static_cast<Number>(item->valueint)
                                             : static_cast<Number>(item->valuedouble);
        return true;
    }
    bool flag(const char* key, bool& target) const
    {
        target = cJSON_IsBool(find(key)) != 0 ? cJSON_IsTrue(find(key)) != 0 : target;
        return cJSON_IsBool(find(key)) != 0;
    }
    bool text(const char* key, std::string& target) const
    {
        target = cJSON_IsString(find(key)) != 0 ? find(key)->valuestring : target;
        return cJSON_IsString(find(key)) != 0;
    }
    bool record(const char* key, ValueType& target) const
    {
        return find(key) != nullptr && target.Unpackage(find(key)) == 0;
    }
    bool vector(const char* key, std::vector<ValueType>& target) const
    {
        const cJSON* const array = find(key);
        if (cJSON_IsArray(array) == 0) {
            return false;
        }
        target.resize(static_cast<std::size_t>(cJSON_GetArraySize(array)));
        for (std::size_t i = 0; i < target.size(); ++i) {
            cJSON* const item = cJSON_GetArrayItem(array, static_cast<int>(i));
            if (cJSON_IsObject(item) == 0 || target[i].Unpackage(item) != 0) {
                return false;
            }
        }
        return true;
    }
    bool readBase(Kettle& kettle) const
    {
        text("_id", kettle._id);
        number("_sequence_tag", kettle._sequence_tag);
        return true;
    }

    cJSON* const m_object;
};

std::string inOtherCase(std::string key)
{
    for (char& letter : key) {
        const auto code = static_cast<unsigned char>(letter);
        letter = static_cast<char>(std::isupper(code) != 0 ? std::tolower(code) : std::toupper(code));
    }
    return key;
}

/// Disturbs the order, the number and the spelling of keys, and now and then a value.
Members disturbed(std::mt19937& random)
{
    const auto below = [&random](std::size_t limit) {
        return random() % limit;
    };
    const auto place = [&](const Members& members) {
        return members.begin() + static_cast<std::ptrdiff_t>(below(members.size() + 1));
    };
    Members members = filledMembers();
    for (std::size_t step = below(6); step > 0; --step) {
        Member& member = members[below(members.size())];
        switch (below(7)) {
        case 0:
            std::shuffle(members.begin(), members.end(), random);
            break;
        case 1: {
            const Member repeated = member;
            members.insert(place(members), repeated);
            break;
        }
        case 2: {
            const Member contradiction(inOtherCase(member.first), "12");
            members.insert(place(members), contradiction);
            break;
        }
        case 3:
            members.insert(place(members), Member("extra", "{\"deep\":[1]}"));
            break;
        case 4:
            member.first = inOtherCase(member.first);
            break;
        case 5:
            std::swap(member, members[below(members.size())]);
            break;
        default:
            if (below(3) == 0) {
                member.second = "null";
            }
            break;
        }
    }
    return members;
}

TEST(ReadingARecord, GivesTheSameResultForAnyOrderOfKeys)
{
    std::mt19937 random(20240229);
    int accepted = 0;
    int refused = 0;
    for (int round = 0; round < 4000; ++round) {
        const std::string text = textOf(disturbed(random));
        const Tree input = parse(text);
        Kettle expected;
        Kettle read;
        bool expectedResult = false;
        bool result = false;
        diagnosticsOf([&] {
            expectedResult = Search(input.get()).read(expected);
            result = read._unpackageData(input.get());
        });
        ASSERT_EQ(result, expectedResult) << text;
        ASSERT_EQ(compactJson(read), compactJson(expected)) << text;
        ++(result ? accepted : refused);
    }
    EXPECT_GT(accepted, 500);
    EXPECT_GT(refused, 500);
}

} // namespace
} // namespace Telvane
