#include <Command/RequestBase.h>

#include <Command/Query/AnyValueSearch.h>
#include <Command/Query/AttributeValueSearch.h>
#include <Command/Query/ExpandParameter.h>
#include <Command/Query/FilterParameter.h>
#include <Command/Query/Paging.h>
#include <Command/Query/SortParameter.h>

#include <gtest/gtest.h>

using namespace Kesa::Command;

namespace
{

RequestBase request(const std::string& query)
{
    return RequestBase(Poco::URI("/s/r?" + query));
}

/// What a derived class sees.
class Derived: public RequestBase
{
public:
    Derived() = default;
    explicit Derived(const std::string& url): RequestBase(url) {}
    using RequestBase::initializeFromUri;
};

enum Kind
{
    FIELDS = 1,
    SORTBY = 2,
    PAGING = 4,
    EXPAND = 8,
    PROPERTIES = 16,
    FREETEXT = 32,
    ATTRIBUTE = 64,
    UNKNOWN = 128
};

struct Query
{
    const char* text;
    int kinds;
    bool valid;
};

std::ostream& operator<<(std::ostream& out, const Query& query)
{
    return out << query.text;
}

class RequestBaseQuery: public testing::TestWithParam<Query>
{
};

TEST_P(RequestBaseQuery, CountsItsCriteriaReadableOrNot)
{
    const int kinds = GetParam().kinds;
    const RequestBase parsed = request(GetParam().text);
    EXPECT_EQ(parsed.hasFieldsCriteria(), (kinds & FIELDS) != 0);
    EXPECT_EQ(parsed.hasSortbyCriteria(), (kinds & SORTBY) != 0);
    EXPECT_EQ(parsed.hasPagingCriteria(), (kinds & PAGING) != 0);
    EXPECT_EQ(parsed.hasExpandCriteria(), (kinds & EXPAND) != 0);
    EXPECT_EQ(parsed.hasPropertyExpandCriteria(), (kinds & PROPERTIES) != 0);
    EXPECT_EQ(parsed.hasFreetextCriteria(), (kinds & FREETEXT) != 0);
    EXPECT_EQ(parsed.hasAttributeCriteria(), (kinds & ATTRIBUTE) != 0);
    EXPECT_EQ(parsed.hasRenderCriteria(), (kinds & (FIELDS | SORTBY | PAGING | EXPAND | UNKNOWN)) != 0);
    EXPECT_EQ(parsed.hasSearchCriteria(), (kinds & (FREETEXT | ATTRIBUTE)) != 0);
    EXPECT_EQ(parsed.hasAnyCriteria(), kinds != 0);
    EXPECT_EQ(parsed.areCriteriaValid(), GetParam().valid);
}

INSTANTIATE_TEST_SUITE_P(Readable, RequestBaseQuery,
                         testing::Values(Query{"", 0, true}, Query{"&&", 0, true}, Query{"$fields=a,b", FIELDS, true},
                                         Query{"$sortby=a,-b", SORTBY, true}, Query{"$offset=3", PAGING, true},
                                         Query{"$limit=3", PAGING, true}, Query{"$offset=an-id&$limit=3", PAGING, true},
                                         Query{"$expand=2", EXPAND, true}, Query{"$expand=0", EXPAND, true},
                                         Query{"$expand=a,b", EXPAND | PROPERTIES, true},
                                         Query{"$q=text", FREETEXT, true}, Query{"name=value", ATTRIBUTE, true},
                                         Query{"name=", ATTRIBUTE, true}, Query{"name", ATTRIBUTE, true},
                                         Query{"name=a&name=b", ATTRIBUTE, true},
                                         Query{"%24fields=a&$q=*", FIELDS | FREETEXT, true},
                                         Query{"a=1&$fields=x&$sortby=y&$limit=1&$expand=p&$q=t",
                                               FIELDS | SORTBY | PAGING | EXPAND | PROPERTIES | FREETEXT | ATTRIBUTE,
                                               true}));

INSTANTIATE_TEST_SUITE_P(Unreadable, RequestBaseQuery,
                         testing::Values(Query{"$fields=", FIELDS, false}, Query{"$fields", FIELDS, false},
                                         Query{"$fields=a,,b", FIELDS, false}, Query{"$fields=%zz", FIELDS, false},
                                         Query{"$sortby=", SORTBY, false}, Query{"$sortby=-", SORTBY, false},
                                         Query{"$offset=", PAGING, false}, Query{"$offset=-1", PAGING, false},
                                         Query{"$limit=0", PAGING, false}, Query{"$limit=-5", PAGING, false},
                                         Query{"$limit=many", PAGING, false}, Query{"$limit=1.5", PAGING, false},
                                         Query{"$offset=%zz&$limit=3", PAGING, false}, Query{"$expand=", EXPAND, false},
                                         Query{"$expand=-1", EXPAND, false}, Query{"$expand=%ff", EXPAND, false},
                                         Query{"$q=", FREETEXT, false}, Query{"$q=%ff", FREETEXT, false},
                                         Query{"name=%zz", ATTRIBUTE, false}, Query{"%zz=a", ATTRIBUTE, false},
                                         Query{"=a", ATTRIBUTE, false}, Query{"$unknown=1", UNKNOWN, false},
                                         Query{"$", UNKNOWN, false}, Query{"$id=1", UNKNOWN, false},
                                         Query{"$Fields=a", UNKNOWN, false}));

INSTANTIATE_TEST_SUITE_P(Twice, RequestBaseQuery,
                         testing::Values(Query{"$fields=a&$fields=b", FIELDS, false},
                                         Query{"$q=a&$q=b", FREETEXT, false},
                                         Query{"$offset=1&$offset=1", PAGING, false},
                                         Query{"$expand=1&%24expand=1", EXPAND, false}));

TEST(RequestBaseTest, UrlPathGivesNoCriteria)
{
    const RequestBase parsed(UrlPath(std::string("/s/r?$fields=a&b=c")));
    EXPECT_FALSE(parsed.hasAnyCriteria());
    EXPECT_EQ(parsed.getUrlPath().getResource(), "r");
    EXPECT_EQ(parsed.getUri().getRawQuery(), "$fields=a&b=c");
    EXPECT_EQ(parsed.getExpansionLevel(), 0u);
}

TEST(RequestBaseTest, CriteriaOfOneClassShareTheVectorUnderItsTypeName)
{
    const RequestBase parsed = request("$fields=a&$q=x&$fields=b&n=1&$q=y&$nonsense=1");
    EXPECT_EQ(parsed.renderCriteria.at(typeid(FilterParameter).name()).size(), 2u);
    EXPECT_EQ(parsed.renderCriteria.at(typeid(RenderCriterion).name()).size(), 1u);
    EXPECT_EQ(parsed.searchCriteria.at(typeid(AnyValueSearch).name()).size(), 2u);
    EXPECT_EQ(parsed.searchCriteria.at(typeid(AttributeValueSearch).name()).size(), 1u);
    EXPECT_EQ(RequestBase::criteriaKey<FilterParameter>(), typeid(FilterParameter).name());
}

TEST(RequestBaseTest, KeyOfATypeDropsALeadingAsterisk)
{
    struct Local
    {
    };
    EXPECT_NE(RequestBase::criteriaKey<Local>().front(), '*');
    const std::string name = typeid(Local).name();
    EXPECT_EQ(RequestBase::criteriaKey<Local>(), name.front() == '*' ? name.substr(1) : name);
}

TEST(RequestBaseTest, ExtractionAppendsWhatTheKeyHolds)
{
    const RequestBase parsed = request("a=1&b=2&$q=t");
    std::vector<Poco::SharedPtr<AttributeValueSearch>> pairs(1);
    parsed.extractSearchCriteria(pairs);
    ASSERT_EQ(pairs.size(), 3u);
    EXPECT_TRUE(pairs[0].isNull());
    EXPECT_EQ(pairs[1]->getName(), "a");
    EXPECT_EQ(pairs[2]->getName(), "b");
}

TEST(RequestBaseTest, ExtractionFromARequestWithoutSearchLeavesTheVectorEmpty)
{
    std::vector<Poco::SharedPtr<AnyValueSearch>> texts;
    request("$fields=a").extractSearchCriteria(texts);
    EXPECT_TRUE(texts.empty());
}

TEST(RequestBaseTest, ExtractionGivesNullForAnEntryOfAnotherClass)
{
    RequestBase parsed = request("a=1");
    parsed.searchCriteria[RequestBase::criteriaKey<AnyValueSearch>()] =
        parsed.searchCriteria.at(RequestBase::criteriaKey<AttributeValueSearch>());
    std::vector<Poco::SharedPtr<AnyValueSearch>> texts;
    parsed.extractSearchCriteria(texts);
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_TRUE(texts[0].isNull());
}

TEST(RequestBaseTest, ExpansionLevelIsZeroWithoutOneAndTheLargestOfSeveral)
{
    EXPECT_EQ(request("").getExpansionLevel(), 0u);
    EXPECT_EQ(request("$expand=a,b").getExpansionLevel(), 0u);
    EXPECT_EQ(request("$expand=2").getExpansionLevel(), 2u);
    EXPECT_EQ(request("$expand=1&$expand=7&$expand=3").getExpansionLevel(), 7u);
    EXPECT_EQ(request("$expand=99999999999999999999999").getExpansionLevel(), 4294967295u);
}

TEST(RequestBaseTest, ExpansionPropertiesAreAppended)
{
    std::vector<std::string> properties{"before"};
    EXPECT_TRUE(request("$expand=a,b&$expand=c").getExpansionProperties(properties));
    EXPECT_EQ(properties, (std::vector<std::string>{"before", "a", "b", "c"}));
    EXPECT_FALSE(request("$expand=3").getExpansionProperties(properties));
    EXPECT_EQ(properties.size(), 4u);
}

TEST(RequestBaseTest, OffsetAndLimitMakeOnePaging)
{
    std::vector<Poco::SharedPtr<Paging>> pagings;
    request("$limit=7&a=b&$offset=20").extractRenderCriteria(pagings);
    ASSERT_EQ(pagings.size(), 1u);
    EXPECT_EQ(pagings[0]->getNumberOffset(), 20);
    EXPECT_EQ(pagings[0]->getLimit(), 7);
}

TEST(RequestBaseTest, DerivedClassCanReadAnotherUrl)
{
    Derived derived;
    EXPECT_FALSE(derived.getUrlPath().isValid());
    derived.initializeFromUri(Poco::URI("/s?$fields=a"));
    EXPECT_TRUE(derived.hasFieldsCriteria());
    derived.initializeFromUri(Poco::URI("/t?a=b"));
    EXPECT_FALSE(derived.hasFieldsCriteria());
    EXPECT_TRUE(derived.hasAttributeCriteria());
    EXPECT_EQ(derived.getUrlPath().getService(), "t");
}

TEST(RequestBaseTest, TextThatIsNoUrlGivesAnInvalidPathWithoutCriteria)
{
    const Derived derived("/s%zz?$fields=a");
    EXPECT_FALSE(derived.getUrlPath().isValid());
    EXPECT_FALSE(derived.hasAnyCriteria());
    EXPECT_TRUE(Derived("/s?$fields=a").hasFieldsCriteria());
}

TEST(RequestBaseTest, CopiesAndAssignmentsKeepPathAndCriteria)
{
    const RequestBase original = request("$fields=a&b=c");
    RequestBase other = request("");
    other = original;
    EXPECT_TRUE(other.hasFieldsCriteria());
    EXPECT_TRUE(RequestBase(original).hasAttributeCriteria());
    const RequestBase moved(std::move(other));
    EXPECT_TRUE(moved.hasFieldsCriteria());
    EXPECT_EQ(moved.getUrlPath().getResource(), "r");
}

TEST(RequestBaseTest, ParametersBeyondTheBoundAreOneInvalidParameter)
{
    std::string query;
    for (int i = 0; i < 100; ++i)
        query += "a=" + std::to_string(i) + "&";
    const RequestBase full = request(query);
    EXPECT_TRUE(full.areCriteriaValid());
    EXPECT_FALSE(full.hasRenderCriteria());
    const RequestBase over = request(query + "$fields=x&b=1");
    EXPECT_FALSE(over.areCriteriaValid());
    EXPECT_FALSE(over.hasFieldsCriteria());
    EXPECT_EQ(over.searchCriteria.at(RequestBase::criteriaKey<AttributeValueSearch>()).size(), 100u);
}

} // namespace
