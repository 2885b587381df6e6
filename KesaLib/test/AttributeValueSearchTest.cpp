#include <Command/Query/AttributeValueSearch.h>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using Kesa::Command::AttributeValueSearch;
using Poco::Dynamic::Var;

namespace
{

struct Pair
{
    std::string pattern;
    Var value;
    bool matches;
};

class AttributeValueSearchValues: public testing::TestWithParam<Pair>
{
};

TEST_P(AttributeValueSearchValues, CompareAsAWhole)
{
    EXPECT_EQ(AttributeValueSearch("name", GetParam().pattern).match(GetParam().value), GetParam().matches)
        << GetParam().pattern;
}

INSTANTIATE_TEST_SUITE_P(Texts, AttributeValueSearchValues,
                         testing::Values(Pair{"text", "text", true}, Pair{"text", "Text", false},
                                         Pair{"text", "a text", false}, Pair{"", "", true}, Pair{"", "x", false},
                                         Pair{"t*t", "text", true}, Pair{"t*t", "t", false}, Pair{"t*t", "tt", true},
                                         Pair{"t*t", "texts", false}, Pair{"*t", "text", true},
                                         Pair{"t*", "text", true}, Pair{"*ex*", "text", true}, Pair{"*", "", true},
                                         Pair{"**", "x", true}, Pair{"T*", "text", false}, Pair{"a*b*a", "aba", true},
                                         Pair{"a*b*a", "abab", false}, Pair{"a*ab", "aab", true},
                                         Pair{"t%2At", "text", true}, Pair{"t.xt", "text", false},
                                         Pair{"a*", "a\nb", true}, Pair{"a*b", "a\nb", true}, Pair{"*b", "ab\n", false},
                                         Pair{"*\xC3\xA4", "x\xC3\xA4", true},
                                         Pair{"*a",
                                              "\xFF"
                                              "a",
                                              true}));

INSTANTIATE_TEST_SUITE_P(Numbers, AttributeValueSearchValues,
                         testing::Values(Pair{"17", 17, true}, Pair{"17", 17.0, true}, Pair{"17.0", 17.0, false},
                                         Pair{"0.1", 0.1, true}, Pair{"-3", Poco::Int8(-3), true}, Pair{"1*", 17, true},
                                         Pair{"18446744073709551615", std::numeric_limits<Poco::UInt64>::max(), true},
                                         Pair{"true", true, true}, Pair{"1", true, false}, Pair{"false", false, true},
                                         Pair{"null", Var(), true}, Pair{"", Var(), false}, Pair{"1.5", 1.5f, true},
                                         Pair{"null", std::numeric_limits<double>::quiet_NaN(), true}));

TEST(AttributeValueSearchTest, ObjectsAndArraysMatchNothing)
{
    const AttributeValueSearch search("name", "*");
    EXPECT_FALSE(search.match(Var(Poco::JSON::Object::Ptr(new Poco::JSON::Object))));
    EXPECT_FALSE(search.match(Var(Poco::JSON::Array::Ptr(new Poco::JSON::Array))));
    EXPECT_FALSE(search.match(Var(Poco::JSON::Object())));
}

TEST(AttributeValueSearchTest, EmptyNameAndOverlongValueAreInvalid)
{
    EXPECT_FALSE(AttributeValueSearch("", "x").isValid());
    EXPECT_FALSE(AttributeValueSearch("name", std::string(1025, 'x')).isValid());
    EXPECT_TRUE(AttributeValueSearch("name", "x").isValid());
    EXPECT_EQ(AttributeValueSearch("name", "x").getName(), "name");
}

} // namespace
