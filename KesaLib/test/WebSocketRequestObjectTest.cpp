#include <Command/WebSocketRequestObject.h>

#include <Poco/Clock.h>
#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>

#include <gtest/gtest.h>

#include <random>

using Kesa::Command::UrlPath;
using Kesa::Command::WebSocketRequestObject;
using Poco::JSON::Object;

namespace
{

/// What a derived class sees.
class Derived: public WebSocketRequestObject
{
public:
    Derived() = default;
    explicit Derived(const std::string& text): WebSocketRequestObject(text) {}
    using WebSocketRequestObject::copyAndInitFromJsonObject;
    using WebSocketRequestObject::initFromJsonObject;
};

Object::Ptr json(const std::string& text)
{
    return Poco::JSON::Parser().parse(text).extract<Object::Ptr>();
}

const std::string SUBSCRIBE = R"("type":"subscribe","event":"/s/r/e")";

TEST(WebSocketRequestObjectTest, ConstantsHaveTheirTexts)
{
    EXPECT_EQ(WebSocketRequestObject::TYPE_SUBSCRIBE, "subscribe");
    EXPECT_EQ(WebSocketRequestObject::TYPE_UNSUBSCRIBE, "unsubscribe");
    EXPECT_EQ(WebSocketRequestObject::TYPE_DATA, "data");
    EXPECT_EQ(WebSocketRequestObject::FIELD_TYPE, "type");
    EXPECT_EQ(WebSocketRequestObject::FIELD_EVENT, "event");
    EXPECT_EQ(WebSocketRequestObject::FIELD_SUBSCRIPTION_INTERVAL, "interval");
    EXPECT_EQ(WebSocketRequestObject::FIELD_SUBSCRIPTION_UPDATE_LIMIT, "updateLimit");
    EXPECT_EQ(WebSocketRequestObject::FIELD_AUTHORIZATION, "authorization");
    EXPECT_EQ(WebSocketRequestObject::FIELD_AUTOSUBSCRIBE, "autosubscribe");
    EXPECT_EQ(WebSocketRequestObject::FIELD_DATA, "data");
    EXPECT_EQ(WebSocketRequestObject::FIELD_ERROR, "error");
}

TEST(WebSocketRequestObjectTest, ReadsEveryMember)
{
    const WebSocketRequestObject request(
        R"({"type":"subscribe","event":"/s/r?$fields=a&b=c#f","interval":2000,"updateLimit":0,)"
        R"("authorization":"token","autosubscribe":true,"data":{"x":1},"unknown":[1]})");
    EXPECT_TRUE(request.isValid());
    EXPECT_EQ(request.getType(), "subscribe");
    EXPECT_EQ(request.getEvent(), Poco::URI("/s/r?$fields=a&b=c#f"));
    EXPECT_EQ(request.getUri(), request.getEvent());
    EXPECT_EQ(request.getUrlPath().getCharacteristic(), UrlPath::SERVICE_RESOURCE);
    EXPECT_TRUE(request.hasFieldsCriteria());
    EXPECT_TRUE(request.hasAttributeCriteria());
    ASSERT_TRUE(request.hasInterval());
    EXPECT_EQ(request.getInterval(), 2000);
    EXPECT_EQ(request.getIntervalTimeSpan(), 2000000);
    ASSERT_TRUE(request.hasUpdateLimit());
    EXPECT_EQ(request.getUpdateLimit(), 0);
    EXPECT_EQ(request.getUpdateLimitTimeSpan(), 0);
    EXPECT_TRUE(request.hasAuthorization());
    EXPECT_EQ(request.getAuthorization(), "token");
    EXPECT_TRUE(request.isAutosubscribe());
    EXPECT_EQ(request.getJson()->getObject("data")->getValue<int>("x"), 1);
    EXPECT_EQ(request.getProblem(), "");
}

TEST(WebSocketRequestObjectTest, OptionalMembersHaveTheirDefaults)
{
    const WebSocketRequestObject request("{" + SUBSCRIBE + "}");
    EXPECT_TRUE(request.isValid());
    EXPECT_FALSE(request.hasInterval());
    EXPECT_THROW(request.getInterval(), Poco::NullValueException);
    EXPECT_FALSE(request.hasUpdateLimit());
    EXPECT_EQ(request.getUpdateLimit(), 100);
    EXPECT_EQ(request.getUpdateLimitTimeSpan(), 100000);
    EXPECT_FALSE(request.hasAuthorization());
    EXPECT_FALSE(request.isAutosubscribe());
}

class ValidRequests: public testing::TestWithParam<std::string>
{
};

TEST_P(ValidRequests, AreValidFromTextAndFromObject)
{
    EXPECT_TRUE(WebSocketRequestObject(GetParam()).isValid()) << WebSocketRequestObject(GetParam()).getProblem();
    const Object::Ptr object = json(GetParam());
    EXPECT_TRUE(WebSocketRequestObject(object).isValid());
    EXPECT_EQ(WebSocketRequestObject(object).getJson(), object.get());
}

INSTANTIATE_TEST_SUITE_P(
    Table, ValidRequests,
    testing::Values("{" + SUBSCRIBE + "}", " \n{" + SUBSCRIBE + "}\t", R"({"type":"dance","event":"/s"})",
                    R"({"type":"","event":"/s"})", R"({"type":"data","event":"/s","data":{}})",
                    R"({"type":"subscribe","event":"no%zzURL"})", R"({"type":"subscribe","event":"/a/b/c/d"})",
                    R"({"type":"subscribe","event":"/a%00b/.."})", R"({"type":"subscribe","event":"\u0000"})",
                    R"({"type":"subscribe","event":"/s?$limit=x&%zz"})", "{" + SUBSCRIBE + R"(,"interval":1})",
                    "{" + SUBSCRIBE + R"(,"interval":2147483647})", "{" + SUBSCRIBE + R"(,"updateLimit":0})",
                    "{" + SUBSCRIBE + R"(,"updateLimit":2147483647})", "{" + SUBSCRIBE + R"(,"updateLimit":-0})",
                    "{" + SUBSCRIBE + R"(,"autosubscribe":false})", "{" + SUBSCRIBE + R"(,"authorization":""})",
                    "{" + SUBSCRIBE + R"(,"type":"unsubscribe"})", "{" + SUBSCRIBE + R"(,"extra":1.5e3})"));

struct Invalid
{
    std::string text;
    const char* event; ///< what a reply repeats
    const char* problem;
};

std::ostream& operator<<(std::ostream& out, const Invalid& invalid)
{
    return out << invalid.text;
}

class InvalidRequests: public testing::TestWithParam<Invalid>
{
};

TEST_P(InvalidRequests, AreSafeToReadAndTellTheProblem)
{
    const WebSocketRequestObject request(GetParam().text);
    EXPECT_FALSE(request.isValid());
    EXPECT_EQ(request.getEventText(), GetParam().event);
    EXPECT_NE(request.getProblem().find(GetParam().problem), std::string::npos) << request.getProblem();
    const WebSocketRequestObject copy(request);
    EXPECT_EQ(copy.getType(), request.getType());
    EXPECT_EQ(copy.getEvent(), request.getEvent());
    EXPECT_EQ(copy.getJson(), request.getJson());
    EXPECT_EQ(copy.getUrlPath(), request.getUrlPath());
    EXPECT_EQ(copy.isAutosubscribe(), request.isAutosubscribe());
    EXPECT_EQ(copy.hasInterval(), request.hasInterval());
    EXPECT_EQ(copy.getUpdateLimit(), request.getUpdateLimit());
}

const char NO_OBJECT[] = "not one JSON object";

INSTANTIATE_TEST_SUITE_P(NoObject, InvalidRequests,
                         testing::Values(Invalid{"", "", NO_OBJECT}, Invalid{" ", "", NO_OBJECT},
                                         Invalid{"text", "", NO_OBJECT}, Invalid{"[]", "", NO_OBJECT},
                                         Invalid{"null", "", NO_OBJECT}, Invalid{"\"x\"", "", NO_OBJECT},
                                         Invalid{"{", "", NO_OBJECT}, Invalid{"{" + SUBSCRIBE, "", NO_OBJECT},
                                         Invalid{"{" + SUBSCRIBE + "} x", "", NO_OBJECT},
                                         Invalid{"{" + SUBSCRIBE + "}{}", "", NO_OBJECT},
                                         Invalid{"{" + SUBSCRIBE + ",}", "", NO_OBJECT},
                                         Invalid{"{" + SUBSCRIBE + ",\"x\":\"\xFF\"}", "", NO_OBJECT},
                                         Invalid{"\xEF\xBB\xBF{" + SUBSCRIBE + "}", "", NO_OBJECT},
                                         Invalid{std::string("{\0}", 3), "", NO_OBJECT},
                                         Invalid{"{" + SUBSCRIBE + ",\"x\":\"\\ud800\"}", "", NO_OBJECT}));

INSTANTIATE_TEST_SUITE_P(
    Members, InvalidRequests,
    testing::Values(
        Invalid{"{}", "", "no 'type'"}, Invalid{R"({"event":"/s"})", "/s", "no 'type'"},
        Invalid{R"({"type":"subscribe"})", "", "no 'event'"},
        Invalid{R"({"type":"subscribe","event":""})", "", "no 'event'"},
        Invalid{R"({"type":1,"event":"/s"})", "/s", "'type' must be a text, but is 1."},
        Invalid{R"({"type":null,"event":"/s"})", "/s", "'type' must be a text, but is null."},
        Invalid{R"({"type":"subscribe","event":{"a":[]}})", "", R"('event' must be a text, but is {"a":[]}.)"},
        Invalid{R"({"type":"subscribe","event":null})", "", "'event'"},
        Invalid{"{" + SUBSCRIBE + R"(,"authorization":1})", "/s/r/e", "'authorization' must be a text"},
        Invalid{"{" + SUBSCRIBE + R"(,"autosubscribe":1})", "/s/r/e", "'autosubscribe' must be true or false"},
        Invalid{"{" + SUBSCRIBE + R"(,"autosubscribe":"true"})", "/s/r/e", "'autosubscribe'"},
        Invalid{"{" + SUBSCRIBE + R"(,"autosubscribe":null})", "/s/r/e", "'autosubscribe'"},
        Invalid{"{" + SUBSCRIBE + R"(,"data":[1]})", "/s/r/e", "'data' must be an object, but is [1]."},
        Invalid{"{" + SUBSCRIBE + R"(,"data":null})", "/s/r/e", "'data'"},
        Invalid{"{" + SUBSCRIBE + R"(,"data":"x"})", "/s/r/e", "'data'"},
        Invalid{"{" + SUBSCRIBE + R"(,"event":5})", "", "'event'"}));

/// One line for each number that no time is, for both members that hold one.
std::vector<Invalid> badNumbers()
{
    std::vector<Invalid> table;
    for (const std::string member: {"interval", "updateLimit"})
        for (const char* number: {"-1", "1.0", "1.5", "1e3", "true", "\"5\"", "null", "[1]", "{}", "2147483648",
                                  "4294967297", "9223372036854775807", "9223372036854775808", "18446744073709551615",
                                  "18446744073709551616", "184467440737095516160", "-9223372036854775809"})
            table.push_back(Invalid{"{" + SUBSCRIBE + ",\"" + member + "\":" + number + "}", "/s/r/e",
                                    member == "interval"
                                        ? "'interval' must be a whole number of milliseconds from 1 to 2147483647"
                                        : "'updateLimit' must be a whole number of milliseconds from 0 to"});
    table.push_back(Invalid{"{" + SUBSCRIBE + ",\"interval\":0}", "/s/r/e", "from 1 to 2147483647, but is 0."});
    return table;
}

INSTANTIATE_TEST_SUITE_P(Numbers, InvalidRequests, testing::ValuesIn(badNumbers()));

const char BAD_NUMBER[] = "number of the message is malformed or out of range";

INSTANTIATE_TEST_SUITE_P(
    NumbersThatDoNotParse, InvalidRequests,
    testing::Values(Invalid{"{" + SUBSCRIBE + R"(,"interval":1e999})", "/s/r/e", BAD_NUMBER},
                    Invalid{R"({"interval":18446744073709551621,"event":"/s","type":"subscribe"})", "/s", BAD_NUMBER},
                    Invalid{R"({"x":[99999999999999999999999999],"event":"/s-1\"7","type":"subscribe"})", "/s-1\"7",
                            BAD_NUMBER},
                    Invalid{R"({"interval":01,"event":"/s","type":"subscribe"})", "/s", BAD_NUMBER},
                    Invalid{R"({"interval":-18446744073709551616,"event":"/s"})", "/s", BAD_NUMBER}));

