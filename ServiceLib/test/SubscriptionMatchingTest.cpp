#include "SubscriptionMatching.h"

#include <CapturedLog.h>
#include <Command/Query/AnyValueSearch.h>
#include <Command/Query/FilterParameter.h>
#include <Command/UrlPath.h>
#include <SubscriptionHandling/SubscriptionRequest.h>

#include <Poco/JSON/Parser.h>
#include <Poco/Optional.h>
#include <Poco/URI.h>

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <ostream>
#include <stdexcept>

namespace Kesa::Service
{
namespace
{

using Command::HttpRequest;
using Command::RequestBase;
using Command::UrlPath;
using Command::WebSocketRequestObject;
using Poco::Message;
using Test::CapturedLog;

constexpr auto UNKNOWN_TYPE = static_cast<HttpRequest::RequestType>(HttpRequest::DELETE + 1);
const std::array<HttpRequest::RequestType, 7> ALL_TYPES = {
    HttpRequest::UNSUPPORTED, HttpRequest::GET,    HttpRequest::HEAD, HttpRequest::POST,
    HttpRequest::PUT,         HttpRequest::DELETE, UNKNOWN_TYPE};

/// A URL for each thing that a URL can address.
const std::map<UrlPath::Characteristic, std::string> URLS = {{UrlPath::INVALID, "/shop/orders/1/parts"},
                                                             {UrlPath::ROOT, "/"},
                                                             {UrlPath::ROOT_ID, "/$id"},
                                                             {UrlPath::SERVICE, "/shop"},
                                                             {UrlPath::SERVICE_ID, "/shop/$id"},
                                                             {UrlPath::SERVICE_SPEC, "/shop/$spec"},
                                                             {UrlPath::SERVICE_RIGHTS, "/shop/$rights"},
                                                             {UrlPath::SERVICE_RESOURCE, "/shop/orders"},
                                                             {UrlPath::SERVICE_RESOURCE_ID, "/shop/orders/$id"},
                                                             {UrlPath::SERVICE_RESOURCE_SPEC, "/shop/orders/$spec"},
                                                             {UrlPath::SERVICE_RESOURCE_ELEMENT, "/shop/orders/1"}};

SubscriptionRequest subscriptionTo(const std::string& event)
{
    return SubscriptionRequest(WebSocketRequestObject(WebSocketRequestObject::TYPE_SUBSCRIBE, event,
                                                      Poco::Optional<long>(), Poco::Optional<long>(), nullptr, false));
}

RequestBase changeAt(const std::string& url)
{
    return RequestBase(Poco::URI(url));
}

/// A row of the table of decisions by method and URLs.
struct Row
{
    HttpRequest::RequestType type;
    UrlPath::Characteristic subscription;
    UrlPath::Characteristic request;
    bool withFields;
    bool withoutFields;
    SubscriptionMatchResult result;
};

/// Every row that is not NO; all the rest is.
const std::array<Row, 11> ROWS = {
    {{HttpRequest::POST, UrlPath::SERVICE, UrlPath::SERVICE, true, true, SubscriptionMatchResult::YES},
     {HttpRequest::POST, UrlPath::SERVICE_RESOURCE, UrlPath::SERVICE_RESOURCE, true, true,
      SubscriptionMatchResult::YES},
     {HttpRequest::POST, UrlPath::SERVICE_RESOURCE_ELEMENT, UrlPath::SERVICE_RESOURCE_ELEMENT, true, true,
      SubscriptionMatchResult::CHECK_PARAMETERS},
     {HttpRequest::POST, UrlPath::SERVICE_RESOURCE, UrlPath::SERVICE_RESOURCE_ELEMENT, true, true,
      SubscriptionMatchResult::CHECK_PARAMETERS},
     {HttpRequest::PUT, UrlPath::ROOT, UrlPath::SERVICE, true, true, SubscriptionMatchResult::YES},
     {HttpRequest::PUT, UrlPath::SERVICE_RESOURCE, UrlPath::SERVICE_RESOURCE_ELEMENT, true, true,
      SubscriptionMatchResult::YES},
     {HttpRequest::DELETE, UrlPath::ROOT, UrlPath::SERVICE, true, true, SubscriptionMatchResult::YES},
     {HttpRequest::DELETE, UrlPath::SERVICE_RESOURCE, UrlPath::SERVICE_RESOURCE_ELEMENT, false, true,
      SubscriptionMatchResult::YES},
     {HttpRequest::DELETE, UrlPath::SERVICE_RESOURCE, UrlPath::SERVICE_RESOURCE_ELEMENT, true, false,
      SubscriptionMatchResult::NO},
     {HttpRequest::DELETE, UrlPath::SERVICE_RESOURCE_ELEMENT, UrlPath::SERVICE_RESOURCE_ELEMENT, false, true,
      SubscriptionMatchResult::YES},
     {HttpRequest::DELETE, UrlPath::SERVICE_RESOURCE_ELEMENT, UrlPath::SERVICE_RESOURCE_ELEMENT, true, false,
      SubscriptionMatchResult::CHECK_PARAMETERS}}};

SubscriptionMatchResult expectedMatch(HttpRequest::RequestType type, UrlPath::Characteristic request,
                                      UrlPath::Characteristic subscription, bool hasFields)
{
    for (const Row& row: ROWS)
    {
        if (row.type == type && row.request == request && row.subscription == subscription &&
            (hasFields ? row.withFields : row.withoutFields))
            return row.result;
    }
    return SubscriptionMatchResult::NO;
}

TEST(SubscriptionMatchResultTest, ValuesAreFixed)
{
    EXPECT_EQ(static_cast<int>(SubscriptionMatchResult::YES), 0);
    EXPECT_EQ(static_cast<int>(SubscriptionMatchResult::NO), 1);
    EXPECT_EQ(static_cast<int>(SubscriptionMatchResult::CHECK_PARAMETERS), 2);
}

class CanSubscriptionMatchTest: public testing::TestWithParam<HttpRequest::RequestType>
{
};

TEST_P(CanSubscriptionMatchTest, DecidesByMethodAndUrlsAsTheTableSays)
{
    for (const auto& [request, requestUrl]: URLS)
    {
        ASSERT_EQ(UrlPath(requestUrl).getCharacteristic(), request);
        for (const auto& [subscription, subscriptionUrl]: URLS)
        {
            for (const bool hasFields: {false, true})
                EXPECT_EQ(canSubscriptionMatch(GetParam(), UrlPath(requestUrl), UrlPath(subscriptionUrl), hasFields),
                          expectedMatch(GetParam(), request, subscription, hasFields))
                    << requestUrl << ", subscribed " << subscriptionUrl << ", fields " << hasFields;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Methods, CanSubscriptionMatchTest, testing::ValuesIn(ALL_TYPES));

class CompareFieldsTest: public testing::Test
{
protected:
    static bool compare(const std::string& requestFields, const std::string& subscriptionFields)
    {
        return compareFields(changeAt("/shop/orders/1" + requestFields),
                             subscriptionTo("/shop/orders/1" + subscriptionFields));
    }
};

TEST_F(CompareFieldsTest, IsTrueWhenTheTwoShareAtLeastOneName)
{
    EXPECT_TRUE(compare("?$fields=name", "?$fields=name"));
    EXPECT_TRUE(compare("?$fields=price,name", "?$fields=state,name"));
    EXPECT_FALSE(compare("?$fields=price", "?$fields=name"));
}

TEST_F(CompareFieldsTest, ComparesWholeNamesAndTheirLetterCase)
{
    EXPECT_FALSE(compare("?$fields=names", "?$fields=name"));
    EXPECT_FALSE(compare("?$fields=name", "?$fields=names"));
    EXPECT_FALSE(compare("?$fields=Name", "?$fields=name"));
}

TEST_F(CompareFieldsTest, LooksAtEveryFilterOfBothSides)
{
    EXPECT_TRUE(compare("?$fields=a&$fields=b", "?$fields=c&$fields=b"));
    EXPECT_FALSE(compare("?$fields=a&$fields=b", "?$fields=c&$fields=d"));
}

TEST_F(CompareFieldsTest, FindsNothingInAFilterThatCouldNotBeRead)
{
    EXPECT_FALSE(compare("?$fields=", "?$fields=name"));
    EXPECT_FALSE(compare("?$fields=name", "?$fields="));
}

TEST_F(CompareFieldsTest, SaysThatTheSubscriptionNamesNoFields)
{
    const CapturedLog log;
    EXPECT_FALSE(compare("", ""));
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, "Failed to get criteria from Subscription to compare fields."));
    EXPECT_EQ(log.entries().size(), 1U) << "the subscription comes first";
}

TEST_F(CompareFieldsTest, SaysThatTheRequestNamesNoFields)
{
    const CapturedLog log;
    EXPECT_FALSE(compare("?$sortby=name", "?$fields=name"));
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, "Failed to get criteria from Request to compare fields."));
    EXPECT_EQ(log.entries().size(), 1U);
}

