#include <Command/StatusObject.h>

#include <gtest/gtest.h>

using Kesa::Command::StatusObject;
using Poco::Net::HTTPResponse;

namespace
{

TEST(StatusObjectTest, ConstantsHaveTheirTexts)
{
    EXPECT_EQ(StatusObject::FIELD_STATUS, "status");
    EXPECT_EQ(StatusObject::FIELD_MESSAGE, "message");
    EXPECT_EQ(StatusObject::FIELD_ERROR_CODE, "code");
    EXPECT_EQ(StatusObject::STATUS_OK, "ok");
    EXPECT_EQ(StatusObject::STATUS_ERROR, "error");
    EXPECT_EQ(StatusObject::STATUS_NONE, "");
}

TEST(StatusObjectTest, AdditionalErrorCodesHaveTheirValues)
{
    EXPECT_EQ(StatusObject::syntax_error, 400);
    EXPECT_EQ(StatusObject::access_denied, 403);
    EXPECT_EQ(StatusObject::subscription_uri_invalid, 404);
    EXPECT_EQ(StatusObject::gone, 410);
    EXPECT_EQ(StatusObject::maximum_number_of_event_subscriptions_reached, 503);
}

TEST(StatusObjectTest, BeginsEmpty)
{
    const StatusObject object;
    EXPECT_EQ(object.getObject()->size(), 0u);
    EXPECT_EQ(object.getStatus(), "");
}

TEST(StatusObjectTest, EmptyStatusRemovesTheKey)
{
    StatusObject object;
    object.setStatus(StatusObject::STATUS_OK);
    EXPECT_EQ(object.getStatus(), "ok");
    EXPECT_TRUE(object.getObject()->has("status"));
    object.setStatus("");
    EXPECT_FALSE(object.getObject()->has("status"));
    object.getObject()->set("status", 5);
    object.setStatus(StatusObject::STATUS_NONE);
    EXPECT_FALSE(object.getObject()->has("status"));
}

void expectError(const StatusObject& object, int code, const std::string& message)
{
    const Poco::JSON::Object::Ptr document = object.getObject();
    EXPECT_EQ(document->size(), 4u);
    EXPECT_EQ(document->getValue<std::string>("type"), "error");
    EXPECT_EQ(document->getValue<std::string>("status"), "error");
    EXPECT_TRUE(document->get("code").isInteger());
    EXPECT_EQ(document->getValue<int>("code"), code);
    EXPECT_EQ(document->getValue<std::string>("message"), message);
}

TEST(StatusObjectTest, ErrorDocumentHoldsTypeStatusCodeAndMessage)
{
    StatusObject object;
    object.setErrorStatus(HTTPResponse::HTTP_NOT_FOUND, "Not here");
    expectError(object, 404, "Not here");
    object.setErrorStatus(StatusObject::gone, "Went away");
    expectError(object, 410, "Went away");
    object.setErrorStatus(499, "Odd");
    expectError(object, 499, "Odd");
}

TEST(StatusObjectTest, MessageIsNeverEmpty)
{
    for (const int code: {400, 403, 404, 410, 503, 500, 777})
    {
        StatusObject object;
        object.setErrorStatus(code, "");
        EXPECT_FALSE(object.getObject()->getValue<std::string>("message").empty()) << code;
    }
}

TEST(StatusObjectTest, ErrorDropsDataAndPaging)
{
    StatusObject object;
    object.getObject()->set("data", 1);
    object.getObject()->set("paging", 1);
    object.getObject()->set("event", "/e");
    object.setErrorStatus(400, "x");
    EXPECT_FALSE(object.getObject()->has("data"));
    EXPECT_FALSE(object.getObject()->has("paging"));
    EXPECT_TRUE(object.getObject()->has("event"));
}

TEST(StatusObjectTest, CopyHasADocumentOfItsOwn)
{
    StatusObject original;
    original.setStatus("ok");
    StatusObject copy(original);
    StatusObject assigned;
    assigned = original;
    original.setStatus("error");
    EXPECT_EQ(copy.getStatus(), "ok");
    EXPECT_EQ(assigned.getStatus(), "ok");
    EXPECT_NE(copy.getObject(), original.getObject());
}

} // namespace
