#include "QueryCheck.h"

#include <Command/RequestBase.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using Kesa::Command::RequestBase;
using Kesa::Host::checkQuery;
using Kesa::Host::QueryVerdict;
using testing::HasSubstr;

namespace
{

QueryVerdict check(const std::string& url)
{
    return checkQuery(RequestBase(Poco::URI(url)));
}

} // namespace

TEST(QueryCheckTest, NamesTheParameterThatCannotBeRead)
{
    const struct
    {
        const char* query;
        const char* message;
    } rows[] = {{"$limit=-1", "\"$limit\" cannot have the value \"-1\""},
                {"$limit=0", "\"$limit\""},
                {"$limit=ten", "\"$limit\""},
                {"$limit=", "\"$limit\""},
                {"$offset=-1", "\"$offset\""},
                {"$offset=", "\"$offset\""},
                {"$fields=", "\"$fields\""},
                {"$fields=a,,b", "\"a,,b\""},
                {"$sortby=-", "\"$sortby\""},
                {"$q=", "\"$q\""},
                {"$expand=", "\"$expand\""},
                {"$expand=-1", "\"$expand\""},
                {"$unknown=1", "no parameter \"$unknown\""},
                {"$=1", "no parameter \"$\""},
                {"$limit=1&$limit=1", "\"$limit\" stands twice"},
                {"$q=a&$fields=b&$q=a", "\"$q\" stands twice"},
                {"$fields=a&%24fields=b", "\"$fields\" stands twice"},
                {"a=1&$limit=5&$offset=-3", "\"$offset\""},
                {"a=%ff", "\"a\" is no percent-encoded UTF-8"},
                {"$q=%c3", "\"$q\" is no percent-encoded UTF-8"},
                {"a=%zz", "\"a\" is no percent-encoded UTF-8"},
                {"%ff=a", "is no percent-encoded UTF-8"}};
    for (const auto& row: rows)
    {
        const QueryVerdict verdict = check(std::string("/shop/orders?") + row.query);
        EXPECT_EQ(verdict.code, 400) << row.query;
        EXPECT_THAT(verdict.message, HasSubstr(row.message)) << row.query;
    }
}

TEST(QueryCheckTest, RefusesMoreParametersThanAreRead)
{
    std::string url = "/shop/orders?a=1";
    for (int i = 0; i < 200; ++i)
        url += "&a=1";
    EXPECT_EQ(check(url).code, 400);
    EXPECT_THAT(check(url).message, HasSubstr("more than 100 parameters"));
}

TEST(QueryCheckTest, AllowsTheExpansionOfASubscription)
{
    const struct
    {
        const char* url;
        int code;
    } rows[] = {{"/shop/orders/1?$expand=0", 0},
                {"/shop/orders/1?$expand=3", 0},
                {"/shop/orders/1?$expand=4", 403},
                {"/shop/orders/1?$expand=99", 403},
                {"/shop/orders/1?$expand=99999999999999999999", 403},
                {"/shop/orders?$expand=0", 0},
                {"/shop/orders?$expand=1", 403},
                {"/shop?$expand=1", 403},
                {"/?$expand=1", 403},
                {"/shop/orders?$expand=a,b", 0},
                {"/shop/orders/1?$expand=a", 0}};
    for (const auto& row: rows)
    {
        EXPECT_EQ(check(row.url).code, row.code) << row.url;
        EXPECT_EQ(check(row.url).message.empty(), row.code == 0) << row.url;
    }
}

TEST(QueryCheckTest, FindsNothingWrongWithAProperQuery)
{
    for (const char* query:
         {"", "a=1", "a=1&a=2", "a=", "$limit=1", "$limit=100000", "$offset=0&$limit=5", "$offset=some-id", "$q=a*b",
          "$fields=a,b&$sortby=-a,b&$q=x&c=d&$offset=5&$limit=6", "a=%C3%A4+b"})
        EXPECT_EQ(check(std::string("/shop/orders?") + query).code, 0) << query;
}
