#include <Data/ElementGeneric.h>

#include <gtest/gtest.h>

using namespace Kesa::Data;

namespace
{

const std::string ID = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";

TEST(ElementGenericTest, IsBuiltFromNamesAndId)
{
    const ElementGeneric typed("shop", "boxes", "box", Poco::UUID(ID), 7);
    const ElementGeneric texts("shop", "boxes", "box", ID, 7);
    for (const ElementGeneric& element: {typed, texts})
    {
        EXPECT_EQ(element.service(), "shop");
        EXPECT_EQ(element.resource(), "boxes");
        EXPECT_EQ(element.getName(), "box");
        EXPECT_EQ(element.getId(), Poco::UUID(ID));
        EXPECT_EQ(element.getUri().toString(), "/shop/boxes/" + ID);
        EXPECT_EQ(element.getXObjectId(), 7);
    }
}

TEST(ElementGenericTest, TextThatIsNoIdIsRefused)
{
    EXPECT_THROW(ElementGeneric("shop", "boxes", "box", std::string("seven"), 7), Poco::InvalidAccessException);
}

TEST(ElementGenericTest, IsBuiltFromAUri)
{
    const ElementGeneric element(Poco::URI("/shop/boxes/" + ID), "box", 7);
    EXPECT_EQ(element.service(), "shop");
    EXPECT_EQ(element.resource(), "boxes");
    EXPECT_EQ(element.getId(), Poco::UUID(ID));
    EXPECT_EQ(element.getName(), "box");
}

TEST(ElementGenericTest, NamesMayHoldWhatAUriEncodes)
{
    for (const char* name: {"100%", "%41", "a b", "a?b#c", "\xc3\xa4"})
    {
        const ElementGeneric element("shop", name, "box", ID, 7);
        EXPECT_EQ(element.resource(), name);
        EXPECT_EQ(ElementGeneric(element.getUri(), "box", 7).resource(), name);
        EXPECT_EQ(ElementGeneric(Poco::URI(element.getUri().toString()), "box", 7).resource(), name);
    }
}

TEST(ElementGenericTest, SegmentThatOnlyBeginsLikeAnIdIsNone)
{
    EXPECT_FALSE(ElementGeneric(Poco::URI("/shop/boxes/" + ID + "x"), "box", 7).hasValue("id"));
}

TEST(ElementGenericTest, ShortUriLeavesTheRestEmpty)
{
    const ElementGeneric element(Poco::URI("/shop"), "box", 7);
    EXPECT_EQ(element.service(), "shop");
    EXPECT_EQ(element.resource(), "");
    EXPECT_FALSE(element.hasValue("id"));
}

TEST(ElementGenericTest, IsBuiltFromAnotherObject)
{
    XObjectGeneric object("box", ID, "/shop/boxes/" + ID, 7);
    const ElementGeneric fromGeneric(object);
    const ElementGeneric fromBase(static_cast<const XObjectBase&>(object));
    object.setName("crate");
    for (const ElementGeneric& element: {fromGeneric, fromBase})
    {
        EXPECT_EQ(element.service(), "shop");
        EXPECT_EQ(element.resource(), "boxes");
        EXPECT_EQ(element.getName(), "box") << "the attributes are copies";
        EXPECT_EQ(element.getXObjectId(), 7);
    }
}

TEST(ElementGenericTest, TakesOverTheAttributesOfAnObjectThatGoes)
{
    XObjectGeneric object("box", ID, "/shop/boxes/" + ID, 7);
    const AttributeBase::Ptr name = object.getAttribute("name");
    const ElementGeneric element(std::move(object));
    EXPECT_EQ(element.getAttribute("name"), name);
    EXPECT_EQ(element.resource(), "boxes");
    EXPECT_EQ(element.getXObjectId(), 7);
}

TEST(ElementGenericTest, ObjectWithoutAUriLeavesTheNamesEmpty)
{
    const ElementGeneric element{XObjectGeneric(7)};
    EXPECT_EQ(element.service(), "");
    EXPECT_EQ(element.resource(), "");
}

TEST(ElementGenericTest, CopyIsSeparate)
{
    ElementGeneric element("shop", "boxes", "box", ID, 7);
    const ElementGeneric shared(element);
    const ElementGeneric::Ptr copy = element.copy();
    element.setName("crate");
    EXPECT_EQ(shared.getName(), "crate");
    EXPECT_EQ(copy->getName(), "box");
    EXPECT_EQ(copy->service(), "shop");
    EXPECT_EQ(copy->resource(), "boxes");
    EXPECT_EQ(copy->getXObjectId(), 7);
}

TEST(ElementGenericTest, MoveAndAssignmentTakeEverything)
{
    ElementGeneric element("shop", "boxes", "box", ID, 7);
    ElementGeneric moved(std::move(element));
    ElementGeneric assigned(Poco::URI("/a/b"), "other", 1);
    assigned = std::move(moved);
    EXPECT_EQ(assigned.service(), "shop");
    EXPECT_EQ(assigned.getName(), "box");
    EXPECT_EQ(assigned.getXObjectId(), 7);
}

} // namespace
