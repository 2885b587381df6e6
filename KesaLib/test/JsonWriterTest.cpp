#include "JsonWriter.h"
#include "Utf8.h"

#include <Poco/DateTime.h>
#include <Poco/JSON/Parser.h>

#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <limits>
#include <list>

using namespace Kesa::Command;
using Poco::Dynamic::Var;

namespace
{

std::string written(const Var& value)
{
    std::string text;
    appendJson(text, value);
    return text;
}

struct Written
{
    Var value;
    std::string text;
};

class JsonWriterScalars: public testing::TestWithParam<Written>
{
};

TEST_P(JsonWriterScalars, AreWrittenAsJson)
{
    EXPECT_EQ(written(GetParam().value), GetParam().text);
}

const double INFINITE = std::numeric_limits<double>::infinity();

INSTANTIATE_TEST_SUITE_P(
    Numbers, JsonWriterScalars,
    testing::Values(Written{0, "0"}, Written{-17, "-17"}, Written{Poco::Int8(-8), "-8"},
                    Written{Poco::UInt8(200), "200"}, Written{Poco::UInt16(65535), "65535"},
                    Written{4294967295u, "4294967295"},
                    Written{std::numeric_limits<Poco::Int64>::min(), "-9223372036854775808"},
                    Written{std::numeric_limits<Poco::UInt64>::max(), "18446744073709551615"}, Written{1.5, "1.5"},
                    Written{0.1, "0.1"}, Written{100000.0, "100000"}, Written{-0.25f, "-0.25"},
                    Written{1e300, "1e+300"}, Written{std::nan(""), "null"}, Written{INFINITE, "null"},
                    Written{-INFINITE, "null"}, Written{std::numeric_limits<float>::quiet_NaN(), "null"},
                    Written{true, "true"}, Written{false, "false"}, Written{Var(), "null"}, Written{'c', "\"c\""}));

INSTANTIATE_TEST_SUITE_P(
    Texts, JsonWriterScalars,
    testing::Values(Written{"", "\"\""}, Written{"plain", "\"plain\""}, Written{"q\"b\\s/", "\"q\\\"b\\\\s/\""},
                    Written{"\n\r\t\b\f", "\"\\n\\r\\t\\u0008\\u000c\""},
                    Written{std::string("a\0b", 3), "\"a\\u0000b\""}, Written{"\x1F\x7F", "\"\\u001f\x7F\""},
                    Written{"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "\"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\""},
                    Written{"a\xFF"
                            "b",
                            "\"a\xEF\xBF\xBD"
                            "b\""},
                    Written{"\xC3", "\"\xEF\xBF\xBD\""}, Written{"\xC0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\""},
                    Written{"\xED\xA0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""},
                    Written{"\xF4\x90\x80\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""}));

TEST(JsonWriterTest, ContainersAreWrittenByPointerAndByValue)
{
    Poco::JSON::Object object;
    object.set("b", 1);
    object.set("a\"", "x");
    Poco::JSON::Array array;
    array.add(Poco::JSON::Object::Ptr(new Poco::JSON::Object(object)));
    array.add(object);
    array.add(Var());
    EXPECT_EQ(written(Poco::JSON::Array::Ptr(new Poco::JSON::Array(array))),
              R"([{"a\"":"x","b":1},{"a\"":"x","b":1},null])");
    EXPECT_EQ(written(array), R"([{"a\"":"x","b":1},{"a\"":"x","b":1},null])");
    EXPECT_EQ(written(Poco::JSON::Object()), "{}");
    EXPECT_EQ(written(Poco::JSON::Array()), "[]");
    EXPECT_EQ(written(Poco::JSON::Object::Ptr()), "null");
    EXPECT_EQ(written(Poco::JSON::Array::Ptr()), "null");
}

TEST(JsonWriterTest, DynamicContainersAreWritten)
{
    Poco::DynamicStruct structure;
    structure["x"] = 1;
    EXPECT_EQ(written(structure), R"({"x":1})");
    Poco::OrderedDynamicStruct ordered;
    ordered["z"] = "a";
    EXPECT_EQ(written(ordered), R"({"z":"a"})");
    EXPECT_EQ(written(std::vector<Var>{1, "a"}), R"([1,"a"])");
    EXPECT_EQ(written(std::list<Var>{true}), "[true]");
    EXPECT_EQ(written(std::deque<Var>{}), "[]");
}

TEST(JsonWriterTest, WhatHasATextIsWrittenAsOne)
{
    EXPECT_EQ(written(Poco::DateTime(2024, 2, 3)).substr(0, 11), "\"2024-02-03");
}

TEST(JsonWriterTest, WhatHasNoTextIsNull)
{
    struct Opaque
    {
    };
    EXPECT_EQ(written(Var(Opaque())), "null");
    EXPECT_EQ(scalarText(Var(Opaque())), "");
}

TEST(JsonWriterTest, NestWithoutEndIsCutWithNull)
{
    Poco::JSON::Array::Ptr cycle = new Poco::JSON::Array;
    cycle->add(cycle);
    const std::string text = written(cycle);
    cycle->clear();
    EXPECT_EQ(text, std::string(MAX_JSON_DEPTH, '[') + "null" + std::string(MAX_JSON_DEPTH, ']'));
}

TEST(JsonWriterTest, WhatIsWrittenParsesToTheSameValues)
{
    const std::string text = R"({"a":[1,-2.5,true,null,"\u00e4\n\"\\"],"b":{"c":{}},"d":[]})";
    const Var once = Poco::JSON::Parser().parse(text);
    const std::string again = written(once);
    EXPECT_EQ(written(Poco::JSON::Parser().parse(again)), again);
    EXPECT_EQ(again, "{\"a\":[1,-2.5,true,null,\"\xC3\xA4\\n\\\"\\\\\"],\"b\":{\"c\":{}},\"d\":[]}");
}

TEST(Utf8Test, ExcerptCutsBetweenCharacters)
{
    EXPECT_EQ(excerpt("short"), "short");
    EXPECT_EQ(excerpt(std::string(64, 'a')), std::string(64, 'a'));
    EXPECT_EQ(excerpt(std::string(65, 'a')), std::string(64, 'a') + "...");
    EXPECT_EQ(excerpt(std::string(63, 'a') + "\xC3\xA4"
                                             "b"),
              std::string(63, 'a') + "...");
    EXPECT_EQ(excerpt(std::string(100, '\x80')), "...");
}

TEST(Utf8Test, WellFormedTextIsTold)
{
    for (const char* good: {"", "a", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                            "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(isUtf8(good)) << good;
    for (const char* bad: {"\x80", "\xC1\xBF", "\xC2", "\xC2g", "\xE0\x9F\xBF", "\xE2\x82", "\xED\xA0\x80",
                           "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "a\xE2\x28\xA1"})
        EXPECT_FALSE(isUtf8(bad)) << bad;
}

} // namespace