TEST(WebSocketRequestObjectTest, NumbersThatDoNotParseLeaveNothingBehind)
{
    const WebSocketRequestObject request("{" + SUBSCRIBE + R"(,"updateLimit":7,"interval":1e999})");
    EXPECT_EQ(request.getJson(), nullptr);
    EXPECT_FALSE(request.hasInterval());
    EXPECT_FALSE(request.hasUpdateLimit());
}

std::string repeated(const std::string& text, std::size_t count)
{
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
        result += text;
    return result;
}

std::string subscribeTo(const std::string& event)
{
    return R"({"type":"subscribe","event":")" + event + "\"}";
}

TEST(WebSocketRequestObjectTest, EventBeyondItsBoundIsRefusedAndRepeated)
{
    const std::string longest = "/s/r?" + std::string(WebSocketRequestObject::MAX_EVENT_LENGTH - 5, 'q');
    EXPECT_TRUE(WebSocketRequestObject(subscribeTo(longest)).isValid());
    for (const std::size_t length: {longest.size() + 1, std::size_t(65536), std::size_t(1000000)})
    {
        const std::string event(length, '/');
        const WebSocketRequestObject request(subscribeTo(event));
        EXPECT_FALSE(request.isValid());
        EXPECT_EQ(request.getProblem(),
                  "'event' must not be longer than 8192 bytes, but has " + std::to_string(length) + ".");
        EXPECT_EQ(request.getEventText(), event);
        EXPECT_TRUE(request.getEvent().empty()) << "it was parsed all the same";
        EXPECT_FALSE(WebSocketRequestObject(json(subscribeTo(event))).isValid());
    }
}