/// Whether a change concerns a subscription, and the one line that says why; an empty text: it says nothing.
struct Decision
{
    const char* name;
    HttpRequest::RequestType type;
    const char* request;
    const char* payload; ///< null: none
    const char* subscription;
    bool applies;
    Message::Priority priority;
    const char* text;
};

std::ostream& operator<<(std::ostream& out, const Decision& decision)
{
    return out << decision.type << " " << decision.request << ", subscribed " << decision.subscription;
}

constexpr auto TRACE = Message::PRIO_TRACE;
constexpr auto DEBUG = Message::PRIO_DEBUG;
constexpr const char* CANNOT_MATCH = "subscriptionApplies:false (subscription can't match)";
constexpr const char* MATCHES = "subscriptionApplies:true (subscription matches)";
constexpr const char* NO_CRITERIA = "subscriptionApplies:true (no criteria)";
constexpr const char* NO_DELETED = "subscriptionApplies:false (DELETEd no relevant fields)";
constexpr const char* NO_FIELDS = "subscriptionApplies:false (not all relevant fields changed)";
constexpr const char* NO_TEXTS = "subscriptionApplies:false (not all relevant freetexts matched)";
constexpr const char* NO_PAIRS = "subscriptionApplies:false (not all relevant attribute pairs matched)";
constexpr const char* TRUE_AT_THE_END = "subscriptionApplies:true";
constexpr const char* NO_FIELDS_PAYLOAD =
    "Missing Request-Payload for $fields check, accept event now and do data compare";
