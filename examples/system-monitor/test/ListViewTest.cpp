#include "ListView.h"

#include <Command/RequestBase.h>
#include <Command/ResponseObject.h>
#include <Poco/JSON/Parser.h>
#include <Poco/URI.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace
{

using Kesa::Command::RequestBase;
using Kesa::Command::ResponseObject;
using Poco::JSON::Array;
using Poco::JSON::Object;

RequestBase request(const std::string& query)
{
    return RequestBase(Poco::URI("http://host/system/processes?" + query));
}

Array::Ptr processes()
{
    return Poco::JSON::Parser()
        .parse(R"([{"id":"1","uri":"/1","name":"init","cpu":0.5},{"id":"2","uri":"/2","name":"bash","cpu":10},
                   {"id":"3","uri":"/3","name":"bash"},{"id":"4","uri":"/4","name":"ssh","cpu":9}])")
        .extract<Array::Ptr>();
}

/// The ids of the answer, one after the other.
std::string ids(const std::string& query)
{
    ResponseObject response;
    SystemMonitor::answerList(processes(), request(query), response);
    std::string text;
    for (const auto& element: *response.getDataAsJsonArray())
        text += element.extract<Object::Ptr>()->getValue<std::string>("id");
    return text;
}

struct Case
{
    const char* query;
    const char* ids;
};

class ListView: public testing::TestWithParam<Case>
{
};

TEST_P(ListView, AnswersWhatTheQueryAsksFor)
{
    EXPECT_EQ(ids(GetParam().query), GetParam().ids);
}

INSTANTIATE_TEST_SUITE_P(All, ListView,
                         testing::Values(Case{"", "1234"}, Case{"name=bash", "23"}, Case{"$q=SH", "234"},
                                         Case{"$q=sh&name=ssh", "4"}, Case{"name=vim", ""},
                                         Case{"$sortby=name", "2314"}, Case{"$sortby=-cpu", "2413"},
                                         Case{"$sortby=cpu", "1423"}, Case{"$sortby=name,-id", "3214"},
                                         Case{"$sortby=missing", "1234"}, Case{"$limit=2", "12"},
                                         Case{"$offset=1&$limit=2", "23"}, Case{"$offset=9", ""},
                                         Case{"$sortby=-cpu&$limit=1", "2"}));

TEST(ListViewFields, KeepIdAndUri)
{
    ResponseObject response;
    SystemMonitor::answerList(processes(), request("$fields=cpu&$limit=1"), response);
    std::ostringstream text;
    response.getDataAsJsonArray()->stringify(text);
    EXPECT_EQ(text.str(), R"([{"cpu":0.5,"id":"1","uri":"/1"}])");
}

TEST(ListViewFields, SelectMembersOfAnElement)
{
    ResponseObject response;
    const auto element = processes()->getObject(0);
    SystemMonitor::answerElement(element, request("$fields=name"), response);
    EXPECT_EQ(response.getDataAsJsonObject()->size(), 3u);
    EXPECT_TRUE(response.getDataAsJsonObject()->has("name"));
}

TEST(ListViewPaging, StandsInTheAnswerWhereItWasAskedFor)
{
    ResponseObject response;
    SystemMonitor::answerList(processes(), request("$limit=3"), response);
    ASSERT_TRUE(response.getPaging());
    EXPECT_EQ(response.getPaging()->getValue<int>("total"), 4);
    EXPECT_EQ(response.getPaging()->getValue<int>("totalPages"), 2);
    ResponseObject whole;
    SystemMonitor::answerList(processes(), request(""), whole);
    EXPECT_FALSE(whole.getPaging());
}

TEST(ListViewPaging, IsForcedUponALongList)
{
    Array::Ptr many = new Array;
    for (int i = 0; i < 501; ++i)
        many->add(Object::Ptr(new Object));
    ResponseObject response;
    SystemMonitor::answerList(many, request(""), response);
    EXPECT_EQ(response.getDataAsJsonArray()->size(), 500u);
    ASSERT_TRUE(response.getPaging());
    EXPECT_EQ(response.getPaging()->getValue<int>("total"), 501);
}

} // namespace