/// `type` and `event` are two of the values, and with their names and texts 24 bytes of the text.
TEST(WebSocketRequestObjectTest, MessageThatHoldsTooMuchToBeKeptIsRefused)
{
    const std::size_t values = WebSocketRequestObject::MAX_VALUES - 2;
    const std::size_t text = WebSocketRequestObject::MAX_TEXT - 24;
    const auto list = [](const std::string& element, std::size_t count)
    { return "[" + repeated(element + ",", count - 1) + element + "]"; };
    const auto isValid = [](const std::string& member)
    {
        const std::string message = "{" + SUBSCRIBE + "," + member + "}";
        const WebSocketRequestObject request(message);
        EXPECT_EQ(request.isValid(), WebSocketRequestObject(json(message)).isValid()) << member.substr(0, 80);
        EXPECT_EQ(request.getProblem().find("200 values, nor more than 16384 bytes") == std::string::npos,
                  request.isValid());
        return request.isValid();
    };
    EXPECT_TRUE(isValid("\"x\":" + list("0", values - 1)));
    EXPECT_FALSE(isValid("\"x\":" + list("0", values)));
    EXPECT_FALSE(isValid("\"x\":" + list("{}", 300000)));
    EXPECT_TRUE(isValid("\"data\":{\"x\":" + list("[[]]", values / 2 - 1) + "}"));
    EXPECT_FALSE(isValid("\"data\":{\"x\":" + list("[[]]", values / 2) + "}"));
    EXPECT_TRUE(isValid("\"authorization\":\"" + std::string(text - 13, 'a') + "\""));
    EXPECT_FALSE(isValid("\"authorization\":\"" + std::string(text - 12, 'a') + "\""));
    EXPECT_TRUE(isValid("\"" + std::string(text, 'a') + "\":1"));
    EXPECT_FALSE(isValid("\"" + std::string(text + 1, 'a') + "\":1"));
}