constexpr const char* NO_SEARCH_PAYLOAD =
    "Missing Request-Payload for search criteria check, accept event now and do data compare";

class SubscriptionAppliesTest: public testing::TestWithParam<Decision>
{
};

TEST_P(SubscriptionAppliesTest, DecidesAndSaysWhy)
{
    const Decision& decision = GetParam();
    Poco::JSON::Object::Ptr payload;
    if (decision.payload)
        payload = Poco::JSON::Parser().parse(decision.payload).extract<Poco::JSON::Object::Ptr>();
    const SubscriptionRequest subscription = subscriptionTo(decision.subscription);
    ASSERT_TRUE(subscription.isValid());

    const CapturedLog log;
    EXPECT_EQ(subscriptionApplies(decision.type, changeAt(decision.request), payload.get(), &subscription),
              decision.applies);

    const std::vector<CapturedLog::Entry> entries = log.entries();
    const bool speaks = *decision.text != '\0';
    ASSERT_EQ(entries.size(), speaks ? 2U : 1U);
    EXPECT_EQ(entries[0].priority, TRACE);
    EXPECT_EQ(entries[0].text, "subscriptionApplies testing " + subscription.getUri().toString());
    if (speaks)
    {
        EXPECT_EQ(entries[1].priority, decision.priority);
        EXPECT_EQ(entries[1].text, decision.text);
    }
}

std::string nameOf(const testing::TestParamInfo<Decision>& info)
{
    return info.param.name;
}

constexpr const char* SHOP = "/shop";
constexpr const char* LIST = "/shop/orders";
constexpr const char* ORDER = "/shop/orders/1";
constexpr auto GET = HttpRequest::GET;
constexpr auto POST = HttpRequest::POST;
constexpr auto PUT = HttpRequest::PUT;
constexpr auto DELETE = HttpRequest::DELETE;

