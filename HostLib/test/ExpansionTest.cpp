#include "Expansion.h"

#include "Shop.h"

#include <Command/RequestBase.h>

#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

using Kesa::Command::RequestBase;
using Kesa::Host::Expansion;
using Poco::JSON::Object;
using testing::HasSubstr;
using testing::Not;

namespace
{

/// Three orders in a ring, each of which names the next.
class ExpansionTest: public testing::Test
{
protected:
    ExpansionTest()
    {
        for (int i = 1; i <= 3; ++i)
            shop.put("orders", i, R"({"price":)" + std::to_string(i) + R"(,"next":")" + url(i % 3 + 1) + R"("})");
    }

    static std::string url(int number) { return "/shop/orders/" + Shop::id(number); }

    Object::Ptr expand(const std::string& text, const std::string& query)
    {
        const RequestBase request(Poco::URI(url(1) + "?$expand=" + query));
        Expansion expansion(shop, request);
        return expansion.expand(*Poco::JSON::Parser().parse(text).extract<Object::Ptr>());
    }
    static std::string text(const Object::Ptr& object)
    {
        std::ostringstream out;
        object->stringify(out);
        return out.str();
    }

    Shop shop;
};

} // namespace

TEST_F(ExpansionTest, FollowsReferencesAsManyLevelsAsAsked)
{
    const std::string reference = R"({"next":")" + url(1) + R"("})";
    EXPECT_EQ(text(expand(reference, "0")), reference);
    const auto one = expand(reference, "1");
    EXPECT_EQ(one->getObject("next")->getValue<int>("price"), 1);
    EXPECT_EQ(one->getObject("next")->getValue<std::string>("next"), url(2));
    const auto three = expand(reference, "3");
    const auto third = three->getObject("next")->getObject("next")->getObject("next");
    EXPECT_EQ(third->getValue<int>("price"), 3);
    EXPECT_EQ(third->getValue<std::string>("next"), url(1)) << "the ring ends at the level";
}

TEST_F(ExpansionTest, FollowsTheNamedMembersOneLevel)
{
    const auto expanded =
        expand(R"({"a":")" + url(1) + R"(","b":")" + url(2) + R"(","uri":")" + url(3) + R"("})", "a,uri,missing");
    EXPECT_EQ(expanded->getObject("a")->getValue<std::string>("next"), url(2));
    EXPECT_EQ(expanded->getValue<std::string>("b"), url(2));
    EXPECT_EQ(expanded->getValue<std::string>("uri"), url(3));
    EXPECT_FALSE(expanded->has("missing"));
}

TEST_F(ExpansionTest, FollowsReferencesInArraysAndObjects)
{
    const auto expanded =
        expand(R"({"list":[")" + url(1) + R"(",5,[")" + url(2) + R"("]],"object":{"deep":")" + url(3) + R"("}})", "1");
    EXPECT_EQ(expanded->getArray("list")->getObject(0)->getValue<int>("price"), 1);
    EXPECT_EQ(expanded->getArray("list")->getElement<int>(1), 5);
    EXPECT_EQ(expanded->getArray("list")->getArray(2)->getObject(0)->getValue<int>("price"), 2);
    EXPECT_EQ(expanded->getObject("object")->getObject("deep")->getValue<int>("price"), 3);
}

TEST_F(ExpansionTest, LeavesWhatIsNoReferenceAsItIs)
{
    for (const std::string value:
         {"", "text", "/", "/shop", "/shop/orders", "/shop/orders/no-element", "/shop/orders/$spec", "//",
          "/shop/nothing/1", "http://127.0.0.1/shop/orders/1", "/shop/orders/%zz"})
    {
        const std::string document = R"({"a":")" + value + R"("})";
        EXPECT_EQ(expand(document, "3")->getValue<std::string>("a"), value);
    }
    EXPECT_EQ(expand(R"({"a":")" + url(1) + R"(?$fields=price"})", "1")->getValue<std::string>("a"),
              url(1) + "?$fields=price");
}

TEST_F(ExpansionTest, KeepsTheStoredElementsAsTheyAre)
{
    const std::string before = text(shop.getElement("shop", "orders", Shop::id(1))->toJSON(0));
    expand(before, "3");
    EXPECT_EQ(text(shop.getElement("shop", "orders", Shop::id(1))->toJSON(0)), before);
}

TEST_F(ExpansionTest, BoundsTheWorkOfOneAnswer)
{
    std::string many = "{\"list\":[";
    for (int i = 0; i < 2 * Expansion::MAX_OBJECTS; ++i)
        many += (i == 0 ? "\"" : ",\"") + url(1) + "\"";
    const auto expanded = expand(many + "]}", "3");
    std::size_t references = 0;
    const std::string result = text(expanded);
    for (std::size_t i = result.find("\"price\":"); i != std::string::npos; i = result.find("\"price\":", i + 1))
        ++references;
    EXPECT_EQ(references, static_cast<std::size_t>(Expansion::MAX_OBJECTS));
}