TEST(WebSocketRequestObjectTest, DataMessagesAndRequestsBuiltInCodeMayBeLarge)
{
    EXPECT_TRUE(WebSocketRequestObject(R"({"type":"data","event":"/s","data":{"x":[0)" + repeated(",0", 300000) + "]}}")
                    .isValid());
    const std::string event = "/s/r?" + std::string(WebSocketRequestObject::MAX_EVENT_LENGTH, 'q');
    const WebSocketRequestObject built("subscribe", event, Poco::Optional<long>(), Poco::Optional<long>(), nullptr,
                                       false);
    EXPECT_TRUE(built.isValid());
    Derived copy;
    copy.copyAndInitFromJsonObject(*built.getJson());
    EXPECT_TRUE(copy.isValid());
}

TEST(WebSocketRequestObjectTest, ControlCharactersOfAnEventAreEncodedInItsUrlAndKeptInItsText)
{
    const WebSocketRequestObject request(subscribeTo(R"(/s/a\nb?x=1\r\n2&y=\u007f#f\t\u0000)"));
    EXPECT_TRUE(request.isValid());
    EXPECT_EQ(request.getEvent().toString(), "/s/a%0Ab?x=1%0D%0A2&y=%7F#f%09%00");
    EXPECT_EQ(request.getUri(), request.getEvent());
    EXPECT_EQ(request.getUrlPath().getResource(), "a\nb");
    EXPECT_EQ(request.getUrlPath().getQueryParameters("x"), std::vector<std::string>{"1\r\n2"});
    EXPECT_EQ(request.getEventText(), std::string("/s/a\nb?x=1\r\n2&y=\x7F#f\t\0", 21));
}