INSTANTIATE_TEST_SUITE_P(
    ByUrls, SubscriptionAppliesTest,
    testing::Values(
        Decision{"AGetNever", GET, ORDER, R"({"name":"a"})", ORDER, false, TRACE, CANNOT_MATCH},
        Decision{"AHeadNever", HttpRequest::HEAD, ORDER, nullptr, ORDER, false, TRACE, CANNOT_MATCH},
        Decision{"AChangedServiceItself", POST, SHOP, nullptr, SHOP, true, TRACE, MATCHES},
        Decision{"AChangedListWhateverTheFields", POST, LIST, R"({"b":1})", "/shop/orders?$fields=a", true, TRACE,
                 MATCHES},
        Decision{"AChangedListDoesNotConcernTheService", POST, LIST, nullptr, SHOP, false, TRACE, CANNOT_MATCH},
        Decision{"ANewElementConcernsTheListWhateverItsCriteria", PUT, ORDER, R"({"name":"a"})",
                 "/shop/orders?$fields=b&$q=zzz&name=b", true, TRACE, MATCHES},
        Decision{"ANewElementDoesNotConcernItself", PUT, ORDER, R"({"name":"a"})", ORDER, false, TRACE, CANNOT_MATCH},
        Decision{"ADeletedElementConcernsItself", DELETE, ORDER, nullptr, "/shop/orders/1?$fields=a", true, TRACE,
                 MATCHES},
        Decision{"ADeletedElementConcernsTheList", DELETE, ORDER, nullptr, LIST, true, TRACE, MATCHES},
        Decision{"DeletedFieldsDoNotConcernTheList", DELETE, "/shop/orders/1?$fields=a", nullptr,
                 "/shop/orders?$fields=a", false, TRACE, CANNOT_MATCH},
        Decision{"ADeletedServiceConcernsTheRoot", DELETE, SHOP, nullptr, "/", true, TRACE, MATCHES}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    ByFields, SubscriptionAppliesTest,
    testing::Values(
        Decision{"WithoutCriteria", POST, ORDER, nullptr, ORDER, true, TRACE, NO_CRITERIA},
        Decision{"WithoutCriteriaWhateverThePayload", POST, ORDER, R"({"b":1})", LIST, true, TRACE, NO_CRITERIA},
        Decision{"SortingAlone", POST, ORDER, R"({"b":1})", "/shop/orders?$sortby=a", true, TRACE, TRUE_AT_THE_END},
        Decision{"NoPayload", POST, ORDER, nullptr, "/shop/orders/1?$fields=a", true, DEBUG, NO_FIELDS_PAYLOAD},
        Decision{"AnEmptyPayload", POST, ORDER, "{}", "/shop/orders/1?$fields=a", true, DEBUG, NO_FIELDS_PAYLOAD},
        Decision{"NoPayloadForTheList", POST, ORDER, nullptr, "/shop/orders?$fields=a", true, DEBUG, NO_FIELDS_PAYLOAD},
        Decision{"NoPayloadEndsBeforeTheSearch", POST, ORDER, nullptr, "/shop/orders/1?$fields=a&$q=x", true, DEBUG,
                 NO_FIELDS_PAYLOAD},
        Decision{"AFieldThatChanged", POST, ORDER, R"({"a":1,"b":2})", "/shop/orders/1?$fields=c,a", true, TRACE,
                 TRUE_AT_THE_END},
        Decision{"NoFieldThatChanged", POST, ORDER, R"({"b":2})", "/shop/orders/1?$fields=a", false, TRACE, NO_FIELDS},
        Decision{"NoFieldThatChangedInTheList", POST, ORDER, R"({"b":2})", "/shop/orders?$fields=a", false, TRACE,
                 NO_FIELDS},
        Decision{"FieldsThatCouldNotBeRead", POST, ORDER, R"({"b":2})", "/shop/orders/1?$fields=", true, TRACE,
                 TRUE_AT_THE_END},
        Decision{"DeletedFieldsThatNobodyFollows", DELETE, "/shop/orders/1?$fields=a,b", R"({"c":1})",
                 "/shop/orders/1?$fields=c", false, TRACE, NO_DELETED},
        Decision{"DeletedFieldsOfWhichOneIsFollowed", DELETE, "/shop/orders/1?$fields=a,b", nullptr,
                 "/shop/orders/1?$fields=b,c", true, TRACE, TRUE_AT_THE_END},
        Decision{"DeletedFieldsNeedNoPayload", DELETE, "/shop/orders/1?$fields=a", R"({"z":1})",
                 "/shop/orders/1?$fields=a", true, TRACE, TRUE_AT_THE_END},
        Decision{"DeletedFieldsWithoutCriteria", DELETE, "/shop/orders/1?$fields=a", nullptr, ORDER, true, TRACE,
                 NO_CRITERIA},
        Decision{"DeletedFieldsGoOnToTheSearch", DELETE, "/shop/orders/1?$fields=a", nullptr,
                 "/shop/orders/1?$fields=a&$q=x", true, DEBUG, NO_SEARCH_PAYLOAD}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    BySearch, SubscriptionAppliesTest,
    testing::Values(Decision{"NoPayload", POST, ORDER, nullptr, "/shop/orders/1?$q=x", true, DEBUG, NO_SEARCH_PAYLOAD},
                    Decision{"AnEmptyPayload", POST, ORDER, "{}", "/shop/orders/1?name=x", true, DEBUG,
                             NO_SEARCH_PAYLOAD},
                    Decision{"NoPayloadOfADelete", DELETE, "/shop/orders/1?$fields=a", nullptr, "/shop/orders/1?$q=x",
                             true, DEBUG, NO_SEARCH_PAYLOAD},
                    Decision{"AFreetextThatIsThere", POST, ORDER, R"({"name":"an axe"})", "/shop/orders/1?$q=axe", true,
                             TRACE, TRUE_AT_THE_END},
                    Decision{"AFreetextThatIsNot", POST, ORDER, R"({"name":"a saw"})", "/shop/orders/1?$q=axe", false,
                             TRACE, NO_TEXTS},
                    Decision{"AFreetextThatIsNotInTheList", POST, ORDER, R"({"name":"a saw"})", "/shop/orders?$q=axe",
                             false, TRACE, NO_TEXTS},
                    Decision{"OneOfTwoFreetexts", POST, ORDER, R"({"name":"an axe"})", "/shop/orders/1?$q=axe&$q=saw",
                             false, TRACE, NO_TEXTS},
                    Decision{"APairThatMatches", POST, ORDER, R"({"name":"axe"})", "/shop/orders/1?name=axe", true,
                             TRACE, TRUE_AT_THE_END},
                    Decision{"APairThatDoesNot", POST, ORDER, R"({"name":"saw"})", "/shop/orders/1?name=axe", false,
                             TRACE, NO_PAIRS},
                    Decision{"APairThatDoesNotInTheListSaysNothing", POST, ORDER, R"({"name":"saw"})",
                             "/shop/orders?name=axe", true, TRACE, ""},
                    Decision{"FreetextsComeBeforePairs", POST, ORDER, R"({"name":"saw"})",
                             "/shop/orders?$q=axe&name=axe", false, TRACE, NO_TEXTS},
                    Decision{"FieldsComeBeforeTheSearch", POST, ORDER, R"({"name":"saw"})",
                             "/shop/orders/1?$fields=a&$q=axe", false, TRACE, NO_FIELDS},
                    Decision{"FieldsAndSearchFit", POST, ORDER, R"({"name":"axe"})",
                             "/shop/orders/1?$fields=name&$q=axe&name=axe", true, TRACE, TRUE_AT_THE_END},
                    Decision{"ADeleteWithAPayloadIsSearched", DELETE, "/shop/orders/1?$fields=name",
                             R"({"name":"saw"})", "/shop/orders/1?$q=axe", false, TRACE, NO_TEXTS}),
    nameOf);

TEST(SubscriptionAppliesOddTest, ANullSubscriptionIsNeverConcerned)
{
    const CapturedLog log;
    EXPECT_FALSE(subscriptionApplies(HttpRequest::POST, changeAt(ORDER), nullptr, nullptr));
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR,
                             "SubscriptionManager::subscriptionApplies - failed because subscription is invalid"));
    EXPECT_EQ(log.entries().size(), 1U);
}

