#include "DataAnswer.h"

#include <Command/RequestBase.h>
#include <Command/WebSocketResponseObject.h>
#include <Data/ElementGeneric.h>

#include <Poco/JSON/Parser.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

using Kesa::Command::RequestBase;
using Kesa::Command::WebSocketResponseObject;
using Kesa::Host::DataAnswer;
using Kesa::Host::DataRow;
using Poco::JSON::Object;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

Object::Ptr json(const std::string& text)
{
    return Poco::JSON::Parser().parse(text).extract<Object::Ptr>();
}

RequestBase request(const std::string& query)
{
    return RequestBase(Poco::URI("/shop/orders?" + query));
}

const std::vector<std::string> ORDERS = {R"({"id":"1","price":10,"color":"red","tags":["new"]})",
                                         R"({"id":"2","price":9,"color":"blue"})",
                                         R"({"id":"3","color":"Red","note":null})",
                                         R"({"id":"4","price":"9","color":"green"})",
                                         R"({"id":"5","price":9,"color":"red"})",
                                         R"({"id":"6","price":true,"size":{"w":"red"}})"};

std::vector<DataRow> orders()
{
    std::vector<DataRow> rows;
    for (const std::string& order: ORDERS)
        rows.emplace_back(json(order));
    return rows;
}

/// The ids that a query leaves, in their order.
std::string ids(const std::string& query)
{
    std::string ids;
    const DataAnswer answer = DataAnswer::list(orders(), request(query));
    for (const DataRow& row: answer.rows())
        ids += row.json()->getValue<std::string>("id");
    return ids;
}

Object::Ptr document(const DataAnswer& answer)
{
    return json(answer.toJsonString());
}

/// Counts how often elements are rendered.
class CountedElement: public Kesa::Data::ElementGeneric
{
public:
    CountedElement(const std::string& id, int& count): ElementGeneric("shop", "orders", "", id, 0), m_count(count) {}

    using ElementGeneric::toJSON;
    Object::Ptr toJSON(int level) const override
    {
        ++m_count;
        return ElementGeneric::toJSON(level);
    }

private:
    int& m_count;
};

} // namespace

TEST(DataAnswerTest, SelectsByEverySearchOfTheQuery)
{
    const struct
    {
        const char* query;
        const char* ids;
    } rows[] = {{"", "123456"},
                {"color=red", "15"},
                {"color=Red", "3"},
                {"color=*e*", "12345"},
                {"color=r*&price=9", "5"},
                {"price=9", "245"},
                {"price=true", "6"},
                {"color=r*&color=*d", "15"},
                {"size=*", ""},
                {"missing=*", ""},
                {"color=", ""},
                {"$q=red", "1356"},
                {"$q=new", "1"},
                {"$q=RED&price=9", "5"},
                {"$q=r*d", "1356"},
                {"$q=nothing", ""},
                {"color=%72ed", "15"}};
    for (const auto& row: rows)
        EXPECT_EQ(ids(row.query), row.ids) << row.query;
}

TEST(DataAnswerTest, OrdersBySeveralKeysWithWhatIsMissingLastAndTiesInTheOrderOfCreation)
{
    const struct
    {
        const char* query;
        const char* ids;
    } rows[] = {
        {"$sortby=price", "251463"},       {"$sortby=-price", "641253"},       {"$sortby=color", "324156"},
        {"$sortby=color,price", "324516"}, {"$sortby=-color,price", "514236"}, {"$sortby=missing", "123456"},
        {"$sortby=-id", "654321"},         {"$sortby=price,-id", "521463"},    {"color=red&$sortby=price", "51"}};
    for (const auto& row: rows)
        EXPECT_EQ(ids(row.query), row.ids) << row.query;
}

TEST(DataAnswerTest, CutsOutThePageOfWhatIsSelectedAndOrdered)
{
    const struct
    {
        const char* query;
        const char* ids;
        int total;
        int pages;
    } rows[] = {{"$limit=2", "12", 6, 3},
                {"$offset=4&$limit=2", "56", 6, 3},
                {"$offset=5&$limit=2", "6", 6, 3},
                {"$offset=6&$limit=2", "", 6, 3},
                {"$offset=1000000&$limit=2", "", 6, 3},
                {"$offset=2", "3456", 6, 1},
                {"color=red&$limit=1", "1", 2, 2},
                {"$sortby=-id&$offset=1&$limit=2", "54", 6, 3},
                {"$q=nothing&$limit=2", "", 0, 0}};
    for (const auto& row: rows)
    {
        const auto paging = document(DataAnswer::list(orders(), request(row.query)))->getObject("paging");
        EXPECT_EQ(ids(row.query), row.ids) << row.query;
        EXPECT_EQ(paging->getValue<int>("total"), row.total) << row.query;
        EXPECT_EQ(paging->getValue<int>("totalPages"), row.pages) << row.query;
    }
    EXPECT_FALSE(document(DataAnswer::list(orders(), request("")))->has("paging"));
}

