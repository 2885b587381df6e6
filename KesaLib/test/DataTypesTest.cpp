// What a program that was built against an earlier header relies on: the types, and the order of the operations in the
// table of a class.

#include <Data/ElementGeneric.h>
#include <Data/MicroServiceInfo.h>

#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

using Kesa::MicroServiceInfo;
using namespace Kesa::Data;

namespace
{

TEST(DataTypesTest, AliasesAreThoseTypes)
{
    EXPECT_TRUE((std::is_same_v<XObjectId, std::int64_t>));
    EXPECT_TRUE((std::is_same_v<decltype(INVALID_XOBJ_ID), const XObjectId>));
    EXPECT_TRUE((std::is_same_v<GenericValue, Poco::Dynamic::Var>));
    EXPECT_TRUE((std::is_same_v<AttributeMap, std::map<std::string, AttributeBase::Ptr>>));
    EXPECT_TRUE((std::is_same_v<ElementCollection, std::vector<ElementBase::Ptr>>));
    EXPECT_TRUE((std::is_same_v<XObjectGeneric, GenericObject<XObjectBase>>));
    EXPECT_TRUE((std::is_same_v<XObjectGeneric::this_type, XObjectGeneric>));
}

template <class T>
constexpr bool isShared = std::is_same_v<typename T::Ptr, Poco::SharedPtr<T>>;

TEST(DataTypesTest, PointersAreSharedOnesOfTheClass)
{
    EXPECT_TRUE(isShared<XObjectBase> && isShared<ServiceBase> && isShared<ResourceBase> && isShared<ElementBase>);
    EXPECT_TRUE(isShared<AttributeBase> && isShared<XObjectGeneric> && isShared<ElementGeneric>);
    EXPECT_TRUE(isShared<MicroServiceInfo>);
}

TEST(DataTypesTest, EntriesMoveWithoutFailingSoThatVectorsMoveThem)
{
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<MicroServiceInfo>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<MicroServiceInfo>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<ElementGeneric>);
}

TEST(DataTypesTest, ValuesAreBuiltOnlyByDerivedClasses)
{
    typedef AttributeValue<long, AttributeValueBase> Number;
    EXPECT_FALSE((std::is_constructible_v<Number, long>));
    EXPECT_TRUE((std::is_constructible_v<AttributeValuePlain<long>, long>));
    EXPECT_TRUE((std::is_copy_constructible_v<AttributeValuePlain<long>>));
}

#if defined(__x86_64__) && defined(__GXX_ABI_VERSION)

/// The position of a virtual operation in the table of its class, behind the two entries of the destructor.
template <class Operation>
std::size_t position(Operation operation)
{
    std::size_t offset = 0;
    std::memcpy(&offset, &operation, sizeof offset);
    return (offset - 1) / sizeof(void*) - 2;
}

template <class... Operations>
void expectOrder(std::size_t first, Operations... operations)
{
    for (const std::size_t found: {position(operations)...})
        EXPECT_EQ(found, first++);
}

typedef Poco::JSON::Object::Ptr Json;

TEST(TableOfOperationsTest, ObjectsHaveTheirOrder)
{
    typedef XObjectBase X;
    expectOrder(0, &X::getAttributes, &X::getAttribute, &X::hasValue, &X::size, &X::getValue, &X::getName, &X::getId,
                &X::getUri, static_cast<Json (X::*)(int) const>(&X::toJSON),
                static_cast<Json (X::*)(const std::vector<std::string>&) const>(&X::toJSON), &X::operator<,
                &X::operator>, &X::operator==, &X::operator!=);
}

TEST(TableOfOperationsTest, ServicesAddTheirs)
{
    typedef ServiceBase S;
    expectOrder(14, &S::getHost, &S::getDescription, &S::getApiVersions, &S::getRegistryId, &S::getPort, &S::getPorts,
                &S::setRegistryId, &S::getAllPorts, &MicroServiceInfo::getResources);
}

TEST(TableOfOperationsTest, ResourcesAddTheirs)
{
    typedef ResourceBase R;
    expectOrder(14, &R::getDescription, &R::getSpecification, &R::hasElement, &R::getElement, &R::getElements);
}

TEST(TableOfOperationsTest, AttributesHaveTheirOrder)
{
    typedef AttributeBase A;
    expectOrder(0, &A::type, &A::getName, &A::getValueBase, &A::isXObjReference, &A::isArray,
                static_cast<A* (A::*)(XObjectId) const>(&A::copy));
}

TEST(TableOfOperationsTest, ValuesHaveTheirOrder)
{
    typedef AttributeValueBase V;
    expectOrder(0, &V::type, &V::asGeneric, &V::toJSON, &V::isXObjReference, &V::isArray, &V::setValue, &V::compare,
                &AttributeValueStringableBase::toString);
}

#endif

} // namespace