TEST(SubscriptionAppliesOddTest, FieldCriteriaWithoutAFilterPass)
{
    SubscriptionRequest subscription = subscriptionTo("/shop/orders/1?$fields=a");
    subscription.renderCriteria[RequestBase::criteriaKey<Command::FilterParameter>()].clear();
    ASSERT_TRUE(subscription.hasFieldsCriteria());
    Poco::JSON::Object payload;
    payload.set("b", 1);
    EXPECT_TRUE(subscriptionApplies(HttpRequest::POST, changeAt(ORDER), &payload, &subscription));
    EXPECT_FALSE(
        subscriptionApplies(HttpRequest::DELETE, changeAt("/shop/orders/1?$fields=b"), &payload, &subscription));
}

TEST(SubscriptionAppliesOddTest, AnExceptionOfTheCriteriaCostsThisSubscriptionTheUpdateAndNothingElse)
{
    struct Raising: Command::AnyValueSearch
    {
        Raising(): AnyValueSearch("x") {}
        bool matchImpl(const Poco::Dynamic::Var&, int) const override { throw std::runtime_error("broken"); }
        using AnyValueSearch::matchImpl;
    };
    SubscriptionRequest subscription = subscriptionTo(ORDER);
    subscription.searchCriteria[RequestBase::criteriaKey<Command::AnyValueSearch>()].push_back(new Raising);
    Poco::JSON::Object payload;
    payload.set("b", 1);
    const CapturedLog log;
    EXPECT_FALSE(subscriptionApplies(HttpRequest::POST, changeAt(ORDER), &payload, &subscription));
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, "Subscription--Update failed due to unexpected error."));
}

TEST(SubscriptionAppliesOddTest, NoTraceLineIsBuiltBelowTheThreshold)
{
    const SubscriptionRequest subscription = subscriptionTo("/shop/orders/1?$fields=a");
    const CapturedLog log(Message::PRIO_DEBUG);
    EXPECT_TRUE(subscriptionApplies(HttpRequest::POST, changeAt(ORDER), nullptr, &subscription));
    ASSERT_EQ(log.entries().size(), 1U);
    EXPECT_EQ(log.entries()[0].text, NO_FIELDS_PAYLOAD);
}

} // namespace
} // namespace Kesa::Service
