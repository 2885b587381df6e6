#include <Data/AttributeValuePlain.h>
#include <Data/AttributeValueStringable.h>

#include <Poco/URI.h>
#include <Poco/UUID.h>

#include <gtest/gtest.h>

#include <limits>

using namespace Kesa::Data;

namespace
{

const std::string ID = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
const std::string LATER_ID = "6ba7b811-9dad-11d1-80b4-00c04fd430c8";

typedef AttributeValueStringable<std::string> Text;
typedef AttributeValueStringable<Poco::UUID> Id;
typedef AttributeValueStringable<Poco::URI> Uri;

TEST(AttributeValueTest, KnowsTheTypeOfItsValue)
{
    EXPECT_EQ(AttributeValuePlain<long>(5).type(), typeid(long));
    EXPECT_EQ(AttributeValuePlain<unsigned long>(5).type(), typeid(unsigned long));
    EXPECT_EQ(AttributeValuePlain<double>(5).type(), typeid(double));
    EXPECT_EQ(AttributeValuePlain<bool>(true).type(), typeid(bool));
    EXPECT_EQ(Text("a").type(), typeid(std::string));
    EXPECT_EQ(Id(Poco::UUID(ID)).type(), typeid(Poco::UUID));
    EXPECT_EQ(Uri(Poco::URI("/a")).type(), typeid(Poco::URI));
}

TEST(AttributeValueTest, PlainValueIsGenericInItsOwnType)
{
    EXPECT_EQ(AttributeValuePlain<long>(5).asGeneric().type(), typeid(long));
    EXPECT_EQ(AttributeValuePlain<unsigned long>(5).asGeneric().type(), typeid(unsigned long));
    EXPECT_EQ(AttributeValuePlain<bool>(true).asGeneric().type(), typeid(bool));
    EXPECT_EQ(AttributeValuePlain<double>(2.5).asGeneric().extract<double>(), 2.5);
}

TEST(AttributeValueTest, StringableValueIsGenericAsText)
{
    EXPECT_EQ(Id(Poco::UUID(ID)).asGeneric().extract<std::string>(), ID);
    EXPECT_EQ(Uri(Poco::URI("/a/b?c=d")).asGeneric().extract<std::string>(), "/a/b?c=d");
    EXPECT_EQ(Text("a").asGeneric().extract<std::string>(), "a");
}

TEST(AttributeValueTest, StringableValueHasAText)
{
    EXPECT_EQ(Id(Poco::UUID("6BA7B810-9DAD-11D1-80B4-00C04FD430C8")).toString(), ID);
    EXPECT_EQ(Text("a").toString(), "a");
    std::string text = "before";
    EXPECT_TRUE(Uri(Poco::URI("/a")).convert(text));
    EXPECT_EQ(text, "/a");
}

TEST(AttributeValueTest, JsonOfAnIdIsItsText)
{
    const Poco::Dynamic::Var json = Id(Poco::UUID(ID)).toJSON(0);
    EXPECT_EQ(json.type(), typeid(std::string));
    EXPECT_EQ(json.convert<std::string>(), ID);
}

TEST(AttributeValueTest, JsonOfANumberThatIsNoneIsNull)
{
    EXPECT_TRUE(AttributeValuePlain<double>(std::numeric_limits<double>::quiet_NaN()).toJSON(0).isEmpty());
    EXPECT_TRUE(AttributeValuePlain<double>(std::numeric_limits<double>::infinity()).toJSON(0).isEmpty());
    EXPECT_TRUE(AttributeValuePlain<double>(-std::numeric_limits<double>::infinity()).toJSON(0).isEmpty());
    EXPECT_EQ(AttributeValuePlain<double>(0.5).toJSON(0).extract<double>(), 0.5);
}

TEST(AttributeValueTest, IsNeitherReferenceNorArray)
{
    const AttributeValuePlain<long> number(5);
    EXPECT_FALSE(number.isXObjReference());
    EXPECT_FALSE(number.isArray());
    EXPECT_FALSE(number.isXObjReferenceType());
    EXPECT_FALSE(number.isArrayType());
}

TEST(AttributeValueTest, TakesOverAValueOfItsType)
{
    AttributeValuePlain<long> number(5);
    EXPECT_TRUE(number.setValue(AttributeValuePlain<long>(7)));
    EXPECT_EQ(number.get(), 7);
}

TEST(AttributeValueTest, RefusesAValueOfAnotherType)
{
    AttributeValuePlain<long> number(5);
    EXPECT_FALSE(number.setValue(AttributeValuePlain<unsigned long>(7)));
    EXPECT_FALSE(number.setValue(Text("7")));
    EXPECT_EQ(number.get(), 5);
    Id id{Poco::UUID(ID)};
    EXPECT_FALSE(id.setValue(Text(LATER_ID)));
    EXPECT_EQ(id.toString(), ID);
}

TEST(AttributeValueTest, ComparesValuesOfOneType)
{
    EXPECT_EQ(AttributeValuePlain<long>(9).compare(AttributeValuePlain<long>(10)), -1);
    EXPECT_EQ(AttributeValuePlain<long>(10).compare(AttributeValuePlain<long>(9)), 1);
    EXPECT_EQ(AttributeValuePlain<long>(9).compare(AttributeValuePlain<long>(9)), 0);
    EXPECT_EQ(Uri(Poco::URI("/a")).compare(Uri(Poco::URI("/b"))), -1);
    EXPECT_EQ(Uri(Poco::URI("/b")).compare(Uri(Poco::URI("/a"))), 1);
    EXPECT_EQ(Uri(Poco::URI("/b")).compare(Uri(Poco::URI("/b"))), 0);
}

TEST(AttributeValueTest, OrdersIdsAsTheirTypeDoes)
{
    const Poco::UUID first(ID);
    const Poco::UUID second(LATER_ID);
    EXPECT_EQ(Id(first).compare(Id(second)), first < second ? -1 : 1);
    EXPECT_EQ(Id(second).compare(Id(first)), first < second ? 1 : -1);
    EXPECT_EQ(Id(first).compare(Id(first)), 0);
}

TEST(AttributeValueTest, ComparesAnIdWithATextThroughTheirTexts)
{
    const Id id{Poco::UUID(ID)};
    EXPECT_EQ(id.compare(Text(ID)), 0);
    EXPECT_EQ(id.compare(Text(LATER_ID)), -1);
    EXPECT_EQ(Text(LATER_ID).compare(id), 1);
}

TEST(AttributeValueTest, ComparesOtherTypesAsTexts)
{
    EXPECT_EQ(AttributeValuePlain<long>(10).compare(AttributeValuePlain<double>(9.5)), -1)
        << "10 is before 9.5 as text";
    EXPECT_EQ(AttributeValuePlain<long>(5).compare(Text("5")), 0);
}

TEST(AttributeValueTest, OperatorsFollowTheValue)
{
    const AttributeValuePlain<long> small(1);
    const AttributeValuePlain<long> large(2);
    EXPECT_TRUE(small < large);
    EXPECT_TRUE(large > small);
    EXPECT_FALSE(small > large);
    EXPECT_TRUE(small == AttributeValuePlain<long>(1));
    EXPECT_TRUE(small == 1L);
    EXPECT_FALSE(small == large);
    const Text value("abc");
    const std::string& text = value;
    EXPECT_EQ(text, "abc");
}

TEST(AttributeValueTest, ConvertsOnlyToItsOwnClass)
{
    const Text text("a");
    const AttributeValueBase& value = text;
    EXPECT_EQ(value.convert<Text>(), &text);
    EXPECT_EQ(value.convert<AttributeValueStringableBase>(), &text);
    EXPECT_EQ(value.convert<Id>(), nullptr);
}

TEST(AttributeValueTest, CanBeSet)
{
    Text text("a");
    const std::string other = "b";
    text.set(other);
    EXPECT_EQ(text.get(), "b");
    text.set(std::string("c"));
    EXPECT_EQ(text.get(), "c");
}

} // namespace
