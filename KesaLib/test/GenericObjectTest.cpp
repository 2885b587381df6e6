#include <Data/AttributeValuePlain.h>
#include <Data/GenericObject.h>

#include <gtest/gtest.h>

#include <sstream>

using namespace Kesa::Data;

namespace
{

const std::string ID = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";

template <class Action>
std::string refusal(Action action)
{
    try
    {
        action();
    }
    catch (const Poco::InvalidAccessException& exception)
    {
        return exception.message();
    }
    return "no exception";
}

TEST(GenericObjectTest, IsBuiltFromNameIdAndUri)
{
    const XObjectGeneric typed("box", Poco::UUID(ID), Poco::URI("/shop/boxes"), 7);
    const XObjectGeneric texts("box", ID, "/shop/boxes", 7);
    for (const XObjectGeneric& object: {typed, texts})
    {
        EXPECT_EQ(object.getName(), "box");
        EXPECT_EQ(object.getId(), Poco::UUID(ID));
        EXPECT_EQ(object.getUri(), Poco::URI("/shop/boxes"));
        EXPECT_EQ(object.getXObjectId(), 7);
        EXPECT_EQ(object.size(), 3U);
    }
}

TEST(GenericObjectTest, MissingAttributeRaises)
{
    const XObjectGeneric object(7);
    EXPECT_EQ(refusal([&] { object.getName(); }), "Attribute name is not set");
    EXPECT_EQ(refusal([&] { object.getId(); }), "Attribute id is not set");
    EXPECT_EQ(refusal([&] { object.getUri(); }), "Attribute uri is not set");
    EXPECT_FALSE(object.hasValue("name"));
    EXPECT_EQ(object.getValue("name"), nullptr);
    EXPECT_TRUE(object.getAttribute("name").isNull());
}

TEST(GenericObjectTest, IdThatIsATextIsOfTheWrongType)
{
    XObjectGeneric object(7);
    object.setAttribute(
        new Attribute<AttributeValueStringable<std::string>>(7, "id", AttributeValueStringable<std::string>(ID)));
    EXPECT_EQ(refusal([&] { object.getId(); }), "Invalid type for attribute id in AttributeContainer");
    EXPECT_EQ(refusal([&] { object.setId(Poco::UUID(ID)); }), "Invalid type for attribute id in AttributeContainer");
}

TEST(GenericObjectTest, IdAndUriAreSetFromTexts)
{
    XObjectGeneric object(7);
    object.setId(ID);
    object.setUri(std::string("/shop"));
    EXPECT_EQ(object.getAttribute("id")->type(), typeid(Poco::UUID));
    EXPECT_EQ(object.getAttribute("uri")->type(), typeid(Poco::URI));
    EXPECT_EQ(object.getId(), Poco::UUID(ID));
}

TEST(GenericObjectTest, TextThatIsNoIdOrUriIsRefused)
{
    XObjectGeneric object(7);
    EXPECT_EQ(refusal([&] { object.setId(std::string("seven")); }), "Value 'seven' for attribute id is no UUID");
    EXPECT_EQ(refusal([&] { object.setId(ID + "x"); }), "Value '" + ID + "x' for attribute id is no UUID");
    EXPECT_EQ(refusal([&] { object.setUri(std::string("http://a:b:c")); }),
              "Value 'http://a:b:c' for attribute uri is no URI");
    EXPECT_EQ(object.size(), 0U);
}

TEST(GenericObjectTest, JsonIsThatOfTheAttributes)
{
    const XObjectGeneric object("box", ID, "/shop/boxes", 7);
    std::ostringstream out;
    object.toJSON(0)->stringify(out);
    EXPECT_EQ(out.str(), R"({"id":")" + ID + R"(","name":"box","uri":"/shop/boxes"})");
    EXPECT_EQ(object.toJSON({"name"})->size(), 1U);
}

TEST(GenericObjectTest, CopyOfTheMapSharesTheAttributes)
{
    XObjectGeneric object("box", ID, "/shop/boxes", 7);
    const AttributeMap map = object.getAttributes();
    object.setName("crate");
    EXPECT_EQ(map.at("name")->getValueBase()->asGeneric().convert<std::string>(), "crate");
    EXPECT_EQ(object.getAttributesRef().at("name"), map.at("name"));
}

TEST(GenericObjectTest, CopySharesAndBuildingFromTheBaseSeparates)
{
    XObjectGeneric object("box", ID, "/shop/boxes", 7);
    const XObjectGeneric shared(object);
    const XObjectGeneric separate(static_cast<const XObjectBase&>(object));
    object.setName("crate");
    EXPECT_EQ(shared.getName(), "crate");
    EXPECT_EQ(separate.getName(), "box");
    EXPECT_EQ(separate.getXObjectId(), 7);
}

TEST(GenericObjectTest, MoveAndAssignmentTakeEverything)
{
    XObjectGeneric object("box", ID, "/shop/boxes", 7);
    XObjectGeneric moved(std::move(object));
    EXPECT_EQ(moved.getName(), "box");
    XObjectGeneric assigned(1);
    assigned = moved;
    EXPECT_EQ(assigned.getName(), "box");
    EXPECT_EQ(assigned.getXObjectId(), 7);
    XObjectGeneric last(1);
    last = std::move(assigned);
    EXPECT_EQ(last.getXObjectId(), 7);
    EXPECT_EQ(last.size(), 3U);
}

TEST(GenericObjectTest, RemovesAndReleasesAttributes)
{
    XObjectGeneric object("box", ID, "/shop/boxes", 7);
    EXPECT_TRUE(object.removeValue("uri"));
    EXPECT_FALSE(object.removeValue("uri"));
    EXPECT_EQ(object.releaseAttributes().size(), 2U);
    EXPECT_EQ(object.size(), 0U);
}

} // namespace
