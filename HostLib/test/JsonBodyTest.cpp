#include "JsonBody.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

using Kesa::Host::JsonBody;
using testing::HasSubstr;

namespace
{

std::string nested(int depth)
{
    return "{\"a\":" + std::string(static_cast<std::size_t>(depth - 1), '[') +
           std::string(static_cast<std::size_t>(depth - 1), ']') + "}";
}

} // namespace

TEST(JsonBodyTest, ReadsAnObjectExactly)
{
    const JsonBody body = JsonBody::parse(
        R"( {"small":-9223372036854775808,"large":18446744073709551615,"real":-1.5e3,"tiny":1e-400,)"
        R"("text":"\u00e4\ud83d\ude00 \"quoted\" 99999999999999999999","yes":true,"none":null,"list":[1,{"a":1}],)"
        R"("object":{"a":2}} )");
    ASSERT_FALSE(body.object.isNull()) << body.problem;
    EXPECT_EQ(body.object->getValue<Poco::Int64>("small"), std::numeric_limits<Poco::Int64>::min());
    EXPECT_EQ(body.object->getValue<Poco::UInt64>("large"), std::numeric_limits<Poco::UInt64>::max());
    EXPECT_EQ(body.object->getValue<double>("real"), -1500);
    EXPECT_EQ(body.object->getValue<std::string>("text"), "\xc3\xa4\xf0\x9f\x98\x80 \"quoted\" 99999999999999999999");
    EXPECT_TRUE(body.object->getValue<bool>("yes"));
    EXPECT_TRUE(body.object->isNull("none"));
    EXPECT_EQ(body.object->getArray("list")->size(), 2u);
    EXPECT_EQ(body.object->getObject("object")->getValue<int>("a"), 2);
    EXPECT_TRUE(body.problem.empty());
}

TEST(JsonBodyTest, SaysWhatIsWrongWithWhatItRefuses)
{
    const struct
    {
        std::string text;
        const char* problem;
    } rows[] = {{"", "no body"},
                {" \r\n\t", "no body"},
                {"[]", "has to be a JSON object"},
                {"1", "has to be a JSON object"},
                {"null", "has to be a JSON object"},
                {"\"text\"", "has to be a JSON object"},
                {"\xef\xbb\xbf{}", "has to be a JSON object"},
                {"name=value", "has to be a JSON object"},
                {"{", "no usable JSON"},
                {"{\"a\":1", "no usable JSON"},
                {"{\"a\":1,}", "no usable JSON"},
                {"{a:1}", "no usable JSON"},
                {"{'a':1}", "no usable JSON"},
                {"{\"a\":01}", "no usable JSON"},
                {"{\"a\":NaN}", "no usable JSON"},
                {"{\"a\":tru}", "no usable JSON"},
                {"{} {}", "no usable JSON"},
                {"{}x", "no usable JSON"},
                {"{\"a\":\"\n\"}", "no usable JSON"},
                {"{\"a\":\"\\ud800\"}", "no usable JSON"},
                {"{\"a\":\"\\x\"}", "no usable JSON"},
                {"{\"a\":\"", "no usable JSON"},
                {"{\"a\":\"\xff\"}", "no UTF-8"},
                {"{\"a\":\"\xc3\"}", "no UTF-8"},
                {"{\"a\":\"\xed\xa0\x80\"}", "no UTF-8"},
                {"{\"a\":18446744073709551616}", "18446744073709551616 of the body does not fit into 64 bits"},
                {"{\"a\":-9223372036854775809}", "-9223372036854775809"},
                {"{\"a\":[{\"b\":100000000000000000000}]}", "100000000000000000000"},
                {"{\"\\\"\":99999999999999999999}", "99999999999999999999"},
                {"{\"a\":1e400}", "1e400"},
                {"{\"a\":-1.5E+999}", "-1.5E+999"},
                {"{\"a\\u0000b\":1}", "name of a member of the body holds the character U+0000"},
                {"{\"a\":\"\\u0000\",\"b\":[{\"\\\"\\u0000\" : 1}]}", "U+0000"},
                {"{\"a\":1,\"a\":2}", "\"a\" stands twice"},
                {"{\"a\":{\"b\":1,\"c\":2,\"b\":3}}", "\"b\" stands twice"},
                {"{\"a\":1,\"\\u0061\":2}", "\"a\" stands twice"}};
    for (const auto& row: rows)
    {
        const JsonBody body = JsonBody::parse(row.text);
        EXPECT_TRUE(body.object.isNull()) << row.text;
        EXPECT_THAT(body.problem, HasSubstr(row.problem)) << row.text;
    }
}

TEST(JsonBodyTest, TakesTheCharacterZeroInTexts)
{
    const JsonBody body = JsonBody::parse(R"({"a":"x\u0000y","\\u0000":"\\u0000","b":["\u0000"]})");
    ASSERT_FALSE(body.object.isNull()) << body.problem;
    EXPECT_EQ(body.object->getValue<std::string>("a"), std::string("x\0y", 3));
    EXPECT_EQ(body.object->getValue<std::string>("\\u0000"), "\\u0000");
}

TEST(JsonBodyTest, EndsItsWordsWithOneFullStop)
{
    for (const char* text: {"{} {}", "{\"a\":1,}"})
        EXPECT_THAT(JsonBody::parse(text).problem, testing::MatchesRegex(".*[^.]\\.")) << text;
}

TEST(JsonBodyTest, TakesTheSameNameInDifferentObjects)
{
    EXPECT_FALSE(JsonBody::parse(R"({"a":{"a":1},"b":[{"a":1},{"a":2}]})").object.isNull());
}

TEST(JsonBodyTest, BoundsTheNesting)
{
    EXPECT_FALSE(JsonBody::parse(nested(JsonBody::MAX_DEPTH)).object.isNull());
    EXPECT_TRUE(JsonBody::parse(nested(JsonBody::MAX_DEPTH + 1)).object.isNull());
    EXPECT_TRUE(JsonBody::parse("{\"a\":" + std::string(1000000, '[')).object.isNull());
    std::string objects;
    for (int i = 0; i < 200000; ++i)
        objects += "{\"a\":";
    EXPECT_TRUE(JsonBody::parse(objects).object.isNull());
}
