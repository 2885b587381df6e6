#include <Command/WebSocketResponseObject.h>

#include <Poco/JSON/Parser.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <thread>

using namespace Kesa::Command;
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace
{

WebSocketRequestObject subscribe(const std::string& event)
{
    return WebSocketRequestObject("subscribe", event, Poco::Optional<long>(), Poco::Optional<long>(), nullptr, false);
}

Object::Ptr objectWith(const std::string& key, const Var& value)
{
    Object::Ptr object = new Object;
    object->set(key, value);
    return object;
}

/// A notification as a subscription makes it.
WebSocketResponseObject notification(const std::string& event)
{
    WebSocketResponseObject response(subscribe(event));
    response.setStatus("");
    response.setType(WebSocketRequestObject::TYPE_DATA);
    return response;
}

TEST(WebSocketResponseObjectTest, ConstantsHaveTheirTexts)
{
    EXPECT_EQ(WebSocketResponseObject::TYPE_SUBSCRIBE, "subscribe");
    EXPECT_EQ(WebSocketResponseObject::TYPE_UNSUBSCRIBE, "unsubscribe");
    EXPECT_EQ(WebSocketResponseObject::TYPE_DATA, "data");
    EXPECT_EQ(WebSocketResponseObject::TYPE_ERROR, "error");
}

TEST(WebSocketResponseObjectTest, AcknowledgementIsTypeEventAndOk)
{
    EXPECT_EQ(WebSocketResponseObject(subscribe("/s/r?a=b#f")).toJsonString(),
              R"({"event":"/s/r?a=b#f","status":"ok","type":"subscribe"})");
    const WebSocketRequestObject request(
        R"({"type":"unsubscribe","event":"/s","interval":5,"authorization":"x","data":{"a":1}})");
    EXPECT_EQ(WebSocketResponseObject(request).toJsonString(), R"({"event":"/s","status":"ok","type":"unsubscribe"})");
}

TEST(WebSocketResponseObjectTest, AcknowledgementRepeatsAReplacedEvent)
{
    WebSocketRequestObject request = subscribe("/s/r?a=b#f");
    request.setEvent(Poco::URI("/s/r#f"));
    EXPECT_EQ(WebSocketResponseObject(request).getEvent().toString(), "/s/r#f");
    EXPECT_EQ(WebSocketResponseObject(request, WebSocketResponseObject::unableToUnsubscribe, "").getEvent().toString(),
              "/s/r#f");
}

struct StandardError
{
    WebSocketResponseObject::RequestError error;
    int value;
    int code;
};

class StandardErrors: public testing::TestWithParam<StandardError>
{
};

TEST_P(StandardErrors, HaveTheirCodeAndATextOfTheirOwn)
{
    EXPECT_EQ(static_cast<int>(GetParam().error), GetParam().value);
    const WebSocketResponseObject response(subscribe("/s"), GetParam().error, "");
    Object::Ptr document = response.getObject();
    EXPECT_EQ(document->size(), 5u);
    EXPECT_EQ(response.getType(), "error");
    EXPECT_EQ(response.getStatus(), "error");
    EXPECT_EQ(document->getValue<int>("code"), GetParam().code);
    EXPECT_TRUE(document->get("code").isInteger());
    EXPECT_EQ(document->getValue<std::string>("event"), "/s");
    for (int other = 0; other < 6; ++other)
    {
        const auto error = static_cast<WebSocketResponseObject::RequestError>(other);
        EXPECT_EQ(WebSocketResponseObject(subscribe("/s"), error, "").getMessage() == response.getMessage(),
                  error == GetParam().error);
    }
    EXPECT_FALSE(response.getMessage().empty());
    EXPECT_EQ(WebSocketResponseObject(subscribe("/s"), GetParam().error, "Mine").getMessage(), "Mine");
}

INSTANTIATE_TEST_SUITE_P(Table, StandardErrors,
                         testing::Values(StandardError{WebSocketResponseObject::alreadyConnected, 0, 409},
                                         StandardError{WebSocketResponseObject::notARootURL, 1, 400},
                                         StandardError{WebSocketResponseObject::noData, 2, 404},
                                         StandardError{WebSocketResponseObject::badData, 3, 400},
                                         StandardError{WebSocketResponseObject::invalideSubscriptionExpansionLevel, 4,
                                                       403},
                                         StandardError{WebSocketResponseObject::unableToUnsubscribe, 5, 404}));

TEST(WebSocketResponseObjectTest, BadDataTellsWhatWasWrong)
{
    const auto message = [](const std::string& text) {
        return WebSocketResponseObject(WebSocketRequestObject(text), WebSocketResponseObject::badData, "").getMessage();
    };
    EXPECT_EQ(message("no json"), "The message is not one JSON object.");
    EXPECT_EQ(message(R"({"type":"subscribe","event":"/s","interval":0})"),
              "'interval' must be a whole number of milliseconds from 1 to 2147483647, but is 0.");
    EXPECT_EQ(message(R"({"type":"dance","event":"/s"})"),
              "The type 'dance' is unknown; use 'subscribe' or 'unsubscribe'.");
    EXPECT_LT(message("{\"type\":\"" + std::string(100000, 'x') + "\",\"event\":\"/s\"}").size(), 200u);
}

TEST(WebSocketResponseObjectTest, ErrorRepeatsTheRawTextOfTheEvent)
{
    for (const char* event: {"/s/r r\xC3\xA4", "no%zzURL", "/a//b?c"})
    {
        EXPECT_EQ(WebSocketResponseObject(subscribe(event), 404, "x").getObject()->getValue<std::string>("event"),
                  event);
        EXPECT_EQ(WebSocketResponseObject(subscribe(event), WebSocketResponseObject::badData, "")
                      .getObject()
                      ->getValue<std::string>("event"),
                  event);
    }
}

TEST(WebSocketResponseObjectTest, ErrorWithoutAnEventTextHasNoEvent)
{
    for (const char* text: {"garbage", "{}", R"({"type":"subscribe","event":5})", R"({"type":"subscribe","event":""})"})
    {
        const WebSocketResponseObject response(WebSocketRequestObject(text), WebSocketResponseObject::badData, "");
        EXPECT_FALSE(response.getObject()->has("event")) << text;
        EXPECT_EQ(response.getObject()->getValue<int>("code"), 400);
        EXPECT_TRUE(response.getEvent().empty());
        EXPECT_FALSE(response.getMessage().empty());
    }
}

TEST(WebSocketResponseObjectTest, NumericErrorHasTheCallersStatusAndText)
{
    const WebSocketResponseObject response(subscribe("/s"), Poco::UInt16(503), "Full");
    EXPECT_EQ(response.toJsonString(), R"({"code":503,"event":"/s","message":"Full","status":"error","type":"error"})");
    EXPECT_FALSE(WebSocketResponseObject(subscribe("/s"), Poco::UInt16(404), "").getMessage().empty());
}

TEST(WebSocketResponseObjectTest, InvalidRequestCanBeAcknowledgedSafely)
{
    EXPECT_EQ(WebSocketResponseObject(WebSocketRequestObject("")).toJsonString(), R"({"status":"ok"})");
    EXPECT_EQ(WebSocketResponseObject(subscribe("a%zz")).toJsonString(),
              R"({"event":"a%zz","status":"ok","type":"subscribe"})");
}

TEST(WebSocketResponseObjectTest, DataConstructorMakesADataMessage)
{
    Array::Ptr data = new Array;
    data->add(1);
    EXPECT_EQ(WebSocketResponseObject(subscribe("/s"), data).toJsonString(),
              R"({"data":[1],"event":"/s","type":"data"})");
}

TEST(WebSocketResponseObjectTest, NotificationHasNoStatus)
{
    WebSocketResponseObject response = notification("/s/r/e");
    response.setData(objectWith("name", "x"));
    EXPECT_EQ(response.toJsonString(), R"({"data":{"name":"x"},"event":"/s/r/e","type":"data"})");
    EXPECT_EQ(response.getType(), "data");
    response.setPaging(objectWith("total", 1));
    EXPECT_EQ(response.toJsonString(), R"({"data":{"name":"x"},"event":"/s/r/e","paging":{"total":1},"type":"data"})");
    response.resetPagingObject();
    EXPECT_TRUE(response.getPaging().isNull());
    EXPECT_EQ(response.toJsonString(), R"({"data":{"name":"x"},"event":"/s/r/e","type":"data"})");
}

TEST(WebSocketResponseObjectTest, MembersCanBeSetAndRead)
{
    WebSocketResponseObject response;
    EXPECT_EQ(response.toJsonString(), "{}");
    EXPECT_TRUE(response.isValid());
    EXPECT_EQ(response.getTimestamp(), 0);
    EXPECT_TRUE(response.getData().isEmpty());
    response.setMessage("m");
    EXPECT_EQ(response.getMessage(), "m");
    response.setEvent(Poco::URI("/s/r?x=y#z"));
    EXPECT_EQ(response.getEvent().getFragment(), "z");
    response.setTimeStamp();
    EXPECT_EQ(response.getTimestamp(), response.getObject()->getValue<Poco::Int64>("timestamp"));
    response.setError(WebSocketResponseObject::noData, "");
    EXPECT_EQ(response.getObject()->getValue<int>("code"), 404);
}

TEST(WebSocketResponseObjectTest, DataCanBeTakenFromAnotherResponse)
{
    const Object::Ptr object = objectWith("a", 1);
    const Array::Ptr array = new Array;
    WebSocketResponseObject response;
    const ResponseObject withObject(object);
    response.setData(&withObject);
    EXPECT_EQ(response.getDataAsJsonObject(), object);
    EXPECT_EQ(response.getData().extract<Object::Ptr>(), object);
    const ResponseObject withArray(array);
    response.setData(&withArray);
    EXPECT_EQ(response.getDataAsJsonArray(), array);
    const ResponseObject empty;
    response.setData(&empty);
    EXPECT_FALSE(response.hasData());
    response.setData(object);
    response.setData(static_cast<const ResponseObject*>(nullptr));
    EXPECT_FALSE(response.hasData());
}

TEST(WebSocketResponseObjectTest, TextIsReadBack)
{
    WebSocketResponseObject written = notification("/s/r/e");
    written.setData(objectWith("name", "x"));
    WebSocketResponseObject read;
    EXPECT_TRUE(read.fromJsonString(written.toJsonString()));
    EXPECT_TRUE(read.isValid());
    EXPECT_EQ(read.getEvent(), Poco::URI("/s/r/e"));
    EXPECT_EQ(read.getDataAsJsonObject()->getValue<std::string>("name"), "x");
    EXPECT_EQ(read.toJsonString(), written.toJsonString());
}

TEST(WebSocketResponseObjectTest, TextThatIsNoObjectMakesItInvalidAndEmpty)
{
    for (const char* text: {"", "[1]", "{\"a\":", "\xFF"})
    {
        WebSocketResponseObject read(subscribe("/s"));
        EXPECT_FALSE(read.fromJsonString(text));
        EXPECT_FALSE(read.isValid());
        EXPECT_EQ(read.toJsonString(), "{}");
        EXPECT_TRUE(read.fromJsonString("{}"));
        EXPECT_TRUE(read.isValid());
    }
}

TEST(WebSocketResponseObjectTest, TextIsValidJsonWhateverTheDataHolds)
{
    Object::Ptr data = new Object;
    data->set("nan", std::nan(""));
    data->set("infinite", -HUGE_VAL);
    data->set("true", true);
    data->set("broken", std::string("\xFF\x01\"\\\0", 5));
    data->set("utf8", "\xC3\xA4\xF0\x9F\x98\x80");
    data->set("key\n\xFE", Var());
    WebSocketResponseObject response = notification("/s");
    response.setData(data);
    const Object::Ptr read =
        Poco::JSON::Parser().parse(response.toJsonString()).extract<Object::Ptr>()->getObject("data");
    EXPECT_TRUE(read->isNull("nan"));
    EXPECT_TRUE(read->isNull("infinite"));
    EXPECT_TRUE(read->get("true").isBoolean());
    EXPECT_EQ(read->getValue<std::string>("broken"), std::string("\xEF\xBF\xBD\x01\"\\\0", 7));
    EXPECT_EQ(read->getValue<std::string>("utf8"), "\xC3\xA4\xF0\x9F\x98\x80");
    EXPECT_TRUE(read->has("key\n\xEF\xBF\xBD"));
}

TEST(WebSocketResponseObjectTest, SnapshotHidesLaterChangesByTheAuthorOfTheData)
{
    Object::Ptr inner = objectWith("x", 1);
    Object::Ptr element = objectWith("y", 1);
    Array::Ptr list = new Array;
    list->add(element);
    Object::Ptr data = objectWith("inner", inner);
    data->set("list", list);
    WebSocketResponseObject response = notification("/s");
    response.setData(data);
    Object::Ptr document = response.getObject();
    response.takeSnapshot();
    const std::string before = response.toJsonString();
    inner->set("x", 2);
    element->set("y", 2);
    list->add(3);
    data->set("z", 4);
    document->set("event", "/other");
    EXPECT_EQ(response.toJsonString(), before);
    response.setTimeStamp(); // makes the text anew
    EXPECT_EQ(response.getDataAsJsonObject()->getObject("inner")->getValue<int>("x"), 1);
    EXPECT_EQ(response.getDataAsJsonObject()->getArray("list")->size(), 1u);
    EXPECT_EQ(response.getEvent().toString(), "/s");
}

TEST(WebSocketResponseObjectTest, SnapshotCopiesANestedPartThatIsHeldAlone)
{
    Object::Ptr inner = objectWith("x", 1);
    WebSocketResponseObject response = notification("/s");
    Array::Ptr middle = new Array;
    response.setData(objectWith("middle", middle));
    middle->add(inner);
    response.takeSnapshot();
    inner->set("x", 2);
    EXPECT_EQ(response.toJsonString(), R"({"data":{"middle":[{"x":1}]},"event":"/s","type":"data"})");
}

TEST(WebSocketResponseObjectTest, SnapshotKeepsPartsThatNobodyElseHolds)
{
    Object::Ptr data = objectWith("inner", objectWith("x", 1));
    WebSocketResponseObject response = notification("/s");
    response.setData(data);
    response.setPaging(objectWith("total", 1));
    const Object* const dataAddress = data.get();
    const Object* const innerAddress = data->getObject("inner").get();
    const Object* const pagingAddress = response.getPaging().get();
    data = nullptr;
    response.takeSnapshot();
    EXPECT_EQ(response.getDataAsJsonObject().get(), dataAddress);
    EXPECT_EQ(response.getDataAsJsonObject()->getObject("inner").get(), innerAddress);
    EXPECT_EQ(response.getPaging().get(), pagingAddress);
}

TEST(WebSocketResponseObjectTest, SnapshotKeepsPartsHeldByValueAsTheyAre)
{
    Object::Ptr shared = objectWith("x", 1);
    Object byValue;
    byValue.set("shared", shared);
    Array arrayByValue;
    arrayByValue.add(shared);
    Object::Ptr data = objectWith("object", byValue);
    data->set("array", arrayByValue);
    data->set("list", std::vector<Var>{shared});
    Poco::DynamicStruct structure;
    structure.insert("shared", shared);
    data->set("struct", structure);
    WebSocketResponseObject response = notification("/s");
    response.setData(data);
    response.takeSnapshot();
    const Object::Ptr kept = response.getDataAsJsonObject();
    EXPECT_TRUE(kept->get("object").type() == typeid(Object));
    EXPECT_TRUE(kept->get("array").type() == typeid(Array));
    EXPECT_TRUE(kept->get("list").type() == typeid(std::vector<Var>));
    EXPECT_TRUE(kept->get("struct").type() == typeid(Poco::DynamicStruct));
    shared->set("x", 2);
    EXPECT_EQ(response.toJsonString(), R"({"data":{"array":[{"x":1}],"list":[{"x":1}],"object":{"shared":{"x":1}},)"
                                       R"("struct":{"shared":{"x":1}}},"event":"/s","type":"data"})");
}

TEST(WebSocketResponseObjectTest, SnapshotOfANestWithoutEndEnds)
{
    Array::Ptr cycle = new Array;
    cycle->add(cycle);
    WebSocketResponseObject response = notification("/s");
    response.setData(cycle);
    response.takeSnapshot();
    cycle->clear();
    EXPECT_NE(response.toJsonString().find("[[[["), std::string::npos);
}

TEST(WebSocketResponseObjectTest, TextIsSharedOnlyAfterTheSnapshot)
{
    WebSocketResponseObject response = notification("/s");
    Object::Ptr data = objectWith("x", 1);
    response.setData(data);
    EXPECT_NE(response.sharedText(), response.sharedText());
    data->set("x", 2);
    EXPECT_NE(response.sharedText()->find("{\"x\":2}"), std::string::npos);
    response.takeSnapshot();
    EXPECT_EQ(response.sharedText(), response.sharedText());
    EXPECT_EQ(*response.sharedText(), response.toJsonString());
}

/// A snapshot whose text has been made.
WebSocketResponseObject settled()
{
    WebSocketResponseObject response = notification("/s");
    response.setData(objectWith("x", 1));
    response.setPaging(objectWith("total", 1));
    response.takeSnapshot();
    response.sharedText();
    return response;
}

TEST(WebSocketResponseObjectTest, EveryMutatorMakesTheTextAnew)
{
    const ResponseObject other(objectWith("y", 2));
    const std::function<void(WebSocketResponseObject&)> mutators[] = {
        [](auto& r) { r.setStatus("ok"); },
        [](auto& r) { r.setErrorStatus(410, "gone"); },
        [](auto& r) { r.setEvent(Poco::URI("/t")); },
        [](auto& r) { r.setType("error"); },
        [](auto& r) { r.setMessage("m"); },
        [](auto& r) { r.setTimeStamp(); },
        [](auto& r) { r.setPaging(objectWith("total", 2)); },
        [](auto& r) { r.resetPagingObject(); },
        [](auto& r) { r.setCustomField("k", 1); },
        [](auto& r) { r.setCustomField("data", 1); },
        [](auto& r) { r.setData(objectWith("x", 2)); },
        [](auto& r) { r.setData(Array::Ptr(new Array)); },
        [](auto& r) { r.setData(Object::Ptr()); },
        [&](auto& r) { r.setData(&other); },
        [&](auto& r) { r.copyObject(&other); },
        [](auto& r) { r.setError(WebSocketResponseObject::noData, ""); },
        [](auto& r) { r.fromJsonString("{\"a\":1}"); },
        [](auto& r) { r = WebSocketResponseObject(subscribe("/u")); }};
    for (std::size_t i = 0; i < std::size(mutators); ++i)
    {
        WebSocketResponseObject response = settled();
        const std::string before = *response.sharedText();
        mutators[i](response);
        EXPECT_NE(*response.sharedText(), before) << i;
        WebSocketResponseObject fresh;
        fresh.fromJsonString(*response.sharedText());
        EXPECT_EQ(fresh.toJsonString(), *response.sharedText()) << i;
        EXPECT_EQ(fresh.getObject()->size(), response.getObject()->size()) << i;
    }
}

TEST(WebSocketResponseObjectTest, NeighbourWithTheSameEventSharesTheText)
{
    const WebSocketResponseObject loaded = settled();
    WebSocketResponseObject neighbour(subscribe("/s"));
    neighbour.copyObject(&loaded);
    neighbour.setEvent(Poco::URI("/s"));
    EXPECT_EQ(neighbour.sharedText(), loaded.sharedText());
    EXPECT_NE(neighbour.getPaging(), loaded.getPaging());
    EXPECT_EQ(neighbour.getDataAsJsonObject(), loaded.getDataAsJsonObject());
}

TEST(WebSocketResponseObjectTest, NeighbourWithAnotherEventHasItsOwnText)
{
    const WebSocketResponseObject loaded = settled();
    WebSocketResponseObject neighbour(subscribe("/s?x=1"));
    neighbour.copyObject(&loaded);
    neighbour.setEvent(Poco::URI("/s?x=1"));
    EXPECT_EQ(*neighbour.sharedText(), R"({"data":{"x":1},"event":"/s?x=1","paging":{"total":1},"type":"data"})");
    EXPECT_EQ(neighbour.sharedText(), neighbour.sharedText());
    EXPECT_EQ(*loaded.sharedText(), R"({"data":{"x":1},"event":"/s","paging":{"total":1},"type":"data"})");
}

TEST(WebSocketResponseObjectTest, StampedCopyLeavesItsSourceAlone)
{
    const WebSocketResponseObject loaded = settled();
    WebSocketResponseObject stamped(loaded);
    stamped.setTimeStamp();
    EXPECT_FALSE(loaded.getObject()->has("timestamp"));
    EXPECT_NE(stamped.sharedText(), loaded.sharedText());
}

TEST(WebSocketResponseObjectTest, ManyThreadsShareOneText)
{
    WebSocketResponseObject response = notification("/s");
    response.setData(objectWith("x", 1));
    response.takeSnapshot();
    std::vector<std::shared_ptr<const std::string>> texts(8);
    std::vector<std::thread> threads;
    for (auto& text: texts)
        threads.emplace_back(
            [&]
            {
                WebSocketResponseObject neighbour;
                neighbour.copyObject(&response);
                text = response.sharedText();
            });
    for (auto& thread: threads)
        thread.join();
    for (const auto& text: texts)
        EXPECT_EQ(text, texts.front());
}

} // namespace
