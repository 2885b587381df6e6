#include <Data/ElementGeneric.h>
#include <DataAccess/ServiceDataAccessPoint.h>

#include <gmock/gmock.h>

using namespace Kesa::Data;
using Kesa::Service::ServiceDataAccessPoint;
using Poco::JSON::Object;
using testing::An;
using testing::Matcher;
using testing::Ref;
using testing::Return;
using testing::StrictMock;
using testing::Throw;

typedef ServiceDataAccessPoint::UpdateResult UpdateResult;

namespace
{

const std::string ID = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
const std::string ID_IN_CAPITALS = "6BA7B810-9DAD-11D1-80B4-00C04FD430C8";

/// A store of nothing; each call to an abstract operation is expected by the test.
class Store: public ServiceDataAccessPoint
{
public:
    using ServiceDataAccessPoint::deleteElement;
    using ServiceDataAccessPoint::updateElement;

    MOCK_METHOD(ServiceBase::Ptr, getService, (const std::string&), (override));
    MOCK_METHOD(std::vector<ServiceBase::Ptr>, getServices, (), (override));
    MOCK_METHOD(ResourceBase::Ptr, getResource, (const std::string&, const std::string&), (override));
    MOCK_METHOD(std::vector<ResourceBase::Ptr>, getResources, (const std::string&), (override));
    MOCK_METHOD(ElementBase::Ptr, getElement, (XObjectId), (override));
    MOCK_METHOD(ElementBase::Ptr, getElement, (const Poco::URI&), (override));
    MOCK_METHOD(ElementBase::Ptr, getElement, (const std::string&, const std::string&, const Poco::UUID&), (override));
    MOCK_METHOD(ElementBase::Ptr, getElement, (const std::string&, const std::string&, const std::string&), (override));
    MOCK_METHOD(ElementCollection, getElements, (const std::string&, const std::string&), (override));
    MOCK_METHOD(UpdateResult, insertElement, (const ElementBase&), (override));
    MOCK_METHOD(UpdateResult, insertElement, (const Poco::URI&, const Object::Ptr&), (override));
    MOCK_METHOD(UpdateResult, insertElement, (const std::string&, const std::string&, const Object::Ptr&), (override));
    MOCK_METHOD(UpdateResult, updateElement, (const ElementBase&), (override));
    MOCK_METHOD(UpdateResult, updateElement, (XObjectId, const Object::Ptr&), (override));
    MOCK_METHOD(UpdateResult, updateElement,
                (const std::string&, const std::string&, const std::string&, const Object::Ptr&), (override));
    MOCK_METHOD(UpdateResult, deleteElement, (const ElementBase&), (override));
};

/// What a default gives, beside its outcome.
void expectBare(const UpdateResult& result, UpdateResult::Value value)
{
    EXPECT_EQ(result.value(), value);
    EXPECT_TRUE(result.created.isNull());
    EXPECT_EQ(result.message(), "");
}

class ServiceDataAccessPointTest: public testing::Test
{
protected:
    StrictMock<Store> m_store;
    const Object::Ptr m_object = new Object;
    const ElementBase::Ptr m_element = new ElementGeneric("shop", "boxes", "box", ID, 7);
};

TEST(UpdateResultTest, CarriesOutcomeAndMessageAndNothingCreated)
{
    expectBare(UpdateResult(UpdateResult::NOT_FOUND), UpdateResult::NOT_FOUND);
    const UpdateResult told(UpdateResult::DUPLICATE, "there is one already");
    EXPECT_EQ(told.value(), UpdateResult::DUPLICATE);
    EXPECT_EQ(told.message(), "there is one already");
    EXPECT_TRUE(told.created.isNull());
}

TEST(UpdateResultTest, OutcomesHaveFixedNumbers)
{
    EXPECT_EQ(UpdateResult::OK, 0);
    EXPECT_EQ(UpdateResult::NO_UPDATE, 1);
    EXPECT_EQ(UpdateResult::NOT_FOUND, 2);
    EXPECT_EQ(UpdateResult::DUPLICATE, 3);
    EXPECT_EQ(UpdateResult::INVALID_REQUEST, 4);
    EXPECT_EQ(UpdateResult::INVALID_OBJECT, 5);
    EXPECT_EQ(UpdateResult::PROCESSING_ERROR, 6);
}

TEST(UpdateResultTest, SuccessIsWhereTheStoreIsAsAskedFor)
{
    for (int value = UpdateResult::OK; value <= UpdateResult::PROCESSING_ERROR; ++value)
        EXPECT_EQ(UpdateResult(static_cast<UpdateResult::Value>(value)).success(), value <= UpdateResult::NO_UPDATE)
            << value;
}

TEST_F(ServiceDataAccessPointTest, UpdateByUriTakesTheSegmentsOfItsPath)
{
    EXPECT_CALL(m_store, updateElement("shop", "top shelf", "box", m_object)).WillOnce(Return(UpdateResult::OK));
    expectBare(m_store.updateElement(Poco::URI("/shop/top%20shelf/box?$fields=a"), m_object), UpdateResult::OK);
}

TEST_F(ServiceDataAccessPointTest, UpdateByUriLeavesAMissingElementToTheTextForm)
{
    EXPECT_CALL(m_store, updateElement("shop", "", "", m_object)).WillOnce(Return(UpdateResult::NOT_FOUND));
    expectBare(m_store.updateElement(Poco::URI("/shop"), m_object), UpdateResult::NOT_FOUND);
}

TEST_F(ServiceDataAccessPointTest, UpdateByUuidHandsOnItsCanonicalText)
{
    EXPECT_CALL(m_store, updateElement("shop", "boxes", ID, m_object)).WillOnce(Return(UpdateResult::NO_UPDATE));
    expectBare(m_store.updateElement("shop", "boxes", Poco::UUID(ID_IN_CAPITALS), m_object), UpdateResult::NO_UPDATE);
}

TEST_F(ServiceDataAccessPointTest, DeleteByNumberDeletesTheElementThatIsFound)
{
    EXPECT_CALL(m_store, getElement(XObjectId(7))).WillOnce(Return(m_element));
    EXPECT_CALL(m_store, deleteElement(Ref(*m_element))).WillOnce(Return(UpdateResult::OK));
    expectBare(m_store.deleteElement(XObjectId(7)), UpdateResult::OK);
}

TEST_F(ServiceDataAccessPointTest, DeleteByUriDeletesTheElementThatIsFound)
{
    const Poco::URI uri("/shop/boxes/" + ID);
    EXPECT_CALL(m_store, getElement(uri)).WillOnce(Return(m_element));
    EXPECT_CALL(m_store, deleteElement(Ref(*m_element))).WillOnce(Return(UpdateResult::PROCESSING_ERROR));
    expectBare(m_store.deleteElement(uri), UpdateResult::PROCESSING_ERROR);
}

TEST_F(ServiceDataAccessPointTest, DeleteByUuidOrItsTextDeletesTheElementThatIsFound)
{
    EXPECT_CALL(m_store, getElement("shop", "boxes", Matcher<const Poco::UUID&>(Poco::UUID(ID))))
        .Times(2)
        .WillRepeatedly(Return(m_element));
    EXPECT_CALL(m_store, deleteElement(Ref(*m_element))).Times(2).WillRepeatedly(Return(UpdateResult::OK));
    expectBare(m_store.deleteElement("shop", "boxes", Poco::UUID(ID)), UpdateResult::OK);
    expectBare(m_store.deleteElement("shop", "boxes", ID_IN_CAPITALS), UpdateResult::OK);
}

TEST_F(ServiceDataAccessPointTest, DeleteOfAMissingElementIsNotFoundAndDeletesNothing)
{
    const Poco::URI uri("/shop/boxes/" + ID);
    EXPECT_CALL(m_store, getElement(XObjectId(7))).WillOnce(Return(ElementBase::Ptr()));
    EXPECT_CALL(m_store, getElement(uri)).WillOnce(Return(ElementBase::Ptr()));
    EXPECT_CALL(m_store, getElement("shop", "boxes", An<const Poco::UUID&>()))
        .Times(2)
        .WillRepeatedly(Return(ElementBase::Ptr()));
    expectBare(m_store.deleteElement(XObjectId(7)), UpdateResult::NOT_FOUND);
    expectBare(m_store.deleteElement(uri), UpdateResult::NOT_FOUND);
    expectBare(m_store.deleteElement("shop", "boxes", Poco::UUID(ID)), UpdateResult::NOT_FOUND);
    expectBare(m_store.deleteElement("shop", "boxes", ID), UpdateResult::NOT_FOUND);
}

TEST_F(ServiceDataAccessPointTest, DeleteByATextThatIsNoUuidLooksUpNothing)
{
    for (const std::string text: {"", "box", "6ba7b810-9dad-11d1-80b4", "6ba7b810-9dad-11d1-80b4-00c04fd430cx"})
        expectBare(m_store.deleteElement("shop", "boxes", text), UpdateResult::PROCESSING_ERROR);
}

TEST_F(ServiceDataAccessPointTest, ExceptionsOfTheStorePassThrough)
{
    EXPECT_CALL(m_store, getElement(XObjectId(7))).WillOnce(Throw(Poco::IOException("the disk is gone")));
    EXPECT_THROW(m_store.deleteElement(XObjectId(7)), Poco::IOException);
    EXPECT_CALL(m_store, updateElement("shop", "boxes", ID, m_object)).WillOnce(Throw(Poco::IOException("again")));
    EXPECT_THROW(m_store.updateElement("shop", "boxes", Poco::UUID(ID), m_object), Poco::IOException);
}

} // namespace
