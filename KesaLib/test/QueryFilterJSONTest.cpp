#include <Command/Query/QueryFilterJSON.h>

#include <Command/Query/AnyValueSearch.h>
#include <Command/Query/AttributeValueSearch.h>
#include <Command/Query/FilterParameter.h>
#include <Command/RequestBase.h>

#include <Poco/JSON/Parser.h>

#include <gtest/gtest.h>

using namespace Kesa::Command;

namespace
{

Poco::JSON::Object::Ptr json(const std::string& text)
{
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

struct Filter
{
    const char* query;
    const char* payload;
    bool matches;
};

bool matchesFields(const Filter& filter)
{
    const RequestBase request{Poco::URI(std::string("/s/r?") + filter.query)};
    const auto found = request.renderCriteria.find(RequestBase::criteriaKey<FilterParameter>());
    return QueryFilterJSON::findContainedFields(*json(filter.payload),
                                                found == request.renderCriteria.end() ? nullptr : &found->second);
}

TEST(QueryFilterJSONTest, OneOfTheFieldsIsEnough)
{
    const Filter table[] = {{"$fields=a,b", R"({"b":1,"c":2})", true},
                            {"$fields=a,b", R"({"c":2})", false},
                            {"$fields=a,b", "{}", false},
                            {"$fields=a", R"({"A":1})", false},
                            {"$fields=a", R"({"x":{"a":1}})", false},
                            {"$fields=a", R"({"a":null})", true},
                            {"$fields=a&$fields=b", R"({"b":1})", true},
                            {"$fields=a&$fields=", R"({"b":1})", false},
                            {"$fields=", R"({"b":1})", true},
                            {"x=1", R"({"b":1})", true}};
    for (const Filter& filter: table)
        EXPECT_EQ(matchesFields(filter), filter.matches) << filter.query << " " << filter.payload;
}

TEST(QueryFilterJSONTest, FieldsAreNotAskedOfOtherCriteriaOrNulls)
{
    const std::vector<Poco::SharedPtr<RenderCriterion>> criteria{nullptr, new RenderCriterion(false)};
    EXPECT_TRUE(QueryFilterJSON::findContainedFields(*json("{}"), &criteria));
}

bool matchesFreetexts(const Filter& filter)
{
    std::vector<Poco::SharedPtr<AnyValueSearch>> searches{nullptr};
    RequestBase(Poco::URI(std::string("/s/r?") + filter.query)).extractSearchCriteria(searches);
    return QueryFilterJSON::findContainedFreetexts(*json(filter.payload), searches);
}

TEST(QueryFilterJSONTest, EveryFreetextMustStandInSomeScalar)
{
    const Filter table[] = {{"$q=abc", R"({"x":"xABCx"})", true},
                            {"$q=abc", R"({"abc":"x"})", false},
                            {"$q=abc", "{}", false},
                            {"$q=abc", R"({"x":{"y":[1,["abc"]]}})", true},
                            {"$q=a&$q=b", R"({"x":"a","y":"b"})", true},
                            {"$q=a&$q=b", R"({"x":"a"})", false},
                            {"$q=1*3", R"({"x":123})", true},
                            {"$q=1*3", R"({"x":"1","y":"3"})", false},
                            {"$q=a+b", R"({"x":"a b"})", true},
                            {"$q=%2A", R"({"x":0})", true},
                            {"$q=tru", R"({"x":true})", true},
                            {"$q=", "{}", true}};
    for (const Filter& filter: table)
        EXPECT_EQ(matchesFreetexts(filter), filter.matches) << filter.query << " " << filter.payload;
}

bool matchesPairs(const Filter& filter)
{
    std::vector<Poco::SharedPtr<AttributeValueSearch>> searches{nullptr};
    RequestBase(Poco::URI(std::string("/s/r?") + filter.query)).extractSearchCriteria(searches);
    return QueryFilterJSON::findContainedAttributePairs(*json(filter.payload), searches);
}

TEST(QueryFilterJSONTest, EveryAttributePairMustMatchUnlessThePayloadLacksTheAttribute)
{
    const Filter table[] = {{"a=x", R"({"a":"x"})", true},
                            {"a=x", R"({"a":"X"})", false},
                            {"a=x", R"({"b":"y"})", true},
                            {"a=x", "{}", true},
                            {"a=x&b=y", R"({"a":"x","b":"z"})", false},
                            {"a=x&b=y", R"({"a":"x"})", true},
                            {"a=x*&a=*z", R"({"a":"xz"})", true},
                            {"a=x*&a=*z", R"({"a":"xy"})", false},
                            {"a=1.5", R"({"a":1.5})", true},
                            {"a=true", R"({"a":true})", true},
                            {"a=", R"({"a":""})", true},
                            {"a=", R"({"a":"x"})", false},
                            {"a=x", R"({"a":{"a":"x"}})", false},
                            {"a=*", R"({"a":["x"]})", false},
                            {"a=%zz", R"({"a":"y"})", true},
                            {"a%20b=c%26d", R"({"a b":"c&d"})", true}};
    for (const Filter& filter: table)
        EXPECT_EQ(matchesPairs(filter), filter.matches) << filter.query << " " << filter.payload;
}

} // namespace