TEST(WebSocketRequestObjectTest, NullObjectIsInvalid)
{
    const WebSocketRequestObject request{Object::Ptr()};
    EXPECT_FALSE(request.isValid());
    EXPECT_EQ(request.getJson(), nullptr);
    EXPECT_EQ(Derived().getJson(), nullptr);
    EXPECT_FALSE(Derived().isValid());
}

TEST(WebSocketRequestObjectTest, EventThatIsNoUrlHasAnInvalidPath)
{
    const WebSocketRequestObject request(R"({"type":"subscribe","event":"/s%zz?$fields=a"})");
    EXPECT_TRUE(request.isValid());
    EXPECT_TRUE(request.getEvent().empty());
    EXPECT_FALSE(request.getUrlPath().isValid());
    EXPECT_FALSE(request.hasAnyCriteria());
    EXPECT_EQ(request.getEventText(), "/s%zz?$fields=a");
}

TEST(WebSocketRequestObjectTest, RequestBuiltInCodeHoldsAllMembersInItsJson)
{
    const std::string authorization = "token";
    const WebSocketRequestObject request("subscribe", "/s/r?a=b", 5L, 6L, &authorization, true);
    EXPECT_TRUE(request.isValid());
    EXPECT_EQ(request.getType(), "subscribe");
    EXPECT_EQ(request.getInterval(), 5);
    EXPECT_EQ(request.getUpdateLimit(), 6);
    EXPECT_EQ(request.getAuthorization(), "token");
    EXPECT_TRUE(request.isAutosubscribe());
    EXPECT_TRUE(request.hasAttributeCriteria());
    ASSERT_NE(request.getJson(), nullptr);
    EXPECT_EQ(request.getJson()->getValue<std::string>("event"), "/s/r?a=b");
    EXPECT_EQ(request.getJson()->size(), 6u);
}

TEST(WebSocketRequestObjectTest, RequestBuiltInCodeNeedsOnlyTypeAndEvent)
{
    const WebSocketRequestObject request("unsubscribe", "/s", Poco::Optional<long>(), Poco::Optional<long>(), nullptr,
                                         false);
    EXPECT_TRUE(request.isValid());
    EXPECT_FALSE(request.hasInterval());
    EXPECT_FALSE(request.hasUpdateLimit());
    EXPECT_FALSE(request.hasAuthorization());
    EXPECT_FALSE(request.isAutosubscribe());
    EXPECT_NE(request.getJson(), nullptr);
}

