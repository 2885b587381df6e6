#include <Command/ResponseObject.h>

#include <Time/Timestamp.h>

#include <gtest/gtest.h>

using Kesa::Command::ResponseObject;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace
{

Object::Ptr objectWith(const std::string& key, const Poco::Dynamic::Var& value)
{
    Object::Ptr object = new Object;
    object->set(key, value);
    return object;
}

TEST(ResponseObjectTest, ConstantsHaveTheirTexts)
{
    EXPECT_EQ(ResponseObject::FIELD_PAGING, "paging");
    EXPECT_EQ(ResponseObject::FIELD_PAGING_OFFSET_ID, "offsetId");
    EXPECT_EQ(ResponseObject::FIELD_PAGING_OFFSET, "offset");
    EXPECT_EQ(ResponseObject::FIELD_PAGING_LIMIT, "limit");
    EXPECT_EQ(ResponseObject::FIELD_PAGING_TOTAL, "total");
    EXPECT_EQ(ResponseObject::FIELD_PAGING_TOTAL_PAGES, "totalPages");
    EXPECT_EQ(ResponseObject::FIELD_PAGING_PREVIOUS, "previous");
    EXPECT_EQ(ResponseObject::FIELD_PAGING_NEXT, "next");
    EXPECT_EQ(ResponseObject::FIELD_TIMESTAMP, "timestamp");
    EXPECT_EQ(ResponseObject::FIELD_DATA, "data");
    EXPECT_EQ(ResponseObject::FIELD_SERVICE, "service");
}

TEST(ResponseObjectTest, DefaultHoldsNothing)
{
    const ResponseObject response;
    EXPECT_EQ(response.getObject()->size(), 0u);
    EXPECT_FALSE(response.hasData());
    EXPECT_TRUE(response.getPaging().isNull());
    EXPECT_TRUE(response.getDataAsJsonObject().isNull());
    EXPECT_TRUE(response.getDataAsJsonArray().isNull());
}

TEST(ResponseObjectTest, DataIsSharedAndOfOneKind)
{
    const Object::Ptr object = new Object;
    const Array::Ptr array = new Array;
    ResponseObject response(object);
    EXPECT_EQ(response.getDataAsJsonObject(), object);
    EXPECT_TRUE(response.getDataAsJsonArray().isNull());
    response.setData(array);
    EXPECT_EQ(response.getDataAsJsonArray(), array);
    EXPECT_TRUE(response.getDataAsJsonObject().isNull());
    EXPECT_TRUE(response.hasData());
    EXPECT_EQ(ResponseObject(array).getDataAsJsonArray(), array);
}

TEST(ResponseObjectTest, NullDataRemovesTheKey)
{
    ResponseObject response(Object::Ptr(new Object));
    response.setData(Object::Ptr());
    EXPECT_FALSE(response.getObject()->has("data"));
    response.setData(Array::Ptr(new Array));
    response.setData(Array::Ptr());
    EXPECT_FALSE(response.hasData());
    EXPECT_FALSE(ResponseObject(Object::Ptr()).hasData());
}

TEST(ResponseObjectTest, ErrorConstructorMakesAnErrorDocument)
{
    const ResponseObject response(404, "Nothing");
    EXPECT_EQ(response.getStatus(), "error");
    EXPECT_EQ(response.getObject()->getValue<int>("code"), 404);
    EXPECT_EQ(response.getObject()->getValue<std::string>("message"), "Nothing");
    EXPECT_EQ(response.getObject()->getValue<std::string>("type"), "error");
}

TEST(ResponseObjectTest, PagingIsCopied)
{
    ResponseObject response;
    Object::Ptr inner = objectWith("x", 1);
    const Object::Ptr paging = objectWith("inner", inner);
    response.setPaging(paging);
    EXPECT_FALSE(response.getPaging().isNull());
    EXPECT_NE(response.getPaging(), paging);
    inner->set("x", 2);
    EXPECT_EQ(response.getPaging()->getObject("inner")->getValue<int>("x"), 1);
    EXPECT_EQ(response.getPaging(), response.getPaging());
    response.setPaging(Object::Ptr());
    EXPECT_TRUE(response.getPaging().isNull());
    EXPECT_FALSE(response.getObject()->has("paging"));
}

TEST(ResponseObjectTest, DifferentResponsesHaveDifferentPagingBlocks)
{
    const Object::Ptr paging = objectWith("total", 3);
    ResponseObject first;
    ResponseObject second;
    first.setPaging(paging);
    second.setPaging(paging);
    EXPECT_NE(first.getPaging(), second.getPaging());
    const ResponseObject copy(first);
    EXPECT_NE(copy.getPaging(), first.getPaging());
    ResponseObject assigned;
    assigned = first;
    EXPECT_NE(assigned.getPaging(), first.getPaging());
    second.copyObject(&first);
    EXPECT_NE(second.getPaging(), first.getPaging());
    EXPECT_EQ(second.getPaging()->getValue<int>("total"), 3);
}

TEST(ResponseObjectTest, CopyObjectTakesOverTheWholeContent)
{
    ResponseObject source(objectWith("a", 1));
    source.setStatus("ok");
    source.setCustomField("service", "s");
    ResponseObject target(503, "before");
    target.copyObject(&source);
    EXPECT_EQ(target.getDataAsJsonObject(), source.getDataAsJsonObject());
    EXPECT_EQ(target.getStatus(), "ok");
    EXPECT_FALSE(target.getObject()->has("code"));
    source.setStatus("error");
    source.setData(Array::Ptr(new Array));
    EXPECT_EQ(target.getStatus(), "ok");
    EXPECT_FALSE(target.getDataAsJsonObject().isNull());
}

TEST(ResponseObjectTest, CopyObjectOfNothingAndOfItselfChangesNothing)
{
    ResponseObject response(objectWith("a", 1));
    const Object::Ptr data = response.getDataAsJsonObject();
    response.copyObject(nullptr);
    response.copyObject(&response);
    EXPECT_EQ(response.getDataAsJsonObject(), data);
}

TEST(ResponseObjectTest, ErrorStatusDropsDataAndPaging)
{
    ResponseObject response(objectWith("a", 1));
    response.setPaging(objectWith("total", 1));
    response.setErrorStatus(410, "gone");
    EXPECT_FALSE(response.hasData());
    EXPECT_TRUE(response.getPaging().isNull());
}

TEST(ResponseObjectTest, EmptyDataAfterAnErrorStatusStaysInTheErrorDocument)
{
    ResponseObject response;
    response.setErrorStatus(410, "gone");
    response.setData(Object::Ptr(new Object));
    EXPECT_EQ(response.getStatus(), "error");
    EXPECT_TRUE(response.hasData());
}

TEST(ResponseObjectTest, TimeStampIsMillisecondsSinceTheOriginAndIsReplaced)
{
    ResponseObject response;
    const auto before = Kesa::Timestamp::createTimestamp().asMilliseconds();
    response.setTimeStamp();
    const auto first = response.getObject()->get("timestamp");
    EXPECT_TRUE(first.isInteger());
    EXPECT_GE(first.convert<Poco::Int64>(), before);
    response.getObject()->set("timestamp", -5);
    response.setTimeStamp();
    EXPECT_GE(response.getObject()->getValue<Poco::Int64>("timestamp"), before);
    EXPECT_LE(response.getObject()->getValue<Poco::Int64>("timestamp"),
              Kesa::Timestamp::createTimestamp().asMilliseconds());
}

TEST(ResponseObjectTest, CustomFieldIsSetAndRemoved)
{
    ResponseObject response;
    response.setCustomField("extra", 3);
    EXPECT_EQ(response.getObject()->getValue<int>("extra"), 3);
    response.setCustomField("extra", Poco::Dynamic::Var());
    EXPECT_FALSE(response.getObject()->has("extra"));
}

} // namespace
