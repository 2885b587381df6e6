#include <Data/AttributeValuePlain.h>
#include <Data/GenericObject.h>
#include <Data/ResourceBase.h>

#include <gtest/gtest.h>

using namespace Kesa::Data;

namespace
{

XObjectGeneric named(XObjectId id, const std::string& name)
{
    XObjectGeneric object(id);
    object.setName(name);
    return object;
}

void expectOrder(const XObjectBase& smaller, const XObjectBase& greater)
{
    EXPECT_TRUE(smaller < greater);
    EXPECT_TRUE(greater > smaller);
    EXPECT_FALSE(smaller > greater);
    EXPECT_FALSE(smaller == greater);
    EXPECT_TRUE(smaller != greater);
}

TEST(XObjectBaseTest, KeysHaveTheirTexts)
{
    EXPECT_EQ(XObjectBase::KEY_ID, "id");
    EXPECT_EQ(XObjectBase::KEY_URI, "uri");
    EXPECT_EQ(XObjectBase::KEY_NAME, "name");
    EXPECT_EQ(ResourceBase::KEY_DESCRIPTION, "description");
    EXPECT_EQ(INVALID_XOBJ_ID, -1);
}

TEST(XObjectBaseTest, ObjectsAreComparedByTheirNumericIds)
{
    expectOrder(named(1, "b"), named(2, "a"));
    EXPECT_TRUE(named(1, "a") == named(1, "b"));
    EXPECT_FALSE(named(1, "a") != named(1, "b"));
}

TEST(XObjectBaseTest, ObjectsWithoutNumericIdsAreComparedByTheirAttributes)
{
    expectOrder(named(INVALID_XOBJ_ID, "a"), named(INVALID_XOBJ_ID, "b"));
    EXPECT_TRUE(named(INVALID_XOBJ_ID, "a") == named(INVALID_XOBJ_ID, "a"));
    expectOrder(XObjectGeneric(INVALID_XOBJ_ID), named(INVALID_XOBJ_ID, "a"));
    XObjectGeneric empty(INVALID_XOBJ_ID);
    empty.setAttribute(new Attribute<AttributeValueStringable<std::string>>(INVALID_XOBJ_ID, "name"));
    expectOrder(empty, named(INVALID_XOBJ_ID, "a"));
}

} // namespace
