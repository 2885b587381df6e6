#include <Data/Attribute.h>
#include <Data/AttributeValuePlain.h>
#include <Data/AttributeValueStringable.h>

#include <Poco/UUID.h>

#include <gtest/gtest.h>

using namespace Kesa::Data;

namespace
{

typedef AttributeValueStringable<Poco::UUID> Id;
typedef AttributeValuePlain<long> Number;

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

TEST(AttributeTest, TypeIsThatOfThePlainValue)
{
    const Attribute<Id> attribute(7, "key", Id(Poco::UUID::dns()));
    EXPECT_EQ(attribute.type(), typeid(Poco::UUID));
    EXPECT_EQ(attribute.getName(), "key");
    EXPECT_EQ(attribute.parent(), 7);
    EXPECT_FALSE(attribute.isArray());
    EXPECT_FALSE(attribute.isXObjReference());
}

TEST(AttributeTest, IsEmptyUntilItIsGivenAValue)
{
    Attribute<Number> attribute(7, "key");
    EXPECT_TRUE(attribute.isEmpty());
    EXPECT_EQ(attribute.getValueBase(), nullptr);
    EXPECT_FALSE(attribute.isArray());
    attribute.setValue(5L);
    EXPECT_FALSE(attribute.isEmpty());
    EXPECT_EQ(attribute.getValue(), 5);
}

TEST(AttributeTest, EachWayToSetReplacesTheValue)
{
    Attribute<Number> attribute(7, "key", Number(1));
    const Number value(2);
    attribute.setValue(value);
    EXPECT_EQ(attribute.getAttributeValue(), value);
    attribute.setValue(Number(3));
    EXPECT_EQ(attribute.getValue(), 3);
    const long plain = 4;
    attribute.setValue(plain);
    EXPECT_EQ(attribute.getValue(), 4);
    attribute.setValue(5L);
    EXPECT_EQ(attribute.getValue(), 5);
}

TEST(AttributeTest, CopyIsSeparateAndOfTheGivenParent)
{
    Attribute<Number> attribute(7, "key", Number(1));
    const AttributeBase::Ptr copy = attribute.copy(8);
    attribute.setValue(2L);
    EXPECT_EQ(copy->parent(), 8);
    EXPECT_EQ(copy->getName(), "key");
    EXPECT_EQ(copy->getValueBase()->asGeneric().convert<long>(), 1);
}

TEST(AttributeTest, CopyWithoutAParentKeepsIt)
{
    const Attribute<Number> attribute(7, "key", Number(1));
    const AttributeBase::Ptr copy = attribute.copy();
    EXPECT_EQ(copy->parent(), 7);
}

TEST(AttributeTest, EmptyOneCannotBeCopiedOrRead)
{
    const Attribute<Number> attribute(7, "key");
    EXPECT_EQ(refusal([&] { AttributeBase::Ptr(attribute.copy(8)); }), "attribute key is not set");
    EXPECT_EQ(refusal([&] { AttributeBase::Ptr(attribute.copy()); }), "attribute key is not set");
    EXPECT_EQ(refusal([&] { attribute.getValue(); }), "attribute key is not set");
}

TEST(AttributeTest, MoveTakesTheValue)
{
    Attribute<Number> attribute(7, "key", Number(1));
    const Attribute<Number> moved(std::move(attribute));
    EXPECT_EQ(moved.parent(), 7);
    EXPECT_EQ(moved.getName(), "key");
    EXPECT_EQ(moved.getValue(), 1);
}

} // namespace
