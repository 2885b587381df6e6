#include <Command/UrlPath.h>

#include <gtest/gtest.h>

#include <map>

using Kesa::Command::UrlPath;

namespace
{

struct Parsed
{
    const char* url;
    UrlPath::Characteristic characteristic;
    const char* service;
    const char* resource;
    const char* element;
};

std::ostream& operator<<(std::ostream& out, const Parsed& parsed)
{
    return out << parsed.url;
}

class UrlPathParsing: public testing::TestWithParam<Parsed>
{
};

TEST_P(UrlPathParsing, GivesSegmentsAndCharacteristicFromTextAndFromUri)
{
    const Parsed& expected = GetParam();
    for (const UrlPath& path: {UrlPath(std::string(expected.url)), UrlPath(Poco::URI(expected.url))})
    {
        EXPECT_EQ(path.getCharacteristic(), expected.characteristic);
        EXPECT_EQ(path.isValid(), expected.characteristic != UrlPath::INVALID);
        EXPECT_EQ(path.getService(), expected.service);
        EXPECT_EQ(path.getResource(), expected.resource);
        EXPECT_EQ(path.getElement(), expected.element);
        EXPECT_TRUE(path.isServiceEqual(expected.service));
        EXPECT_TRUE(path.isResourceEqual(expected.resource));
        EXPECT_TRUE(path.isElementEqual(expected.element));
        EXPECT_FALSE(path.isServiceEqual(std::string(expected.service) + "x"));
        EXPECT_EQ(path.getUri(), Poco::URI(expected.url));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Urls, UrlPathParsing,
    testing::Values(Parsed{"/", UrlPath::ROOT, "", "", ""}, Parsed{"http://host", UrlPath::ROOT, "", "", ""},
                    Parsed{"http://[::1]:443/", UrlPath::ROOT, "", "", ""}, Parsed{"?a=b", UrlPath::ROOT, "", "", ""},
                    Parsed{"/s", UrlPath::SERVICE, "s", "", ""}, Parsed{"/s/", UrlPath::SERVICE, "s", "", ""},
                    Parsed{"s", UrlPath::SERVICE, "s", "", ""}, Parsed{"///s///", UrlPath::SERVICE, "s", "", ""},
                    Parsed{"/s/r", UrlPath::SERVICE_RESOURCE, "s", "r", ""},
                    Parsed{"http://[::1]:443/s/r/", UrlPath::SERVICE_RESOURCE, "s", "r", ""},
                    Parsed{"/s/r/e", UrlPath::SERVICE_RESOURCE_ELEMENT, "s", "r", "e"},
                    Parsed{"/s/r/e?x=1#f", UrlPath::SERVICE_RESOURCE_ELEMENT, "s", "r", "e"},
                    Parsed{"/s/r/a%20b%C3%A9", UrlPath::SERVICE_RESOURCE_ELEMENT, "s", "r", "a b\xC3\xA9"},
                    Parsed{"/s/../r", UrlPath::SERVICE_RESOURCE_ELEMENT, "s", "..", "r"},
                    Parsed{"/s/r/e/x", UrlPath::INVALID, "s", "r", "e"}));

INSTANTIATE_TEST_SUITE_P(ReservedKeys, UrlPathParsing,
                         testing::Values(Parsed{"/$id", UrlPath::ROOT_ID, "$id", "", ""},
                                         Parsed{"/$spec", UrlPath::INVALID, "$spec", "", ""},
                                         Parsed{"/$rights", UrlPath::INVALID, "$rights", "", ""},
                                         Parsed{"/s/$id", UrlPath::SERVICE_ID, "s", "$id", ""},
                                         Parsed{"/s/$spec", UrlPath::SERVICE_SPEC, "s", "$spec", ""},
                                         Parsed{"/s/%24spec", UrlPath::SERVICE_SPEC, "s", "$spec", ""},
                                         Parsed{"/s/$rights", UrlPath::SERVICE_RIGHTS, "s", "$rights", ""},
                                         Parsed{"/s/r/$id", UrlPath::SERVICE_RESOURCE_ID, "s", "r", "$id"},
                                         Parsed{"/s/r/$spec", UrlPath::SERVICE_RESOURCE_SPEC, "s", "r", "$spec"},
                                         Parsed{"/s/r/$rights", UrlPath::INVALID, "s", "r", "$rights"},
                                         Parsed{"/s/r/$other", UrlPath::SERVICE_RESOURCE_ELEMENT, "s", "r", "$other"},
                                         Parsed{"/$id/r", UrlPath::INVALID, "$id", "r", ""},
                                         Parsed{"/$id/r/e", UrlPath::INVALID, "$id", "r", "e"},
                                         Parsed{"/$id/$id", UrlPath::INVALID, "$id", "$id", ""},
                                         Parsed{"/s/$spec/e", UrlPath::INVALID, "s", "$spec", "e"},
                                         Parsed{"/s/r/$id/x", UrlPath::INVALID, "s", "r", "$id"}));

TEST(UrlPathTest, DefaultIsInvalidAndEmpty)
{
    const UrlPath path;
    EXPECT_EQ(path.getCharacteristic(), UrlPath::INVALID);
    EXPECT_FALSE(path.isValid());
    EXPECT_EQ(path.getService(), "");
    EXPECT_TRUE(path.getUri().empty());
}

TEST(UrlPathTest, TextThatIsNoUrlIsInvalidWithoutException)
{
    for (const char* text: {"", "/a%zz", "/a%", "http://host:port/", "http://h:99999/a", "/a#%zz", "http://["})
    {
        const UrlPath path{std::string(text)};
        EXPECT_FALSE(path.isValid()) << text;
        EXPECT_EQ(path.getService(), "") << text;
        EXPECT_TRUE(path.getUri().empty()) << text;
    }
}

TEST(UrlPathTest, EncodedNulStaysInsideItsSegment)
{
    const UrlPath path(std::string("/s/r/a%00b"));
    EXPECT_EQ(path.getElement(), std::string("a\0b", 3));
    EXPECT_EQ(path.getCharacteristic(), UrlPath::SERVICE_RESOURCE_ELEMENT);
}

TEST(UrlPathTest, CharacteristicCanBeMadeInvalid)
{
    UrlPath path(std::string("/s"));
    path.setCharacteristicInvalid();
    EXPECT_FALSE(path.isValid());
    EXPECT_EQ(path.getService(), "s");
    EXPECT_NE(path, UrlPath(std::string("/s")));
}

TEST(UrlPathTest, ObjectAndElementAreTheSameLevel)
{
    EXPECT_EQ(UrlPath::SERVICE_RESOURCE_OBJECT, UrlPath::SERVICE_RESOURCE_ELEMENT);
    EXPECT_EQ(static_cast<int>(UrlPath::SERVICE_RESOURCE_ELEMENT), 268435455);
    EXPECT_EQ(UrlPath::compareCharacteristic(UrlPath::SERVICE_RESOURCE_OBJECT, UrlPath::SERVICE_RESOURCE_ELEMENT), 0);
}

TEST(UrlPathTest, CharacteristicsHaveTheirNumbers)
{
    const UrlPath::Characteristic inOrder[] = {UrlPath::INVALID,
                                               UrlPath::ROOT,
                                               UrlPath::ROOT_ID,
                                               UrlPath::SERVICE,
                                               UrlPath::SERVICE_ID,
                                               UrlPath::SERVICE_SPEC,
                                               UrlPath::SERVICE_RIGHTS,
                                               UrlPath::SERVICE_RESOURCE,
                                               UrlPath::SERVICE_RESOURCE_ID,
                                               UrlPath::SERVICE_RESOURCE_SPEC};
    for (int number = 0; number < 10; ++number)
        EXPECT_EQ(static_cast<int>(inOrder[number]), number);
}

const UrlPath::Characteristic LADDER[] = {UrlPath::ROOT, UrlPath::SERVICE, UrlPath::SERVICE_RESOURCE,
                                          UrlPath::SERVICE_RESOURCE_ELEMENT};
const UrlPath::Characteristic RESERVED[] = {
    UrlPath::ROOT_ID,        UrlPath::SERVICE_ID,          UrlPath::SERVICE_SPEC,
    UrlPath::SERVICE_RIGHTS, UrlPath::SERVICE_RESOURCE_ID, UrlPath::SERVICE_RESOURCE_SPEC};

TEST(UrlPathTest, ReservedKeywordsAreTold)
{
    for (const auto characteristic: RESERVED)
        EXPECT_TRUE(UrlPath::isReservedKeyword(characteristic)) << characteristic;
    for (const auto characteristic: LADDER)
        EXPECT_FALSE(UrlPath::isReservedKeyword(characteristic)) << characteristic;
    EXPECT_FALSE(UrlPath::isReservedKeyword(UrlPath::INVALID));
    EXPECT_TRUE(UrlPath(std::string("/s/$id")).isReservedKeyword());
    EXPECT_FALSE(UrlPath(std::string("/s/id")).isReservedKeyword());
    EXPECT_FALSE(UrlPath(std::string("/$id/r")).isReservedKeyword());
}

TEST(UrlPathTest, LevelsGrowAlongTheLadderAndOthersHaveNone)
{
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(UrlPath::getCharacteristicLevel(LADDER[i]), i + 1);
    for (const auto characteristic: RESERVED)
        EXPECT_EQ(UrlPath::getCharacteristicLevel(characteristic), 0);
    EXPECT_EQ(UrlPath::getCharacteristicLevel(UrlPath::INVALID), 0);
}

TEST(UrlPathTest, DistanceIsZeroOnlyAtTheSameLevelAndOneOnlyDirectlyAbove)
{
    for (int a = 0; a < 4; ++a)
        for (int b = 0; b < 4; ++b)
            EXPECT_EQ(UrlPath::compareCharacteristic(LADDER[a], LADDER[b]), b - a);
}

TEST(UrlPathTest, WhatIsNoLevelHasNoDistanceToAnything)
{
    for (const auto other: {UrlPath::INVALID, UrlPath::ROOT_ID, UrlPath::SERVICE_SPEC, UrlPath::SERVICE_RESOURCE_ID})
    {
        for (const auto level: LADDER)
        {
            EXPECT_EQ(UrlPath::compareCharacteristic(level, other), UrlPath::NO_DISTANCE);
            EXPECT_EQ(UrlPath::compareCharacteristic(other, level), UrlPath::NO_DISTANCE);
        }
        EXPECT_EQ(UrlPath::compareCharacteristic(other, other), UrlPath::NO_DISTANCE);
    }
}

TEST(UrlPathTest, QueryIsGivenAsMapAndInTheOrderOfTheUrl)
{
    const UrlPath path(std::string("/s/r?$fields=a,b&z=1&a=%C3%A9+x&z=2&flag&&y=a=b"));
    EXPECT_TRUE(path.hasQueryParameter("z"));
    EXPECT_TRUE(path.hasQueryParameter("flag"));
    EXPECT_FALSE(path.hasQueryParameter("x"));
    EXPECT_EQ(path.getQueryParameters("z"), (std::vector<std::string>{"1", "2"}));
    EXPECT_TRUE(path.getQueryParameters("x").empty());
    const UrlPath::QueryParameters expected{{"$fields", "a,b"}, {"z", "1"},   {"a", "\xC3\xA9 x"},
                                            {"z", "2"},         {"flag", ""}, {"y", "a=b"}};
    EXPECT_EQ(path.getQueryParameters(), expected);
}

TEST(UrlPathTest, QueryThatDoesNotDecodeStandsAsItWasWritten)
{
    const UrlPath path(std::string("/s?a=%zz&%4=b&c=%ff&d=%41"));
    const UrlPath::QueryParameters expected{{"a", "%zz"}, {"%4", "b"}, {"c", "%ff"}, {"d", "A"}};
    EXPECT_TRUE(path.isValid());
    EXPECT_EQ(path.getQueryParameters(), expected);
}

TEST(UrlPathTest, SegmentsAloneDecideEquality)
{
    const UrlPath path(std::string("/s/r"));
    for (const char* same: {"/s/r", "/s/r/", "//s//r", "s/r", "/s/r?x=1", "/s/r#f", "http://host:1/s/r", "/%73/r"})
    {
        const UrlPath other{std::string(same)};
        EXPECT_EQ(path, other) << same;
        EXPECT_FALSE(path != other) << same;
        EXPECT_FALSE(path < other || other < path) << same;
    }
    for (const char* different: {"/s", "/s/r/e", "/s/q", "/S/r", "/"})
    {
        const UrlPath other{std::string(different)};
        EXPECT_NE(path, other) << different;
        EXPECT_NE(path < other, other < path) << different;
    }
}

TEST(UrlPathTest, EqualUrlFindsItsEntriesInAMultimap)
{
    std::multimap<UrlPath, int> map;
    map.emplace(UrlPath(std::string("/s/r")), 1);
    map.emplace(UrlPath(std::string("/s/q")), 2);
    map.emplace(UrlPath(std::string("http://h/s/r?x=1")), 3);
    EXPECT_EQ(map.count(UrlPath(std::string("/s/r/"))), 2u);
}

TEST(UrlPathTest, OrderIsAStrictWeakOrder)
{
    std::vector<UrlPath> paths{UrlPath()};
    for (const char* url:
         {"/", "/a", "/b", "/a/b", "/a/b/c", "/a/b/c/d", "/a/b/c/e", "/a/b/c/d/e", "/$spec", "/a/$id/b", "/ab"})
        paths.emplace_back(std::string(url));
    for (std::size_t a = 0; a < paths.size(); ++a)
        for (std::size_t b = 0; b < paths.size(); ++b)
        {
            EXPECT_EQ(paths[a] == paths[b], a == b) << a << " " << b;
            EXPECT_EQ(paths[a] < paths[b], a != b && !(paths[b] < paths[a])) << a << " " << b;
            for (const UrlPath& c: paths)
                EXPECT_TRUE(!(paths[a] < paths[b] && paths[b] < c) || paths[a] < c);
        }
}

TEST(UrlPathTest, ValidityDecidesBeforeTheSegments)
{
    UrlPath invalid(std::string("/z"));
    invalid.setCharacteristicInvalid();
    EXPECT_LT(invalid, UrlPath(std::string("/a")));
    EXPECT_FALSE(UrlPath(std::string("/a")) < invalid);
}

TEST(UrlPathTest, ConstantsHaveTheirTexts)
{
    EXPECT_EQ(UrlPath::URI_ROOT, "/");
    EXPECT_EQ(UrlPath::URI_ROOT_API, "/");
    EXPECT_EQ(UrlPath::RESERVED_KEY_ID, "$id");
    EXPECT_EQ(UrlPath::RESERVED_KEY_SPEC, "$spec");
    EXPECT_EQ(UrlPath::RESERVED_KEY_RIGHTS, "$rights");
    EXPECT_EQ(UrlPath::QUERY_FIELDS, "$fields");
    EXPECT_EQ(UrlPath::QUERY_SORTBY, "$sortby");
    EXPECT_EQ(UrlPath::QUERY_EXPAND, "$expand");
    EXPECT_EQ(UrlPath::QUERY_FREETEXT_SEARCH, "$q");
    EXPECT_EQ(UrlPath::QUERY_PAGING_OFFSET, "$offset");
    EXPECT_EQ(UrlPath::QUERY_PAGING_LIMIT, "$limit");
    EXPECT_EQ(UrlPath::QUERY_WILDCARD, "*");
    EXPECT_EQ(UrlPath::QUERY_WILDCARD_HTML, "%2A");
}

} // namespace
