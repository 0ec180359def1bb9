#include "listen/FieldFilter.h"

#include "common/support/Json.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

constexpr const char* kPayload =
    R"({"amps":187.5,"on":true,"log":"arc lost","none":null,"a":{"b":[{"c":7}]},"text":"10"})";

bool accepts(const char* condition)
{
    std::string error;
    const JsonTree payload = parseJson(kPayload, error);
    FieldFilter filter;
    error = filter.read(condition);
    EXPECT_EQ(error, "") << condition;
    return filter.accepts(payload.get());
}

TEST(FieldFilter, ComparesNumbers)
{
    for (const char* condition : {"amps=187.5", "amps=187.50", "amps!=187", "amps>187", "amps>=187.5",
                                  "amps<188", "amps<=187.5", "Amps>1e2"}) {
        EXPECT_TRUE(accepts(condition)) << condition;
    }
    for (const char* condition :
         {"amps=187", "amps!=187.5", "amps>187.5", "amps<187.5", "amps>=188", "amps<=-187.5"}) {
        EXPECT_FALSE(accepts(condition)) << condition;
    }
}

TEST(FieldFilter, ComparesTexts)
{
    EXPECT_TRUE(accepts("log=arc lost"));
    EXPECT_TRUE(accepts("log!=arc"));
    EXPECT_TRUE(accepts("log~lost"));
    EXPECT_TRUE(accepts("text=10"));
    EXPECT_TRUE(accepts("log~"));
    EXPECT_FALSE(accepts("log~=")) << "any text can be searched for";
    EXPECT_FALSE(accepts("log~found"));
    EXPECT_FALSE(accepts("log="));
    EXPECT_FALSE(accepts("text>5"));
}

TEST(FieldFilter, ComparesOtherValuesByTheirJson)
{
    EXPECT_TRUE(accepts("on=true"));
    EXPECT_FALSE(accepts("on=false"));
    EXPECT_TRUE(accepts("none=null"));
    EXPECT_TRUE(accepts(R"(a.b=[{"c":7}])"));
}

TEST(FieldFilter, FindsFieldsWithinFields)
{
    EXPECT_TRUE(accepts("a.b[0].c=7"));
    EXPECT_TRUE(accepts("a.b.0.c>6"));
    EXPECT_FALSE(accepts("a.b[1].c=7"));
    EXPECT_FALSE(accepts("a.b[x].c=7"));
    EXPECT_FALSE(accepts("a.b[-1].c=7"));
    EXPECT_FALSE(accepts("amps.b=7"));
}

TEST(FieldFilter, RejectsPayloadsWithoutTheField)
{
    EXPECT_FALSE(accepts("volts=1"));
    EXPECT_FALSE(accepts("volts!=1"));
    EXPECT_FALSE(FieldFilter().accepts(nullptr));
}

TEST(FieldFilter, RefusesOtherTexts)
{
    for (const char* condition : {"", "amps", "=5", ">", "amps!5", "!x", "amps>", "amps>much",
                                  "amps<=", "amps=>5", "amps==5", "log=~x"}) {
        EXPECT_NE(FieldFilter().read(condition), "") << condition;
    }
}

} // namespace
} // namespace TelvaneTool