TEST(WebSocketRequestObjectTest, RequestBuiltInCodeFollowsTheSameRanges)
{
    const Poco::Optional<long> none;
    const auto isValid = [&](const Poco::Optional<long>& interval, const Poco::Optional<long>& limit)
    { return WebSocketRequestObject("subscribe", "/s", interval, limit, nullptr, false).isValid(); };
    EXPECT_TRUE(isValid(1L, 0L));
    EXPECT_TRUE(isValid(2147483647L, 2147483647L));
    EXPECT_FALSE(isValid(0L, none));
    EXPECT_FALSE(isValid(none, -1L));
    EXPECT_FALSE(isValid(2147483648L, none));
    EXPECT_FALSE(isValid(none, 2147483648L));
    EXPECT_FALSE(WebSocketRequestObject("subscribe", "", none, none, nullptr, false).isValid());
}

TEST(WebSocketRequestObjectTest, SetEventReplacesTheEventAlone)
{
    WebSocketRequestObject request(R"({"type":"unsubscribe","event":"/s/r?$limit=3#f"})");
    Poco::URI event = request.getEvent();
    event.setQuery("");
    request.setEvent(event);
    EXPECT_EQ(request.getEvent().toString(), "/s/r#f");
    EXPECT_EQ(request.getEventText(), "/s/r#f");
    EXPECT_EQ(request.getUri().toString(), "/s/r?$limit=3#f");
    EXPECT_TRUE(request.hasPagingCriteria());
}

TEST(WebSocketRequestObjectTest, SettingTheSameEventKeepsTheClientsText)
{
    for (const char* text: {"/s/r r", "/s%zz"})
    {
        WebSocketRequestObject request("unsubscribe", text, Poco::Optional<long>(), Poco::Optional<long>(), nullptr,
                                       false);
        Poco::URI event = request.getEvent();
        event.setQuery("");
        request.setEvent(event);
        EXPECT_EQ(request.getEventText(), text);
    }
}

TEST(WebSocketRequestObjectTest, CopiesShareTheJsonUntilOneGetsItsOwn)
{
    const WebSocketRequestObject original("{" + SUBSCRIBE + R"(,"data":{"list":[{"x":1}]}})");
    const WebSocketRequestObject copy(original);
    EXPECT_EQ(copy.getJson(), original.getJson());
    Derived first;
    Derived second;
    first.copyAndInitFromJsonObject(*original.getJson());
    second.copyAndInitFromJsonObject(*original.getJson());
    EXPECT_TRUE(first.isValid());
    EXPECT_EQ(first.getUrlPath(), original.getUrlPath());
    EXPECT_NE(first.getJson(), original.getJson());
    EXPECT_NE(first.getJson(), second.getJson());
    EXPECT_NE(first.getJson()->getObject("data"), original.getJson()->getObject("data"));
    EXPECT_NE(first.getJson()->getObject("data")->getArray("list")->getObject(0),
              original.getJson()->getObject("data")->getArray("list")->getObject(0));
}

TEST(WebSocketRequestObjectTest, ObjectCanCopyItsOwnJson)
{
    Derived request("{" + SUBSCRIBE + R"(,"interval":3})");
    request.copyAndInitFromJsonObject(*request.getJson());
    EXPECT_TRUE(request.isValid());
    EXPECT_EQ(request.getInterval(), 3);
}

TEST(WebSocketRequestObjectTest, InitialisationReplacesWhatWasThere)
{
    Derived request("{" + SUBSCRIBE + R"(,"interval":3,"autosubscribe":true,"authorization":"a"})");
    const Object::Ptr object = json(R"({"type":"data","event":"/t?x=1"})");
    request.initFromJsonObject(object);
    EXPECT_EQ(request.getJson(), object.get());
    EXPECT_EQ(request.getType(), "data");
    EXPECT_FALSE(request.hasInterval());
    EXPECT_FALSE(request.isAutosubscribe());
    EXPECT_FALSE(request.hasAuthorization());
    EXPECT_EQ(request.getUrlPath().getService(), "t");
    EXPECT_TRUE(request.hasAttributeCriteria());
    request.initFromJsonObject(json("{}"));
    EXPECT_FALSE(request.isValid());
    EXPECT_FALSE(request.getUrlPath().isValid());
}

TEST(WebSocketRequestObjectTest, MovesKeepTheContent)
{
    WebSocketRequestObject original("{" + SUBSCRIBE + "}");
    WebSocketRequestObject moved(std::move(original));
    EXPECT_TRUE(moved.isValid());
    EXPECT_EQ(moved.getUrlPath().getElement(), "e");
    WebSocketRequestObject assigned("");
    assigned = std::move(moved);
    EXPECT_EQ(assigned.getType(), "subscribe");
    EXPECT_NE(assigned.getJson(), nullptr);
}

TEST(WebSocketRequestObjectTest, DeepNestsAreRefusedAtOnce)
{
    for (const std::string bracket: {"[", "{\"a\":"})
    {
        std::string nest;
        for (int i = 0; i < 100000; ++i)
            nest += bracket;
        EXPECT_FALSE(WebSocketRequestObject(nest).isValid());
        EXPECT_FALSE(WebSocketRequestObject("{" + SUBSCRIBE + ",\"x\":" + nest).isValid());
    }
    const std::string closed = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_FALSE(WebSocketRequestObject("{" + SUBSCRIBE + ",\"x\":" + closed + "}").isValid());
}

TEST(WebSocketRequestObjectTest, LongQueriesAreReadInTimeThatGrowsWithTheirLength)
{
    struct Piece
    {
        std::string text;
        bool valid; ///< whether the criteria are, when it fills the query
    };
    const Piece pieces[] = {{"a=b&", false},    {"$fields=a,b,c&", false},
                            {"$q=*a*&", false}, {"%zz&", false},
                            {"$x&", false},     {"=", false},
                            {"%", false},       {"a", true},
                            {",", true},        {"*", true},
                            {"&", true}};
    for (const Piece& piece: pieces)
    {
        std::string event = "/s/r?";
        while (event.size() < 65536)
            event += piece.text;
        const Poco::Clock begin;
        const WebSocketRequestObject request("subscribe", event, Poco::Optional<long>(), Poco::Optional<long>(),
                                             nullptr, false);
        EXPECT_TRUE(request.isValid());
        EXPECT_EQ(request.getUrlPath().getCharacteristic(), UrlPath::SERVICE_RESOURCE);
        EXPECT_EQ(request.areCriteriaValid(), piece.valid) << piece.text;
        EXPECT_LT(begin.elapsed(), 5 * Poco::Clock::resolution()) << piece.text;
    }
}

/// Changes one to four places of `text`.
std::string mutated(std::string text, std::mt19937& random)
{
    static const std::string BYTES("{}[]\",:\\/%$?#&=*.+-eE0123456789\0\xFF\xC3tnu ", 38);
    for (unsigned int count = 1 + random() % 4; count > 0 && !text.empty(); --count)
    {
        const std::size_t place = random() % text.size();
        switch (random() % 4)
        {
        case 0:
            text[place] = BYTES[random() % BYTES.size()];
            break;
        case 1:
            text.erase(place, 1 + random() % 8);
            break;
        case 2:
            text.insert(place, 1 + random() % 3, BYTES[random() % BYTES.size()]);
            break;
        default:
            text.insert(place, text.substr(random() % text.size(), 1 + random() % 16));
        }
    }
    return text;
}

TEST(WebSocketRequestObjectTest, NoBytesMakeItRaise)
{
    std::mt19937 random(20240229);
    const std::string seeds[] = {
        "{" + SUBSCRIBE + R"(,"interval":2147483647,"autosubscribe":true,"data":{"x":[1.5,null]}})",
        R"({"type":"unsubscribe","event":"/s/r?$offset=1&$limit=2&$q=*a%2A*&n=%C3%A4#frag%20"})",
        R"({"type":"data","event":"http://[::1]:443/s/r/$id?$fields=a,b&$sortby=-a&$expand=3"})"};
    int valid = 0;
    int invalid = 0;
    for (int round = 0; round < 20000; ++round)
    {
        const std::string text = mutated(seeds[random() % 3], random);
        const WebSocketRequestObject request(text);
        ++(request.isValid() ? valid : invalid);
        EXPECT_EQ(request.isValid(), request.getProblem().empty());
        EXPECT_TRUE(!request.isValid() || (request.getJson() && !request.getEventText().empty()));
        EXPECT_TRUE(!request.hasInterval() || request.getInterval() > 0);
        request.areCriteriaValid();
    }
    EXPECT_GT(valid, 100);
    EXPECT_GT(invalid, 100);
}

} // namespace
