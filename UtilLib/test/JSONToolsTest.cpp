#include <JSONTools.h>

#include <gtest/gtest.h>

using Kesa::Util::JSONTools;

namespace
{

Poco::JSON::Object::Ptr occupied()
{
    return Poco::JSON::Object::Ptr(new Poco::JSON::Object);
}

TEST(JSONToolsTest, AnObjectIsParsed)
{
    Poco::JSON::Object::Ptr out;
    EXPECT_TRUE(JSONTools::parseJSONString(R"({"name":"shop","port":8910,"tags":[1,2]})", out));
    ASSERT_FALSE(out.isNull());
    EXPECT_EQ(out->getValue<std::string>("name"), "shop");
    EXPECT_EQ(out->getValue<int>("port"), 8910);
    EXPECT_EQ(out->getArray("tags")->size(), 2U);
}

TEST(JSONToolsTest, AnEmptyObjectIsAnObject)
{
    Poco::JSON::Object::Ptr out;
    EXPECT_TRUE(JSONTools::parseJSONString("{}", out));
    ASSERT_FALSE(out.isNull());
    EXPECT_EQ(out->size(), 0U);
}

class RefusedText: public ::testing::TestWithParam<std::string>
{
};

TEST_P(RefusedText, GivesFalseAndNullAndRaisesNothing)
{
    Poco::JSON::Object::Ptr out = occupied();
    bool parsed = true;
    EXPECT_NO_THROW(parsed = JSONTools::parseJSONString(GetParam(), out));
    EXPECT_FALSE(parsed);
    EXPECT_TRUE(out.isNull());
}

INSTANTIATE_TEST_SUITE_P(JSONToolsTest, RefusedText,
                         ::testing::Values("", " ", "[]", "[{}]", "1", "true", "null", "\"text\"", "{", "}", "{\"a\":}",
                                           "{\"a\":1", "no json", "{\"a\":1e999999}", "{\"a\":99999999999999999999999}",
                                           std::string("{\0}", 3), std::string("{\"a\":\"\xff\xfe"),
                                           std::string(100'000, '['), std::string(100'000, '{')));

TEST(JSONToolsTest, CountsWhatAParserWouldHaveToKeep)
{
    EXPECT_EQ(JSONTools::countParts(""), 0U);
    EXPECT_EQ(JSONTools::countParts("{}"), 1U);
    EXPECT_EQ(JSONTools::countParts(R"({"a":[1,2,{}],"b":{}})"), 7U);
    EXPECT_EQ(JSONTools::countParts(R"({"{[,\\":"\",{["})"), 1U) << "what stands in texts costs nothing";
    EXPECT_EQ(JSONTools::countParts(R"({"a":"\)"), 1U) << "a text that is cut off";
}

} // namespace