TEST(DataAnswerTest, BeginsAPageAtAnIdAndNamesTheNeighbouringPages)
{
    std::vector<DataRow> rows;
    for (const char* id: {"a", "b", "c", "d", "e"})
        rows.emplace_back(json(std::string("{\"id\":\"") + id + "\"}"));
    const auto answer = document(DataAnswer::list(rows, request("x=*&$q=a")));
    EXPECT_EQ(answer->getArray("data")->size(), 0u);
    const auto page = document(DataAnswer::list(rows, request("$fields=id&$offset=c&$limit=1")));
    EXPECT_EQ(page->getArray("data")->size(), 1u);
    const auto paging = page->getObject("paging");
    EXPECT_EQ(paging->getValue<std::string>("offsetId"), "c");
    EXPECT_EQ(paging->getValue<std::string>("previous"), "/shop/orders?$fields=id&$offset=b&$limit=1");
    EXPECT_EQ(paging->getValue<std::string>("next"), "/shop/orders?$fields=id&$offset=d&$limit=1");
    EXPECT_EQ(document(DataAnswer::list(rows, request("$offset=x")))->getArray("data")->size(), 0u);
}

TEST(DataAnswerTest, CutsAListWithoutPagingAtTheMaximumAndSaysSo)
{
    std::vector<DataRow> rows;
    for (int i = 0; i < 500; ++i)
        rows.emplace_back(json("{\"id\":\"" + std::to_string(i) + "\"}"));
    EXPECT_FALSE(document(DataAnswer::list(rows, request("")))->has("paging"));
    rows.emplace_back(json(R"({"id":"last"})"));
    const auto answer = document(DataAnswer::list(rows, request("")));
    EXPECT_EQ(answer->getArray("data")->size(), 500u);
    EXPECT_EQ(answer->getObject("paging")->getValue<int>("total"), 501);
    EXPECT_EQ(answer->getObject("paging")->getValue<std::string>("next"), "/shop/orders?$offset=500&$limit=500");
}

TEST(DataAnswerTest, SelectsMembersButAlwaysKeepsIdAndUri)
{
    const std::string text = R"({"a":1,"b":{"c":2},"id":"1","uri":"/shop/orders/1","z":null})";
    const struct
    {
        const char* query;
        const char* text;
    } rows[] = {{"", R"({"a":1,"b":{"c":2},"id":"1","uri":"/shop/orders/1","z":null})"},
                {"$fields=b,a", R"({"a":1,"b":{"c":2},"id":"1","uri":"/shop/orders/1"})"},
                {"$fields=z", R"({"id":"1","uri":"/shop/orders/1","z":null})"},
                {"$fields=c,A,missing", R"({"id":"1","uri":"/shop/orders/1"})"},
                {"$fields=id", R"({"id":"1","uri":"/shop/orders/1"})"}};
    for (const auto& row: rows)
    {
        const DataAnswer element = DataAnswer::element(DataRow(json(text)), request(row.query));
        EXPECT_EQ(element.toJsonString(), std::string("{\"data\":") + row.text + ",\"status\":\"ok\"}");
        const DataAnswer list = DataAnswer::list({DataRow(json(text))}, request(row.query));
        EXPECT_EQ(list.toJsonString(), std::string("{\"data\":[") + row.text + "],\"status\":\"ok\"}");
    }
    EXPECT_EQ(DataAnswer::element(DataRow(json("{}")), request("$fields=a")).toJsonString(),
              R"({"data":{},"status":"ok"})");
}

TEST(DataAnswerTest, FillsANotificationWithTheDataOfTheHttpAnswer)
{
    for (const char* query: {"", "$fields=price", "color=red", "$limit=2&$sortby=-price&$fields=color"})
    {
        const DataAnswer answer = DataAnswer::list(orders(), request(query));
        WebSocketResponseObject filled;
        answer.fill(filled);
        filled.setStatus("ok");
        EXPECT_EQ(filled.toJsonString(), answer.toJsonString()) << query;
    }
    const DataAnswer element = DataAnswer::element(DataRow(json(ORDERS[0])), request("$fields=price"));
    WebSocketResponseObject filled;
    element.fill(filled);
    EXPECT_EQ(filled.getDataAsJsonObject()->size(), 2u);
    WebSocketResponseObject refused;
    DataAnswer::refusal(404, "not here").fill(refused);
    EXPECT_EQ(refused.getStatus(), "error");
    EXPECT_EQ(refused.getMessage(), "not here");
}

TEST(DataAnswerTest, RendersOnlyWhatTheAnswerNeeds)
{
    int count = 0;
    std::vector<DataRow> rows;
    for (int i = 0; i < 100; ++i)
        rows.emplace_back(Kesa::Data::XObjectBase::Ptr(
            new CountedElement("00000000-0000-4000-8000-0000000001" + std::to_string(10 + i).substr(0, 2), count)));
    DataAnswer::list(rows, request("$offset=10&$limit=5")).toJsonString();
    EXPECT_EQ(count, 5) << "a page by index";
    count = 0;
    DataAnswer::list(rows, request("$sortby=id&$limit=5")).toJsonString();
    EXPECT_EQ(count, 100) << "an order needs all of them, each once";
}
