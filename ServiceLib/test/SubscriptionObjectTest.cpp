#include "Delivery.h"
#include "OnChangeSubscriptionObject.h"
#include "PeriodicSubscriptionObject.h"

#include <CapturedLog.h>
#include <Command/Query/Paging.h>

#include <Poco/Exception.h>
#include <Poco/Net/NetException.h>

#include <gtest/gtest.h>

#include <tuple>

using namespace Kesa;
using namespace Kesa::Service;
using namespace Kesa::Test;
using Command::Paging;
using Command::WebSocketRequestObject;
using Command::WebSocketResponseObject;
using Poco::Message;

namespace
{

/// The base class alone: it decides nothing by itself.
class PlainSubscription: public SubscriptionObject
{
public:
    PlainSubscription(const Net::WebSocketProxy& socket, const WebSocketRequestObject& request)
        : SubscriptionObject(socket, request)
    {
    }
    using SubscriptionObject::adopt;
    using SubscriptionObject::getLastNotificationData;
    using SubscriptionObject::isInitialized;
    using SubscriptionObject::isOutdated;
    using SubscriptionObject::loadNotificationData;
    using SubscriptionObject::mayBeOutdated;
    using SubscriptionObject::remainingOf;
    using SubscriptionObject::schedule;
    using SubscriptionObject::send;

    NotificationPtr subscribedDataChanged(const NotificationPtr& payload) override { return payload; }
    uint32_t getIdleTime() const override { return 0; }
    PostUpdateAction tryToSendUpdate() override { return REMOVE_FROM_SCHEDULE; }

    mutable int newSchedulers = 0;

protected:
    bool canSendNow() const override { return true; }
    void handleNewScheduler() const override { ++newSchedulers; }
};

class SubscriptionObjectTest: public testing::Test
{
protected:
    Poco::SharedPtr<PlainSubscription> subscribe(const std::string& event, const std::string& members = "")
    {
        Poco::SharedPtr<PlainSubscription> result =
            new PlainSubscription(connection.proxy(), subscribeTo(event, members));
        result->registerDataSource(source);
        return result;
    }

    LoopbackConnection connection;
    ScriptedSource source{R"({"id":"1","amount":7})"};
};

} // namespace

TEST_F(SubscriptionObjectTest, ValuesOfItsEnumerationsAreFixed)
{
    EXPECT_EQ(SubscriptionObject::KEEP_SCHEDULED, 0);
    EXPECT_EQ(SubscriptionObject::REMOVE_FROM_SCHEDULE, 1);
    EXPECT_EQ(SubscriptionObject::NONE, 0);
    EXPECT_EQ(SubscriptionObject::REMOVE, 1);
    EXPECT_EQ(SubscriptionObject::NEXT_LINK, 2);
    EXPECT_EQ(SubscriptionObject::ONE_PAGE, 3);
    EXPECT_EQ(PROPERTY_KEY_UUID, "id");
}

TEST_F(SubscriptionObjectTest, IsTheRequestWithTheAddressesOfItsConnection)
{
    auto subscription = subscribe("/shop/orders/1", R"("updateLimit":250)");
    EXPECT_EQ(subscription->getEvent().toString(), "/shop/orders/1");
    EXPECT_EQ(subscription->getUpdateLimit(), 250);
    EXPECT_EQ(subscription->address(), connection.proxy().address());
    EXPECT_EQ(subscription->peerAddress(), connection.proxy().peerAddress());
    EXPECT_TRUE(*subscription->getWebsocket() == connection.proxy());
    EXPECT_FALSE(subscription->isCanceled());
}

TEST_F(SubscriptionObjectTest, WorksOnItsOwnCopyOfTheRequest)
{
    const WebSocketRequestObject request = subscribeTo("/shop/orders/1");
    const PlainSubscription subscription(connection.proxy(), request);
    ASSERT_NE(subscription.getJson(), nullptr);
    EXPECT_NE(subscription.getJson(), request.getJson());
    EXPECT_EQ(subscription.getJson()->getValue<std::string>("event"), "/shop/orders/1");
}

TEST_F(SubscriptionObjectTest, WithoutJsonIsABugOfTheProgram)
{
    const WebSocketRequestObject request{Poco::JSON::Object::Ptr()};
    EXPECT_THROW(PlainSubscription(connection.proxy(), request), Poco::NullPointerException);
    EXPECT_THROW(SubscriptionObject::Create(connection.proxy(), request), Poco::NullPointerException);
}

TEST_F(SubscriptionObjectTest, ReportsTheDefaultUpdateLimitOfARequestWithoutOne)
{
    const std::string line = "New subscription without updateLimit - using default value of 100ms.";
    CapturedLog log;
    auto limited = subscribe("/shop/orders/1", R"("updateLimit":100)");
    EXPECT_EQ(log.count(Message::PRIO_DEBUG), 0U);
    auto unlimited = subscribe("/shop/orders/1");
    EXPECT_EQ(log.count(Message::PRIO_DEBUG, line), 1U);
    EXPECT_FALSE(unlimited->hasUpdateLimit()) << "the line only reports";
}

TEST_F(SubscriptionObjectTest, TheIntervalAloneDecidesItsKind)
{
    const auto kind = [&](const std::string& members)
    {
        const auto created = SubscriptionObject::Create(connection.proxy(), subscribeTo("/shop", members));
        return std::pair(dynamic_cast<const PeriodicSubscriptionObject*>(created.get()) != nullptr,
                         dynamic_cast<const OnChangeSubscriptionObject*>(created.get()) != nullptr);
    };
    EXPECT_EQ(kind(""), std::pair(false, true));
    EXPECT_EQ(kind(R"("updateLimit":500)"), std::pair(false, true));
    EXPECT_EQ(kind(R"("interval":1000)"), std::pair(true, false));
    EXPECT_EQ(kind(R"("interval":1000,"updateLimit":500)"), std::pair(true, false));
}

TEST_F(SubscriptionObjectTest, StartsWithNothingSent)
{
    const PlainSubscription subscription(connection.proxy(), subscribeTo("/shop/orders/1"));
    EXPECT_EQ(subscription.getDataSource(), nullptr);
    EXPECT_EQ(subscription.getLastUpdate(), Poco::Clock(0));
    EXPECT_TRUE(subscription.getLastNotificationData().isNull());
    EXPECT_FALSE(subscription.isInitialized());
}

TEST_F(SubscriptionObjectTest, FirstNotificationIsADataMessageWithoutStatus)
{
    auto subscription = subscribe("/shop/orders/1");
    const TestClock clock;
    subscription->initialUpdate();
    const auto message = connection.nextMessage();
    EXPECT_EQ(message->size(), 3U);
    EXPECT_EQ(message->getValue<std::string>("type"), "data");
    EXPECT_EQ(message->getValue<std::string>("event"), "/shop/orders/1");
    EXPECT_EQ(message->getObject("data")->getValue<int>("amount"), 7);
    EXPECT_TRUE(subscription->isInitialized());
    EXPECT_EQ(subscription->getLastUpdate(), Util::now());
    EXPECT_EQ(subscription->getLastNotificationData()->getDataAsJsonObject()->getValue<int>("amount"), 7);
}

TEST_F(SubscriptionObjectTest, TellsEachStageOfTheFirstNotification)
{
    auto subscription = subscribe("/shop/orders/1", R"("updateLimit":0)");
    CapturedLog log;
    subscription->initialUpdate();
    const auto entries = log.entries();
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].priority, Message::PRIO_TRACE);
    EXPECT_EQ(entries[0].text, "Loading data for subscription '/shop/orders/1'");
    EXPECT_EQ(entries[1].priority, Message::PRIO_DEBUG);
    EXPECT_EQ(entries[1].text, "initialUpdate: send initial update for subscription /shop/orders/1");
    EXPECT_EQ(entries[2].priority, Message::PRIO_TRACE);
    EXPECT_EQ(entries[2].text, "Sending subscription notification for event '/shop/orders/1' to " +
                                   connection.proxy().peerAddress().toString());
}

TEST_F(SubscriptionObjectTest, FirstNotificationIsSentOnce)
{
    auto subscription = subscribe("/shop/orders/1");
    subscription->initialUpdate();
    subscription->initialUpdate();
    EXPECT_EQ(source.loads(), 1);
    connection.nextMessage();
    EXPECT_FALSE(connection.hasMessage());
}

TEST_F(SubscriptionObjectTest, NoDataSourceIsAnErrorAndSendsNothing)
{
    PlainSubscription subscription(connection.proxy(), subscribeTo("/shop/orders/1"));
    CapturedLog log;
    subscription.initialUpdate();
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "Failed to retrieve subscription data - no data source defined"), 1U);
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "SubscriptionObject: Failed to send invalid notification data!"), 1U);
    EXPECT_FALSE(log.containsPart(Message::PRIO_TRACE, "Loading data"));
    EXPECT_FALSE(connection.hasMessage());
    EXPECT_TRUE(subscription.isInitialized());
}

TEST_F(SubscriptionObjectTest, AFailedFirstLoadLeavesItInitialisedWithNothingSent)
{
    auto subscription = subscribe("/shop/orders/1");
    source.fail();
    CapturedLog log;
    subscription->initialUpdate();
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "Failed to retrieve subscription data for subscription /shop/orders/1"),
              1U);
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "SubscriptionObject: Failed to send invalid notification data!"), 1U);
    EXPECT_TRUE(subscription->isInitialized());
    EXPECT_TRUE(subscription->getLastNotificationData().isNull());
    EXPECT_EQ(subscription->getLastUpdate(), Poco::Clock(0));
    EXPECT_FALSE(connection.hasMessage());
}

TEST_F(SubscriptionObjectTest, AnExceptionOfTheDataSourceGoesToTheCaller)
{
    auto subscription = subscribe("/shop/orders/1");
    source.onLoad([] { throw std::runtime_error("database gone"); });
    EXPECT_THROW(subscription->initialUpdate(), std::runtime_error);
    EXPECT_FALSE(subscription->isInitialized());
    source.onLoad(nullptr);
    subscription->initialUpdate();
    EXPECT_EQ(connection.nextMessage()->getValue<std::string>("type"), "data");
}

TEST_F(SubscriptionObjectTest, LoadsWithoutItsLock)
{
    auto subscription = subscribe("/shop/orders/1");
    bool isFree = false;
    source.onLoad([&] { isFree = runsElsewhere([&] { subscription->getLastUpdate(); }); });
    subscription->initialUpdate();
    EXPECT_TRUE(isFree);
}

TEST_F(SubscriptionObjectTest, DataIsASnapshotOfTheMomentInWhichTheLoadEnds)
{
    struct KeepingSource: ISubscriptionDataSource
    {
        Poco::JSON::Object::Ptr kept = new Poco::JSON::Object;
        bool fetchData(const SubscriptionRequest&, WebSocketResponseObject& response) override
        {
            response.setData(kept);
            return true;
        }
    } keeping;
    keeping.kept->set("amount", 1);
    PlainSubscription subscription(connection.proxy(), subscribeTo("/shop/orders/1"));
    subscription.registerDataSource(keeping);
    const auto first = subscription.loadNotificationData();
    keeping.kept->set("amount", 2);
    EXPECT_EQ(first->getDataAsJsonObject()->getValue<int>("amount"), 1);
    EXPECT_EQ(subscription.loadNotificationData()->getDataAsJsonObject()->getValue<int>("amount"), 2);
}

TEST_F(SubscriptionObjectTest, SendRefusesAnEmptyNotification)
{
    auto subscription = subscribe("/shop/orders/1");
    const TestClock clock;
    subscription->initialUpdate();
    const auto last = subscription->getLastNotificationData();
    const Poco::Clock lastUpdate = subscription->getLastUpdate();
    CapturedLog log;
    EXPECT_FALSE(subscription->send(nullptr));
    EXPECT_EQ(log.entries().size(), 1U);
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "SubscriptionObject: Failed to send invalid notification data!"), 1U);
    EXPECT_EQ(subscription->getLastNotificationData(), last);
    EXPECT_EQ(subscription->getLastUpdate(), lastUpdate);
}

TEST_F(SubscriptionObjectTest, AWriteThatTheConnectionRefusesCountsAsSent)
{
    PlainSubscription subscription(noConnection(), subscribeTo("/shop/orders/1"));
    subscription.registerDataSource(source);
    const auto notification = subscription.loadNotificationData();
    const TestClock clock;
    CapturedLog log;
    EXPECT_TRUE(subscription.send(notification));
    const std::string className = Poco::Net::WebSocketException().className();
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "Failed to send websocketSubscriptionUpdate. " + className), 1U);
    EXPECT_EQ(subscription.getLastNotificationData(), notification);
    EXPECT_EQ(subscription.getLastUpdate(), Util::now());
}

TEST_F(SubscriptionObjectTest, AWriteThatFailsOtherwiseCountsAsSentToo)
{
    auto subscription = subscribe("/shop/orders/1");
    const auto notification = subscription->loadNotificationData();
    connection.breakConnection();
    const TestClock clock;
    CapturedLog log;
    EXPECT_TRUE(subscription->send(notification));
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "Failed to send websocketSubscriptionUpdate. Unknown exception"), 1U);
    EXPECT_EQ(subscription->getLastNotificationData(), notification);
    EXPECT_EQ(subscription->getLastUpdate(), Util::now());
}

TEST_F(SubscriptionObjectTest, SchedulingWithoutASchedulerOnlyWarns)
{
    auto subscription = subscribe("/shop/orders/1");
    CapturedLog log;
    subscription->schedule();
    EXPECT_EQ(log.entries().size(), 1U);
    EXPECT_EQ(
        log.count(Message::PRIO_WARNING, "schedule: scheduler not set, subscription object is not fully initialised"),
        1U);
}

TEST_F(SubscriptionObjectTest, EveryNewSchedulerIsTold)
{
    auto subscription = subscribe("/shop/orders/1");
    subscription->setScheduler(nullptr);
    subscription->setScheduler(nullptr);
    EXPECT_EQ(subscription->newSchedulers, 2);
}

TEST_F(SubscriptionObjectTest, ANeighboursNotificationIsSharedWhereTheEventsAreEqual)
{
    auto subscription = subscribe("/shop/orders/1");
    auto neighbour = subscribe("/shop/orders/1");
    const auto payload = neighbour->loadNotificationData();
    EXPECT_EQ(subscription->adopt(payload), payload);
}

TEST_F(SubscriptionObjectTest, ANeighboursNotificationIsCarriedUnderItsOwnEvent)
{
    auto subscription = subscribe("/shop/orders/1#mine");
    const auto payload = subscribe("/shop/orders/1")->loadNotificationData();
    const auto adopted = subscription->adopt(payload);
    EXPECT_EQ(adopted->getEvent().toString(), "/shop/orders/1#mine");
    EXPECT_EQ(adopted->getDataAsJsonObject(), payload->getDataAsJsonObject());
    EXPECT_EQ(payload->getEvent().toString(), "/shop/orders/1") << "the neighbour's stays as it was";
}

TEST_F(SubscriptionObjectTest, AnEventThatTheDataSourceWroteStaysWithTheLoader)
{
    struct RenamingSource: ISubscriptionDataSource
    {
        bool fetchData(const SubscriptionRequest&, WebSocketResponseObject& response) override
        {
            response.setEvent(Poco::URI("/shop/orders/renamed"));
            return true;
        }
    } renaming;
    PlainSubscription loader(connection.proxy(), subscribeTo("/shop/orders/1"));
    loader.registerDataSource(renaming);
    const auto payload = loader.loadNotificationData();
    EXPECT_EQ(payload->getEvent().toString(), "/shop/orders/renamed");
    EXPECT_EQ(subscribe("/shop/orders/1")->adopt(payload)->getEvent().toString(), "/shop/orders/1");
}

TEST_F(SubscriptionObjectTest, ALoadThatBeganBeforeTheLastOneSentIsOutdated)
{
    auto subscription = subscribe("/shop/orders/1");
    const auto older = subscription->loadNotificationData();
    const auto newer = subscription->loadNotificationData();
    EXPECT_FALSE(subscription->isOutdated(older));
    subscription->send(newer);
    EXPECT_TRUE(subscription->isOutdated(older));
    EXPECT_FALSE(subscription->isOutdated(newer)) << "the same one may go out again";
    EXPECT_FALSE(subscription->isOutdated(nullptr));
    EXPECT_FALSE(subscription->isOutdated(subscription->loadNotificationData()));
}

TEST_F(SubscriptionObjectTest, ALoadThatMetTheOneOfTheLastOneSentMayBeOutdated)
{
    auto subscription = subscribe("/shop/orders/1");
    SubscriptionObject::NotificationPtr inner;
    source.onLoad(
        [&]
        {
            source.onLoad(nullptr);
            inner = subscription->loadNotificationData();
        });
    const auto outer = subscription->loadNotificationData();
    subscription->send(outer);
    EXPECT_FALSE(subscription->isOutdated(inner));
    EXPECT_TRUE(subscription->mayBeOutdated(inner));
    EXPECT_FALSE(subscription->mayBeOutdated(outer));
    EXPECT_FALSE(subscription->mayBeOutdated(subscription->loadNotificationData()));
}

TEST_F(SubscriptionObjectTest, AFirstLoadThatSomethingNewerHasOvertakenIsNotSent)
{
    auto subscription = subscribe("/shop/orders/1");
    source.onLoad(
        [&]
        {
            source.onLoad(nullptr);
            source.deliver(R"({"amount":8})");
            subscription->send(subscription->loadNotificationData());
            source.deliver(R"({"amount":7})");
        });
    subscription->initialUpdate();
    EXPECT_EQ(connection.nextMessage()->getObject("data")->getValue<int>("amount"), 8);
    EXPECT_FALSE(connection.hasMessage());
    EXPECT_TRUE(subscription->isInitialized());
}

TEST_F(SubscriptionObjectTest, RemainingTimeIsZeroUntilSomethingWasSent)
{
    auto subscription = subscribe("/shop/orders/1");
    TestClock clock;
    const Poco::Clock::ClockDiff longest = Poco::Clock::CLOCKVAL_MAX;
    EXPECT_EQ(subscription->remainingOf(longest), 0) << "whatever the clock says";
    subscription->initialUpdate();
    EXPECT_EQ(subscription->remainingOf(100000), 100000);
    clock.advanceMicroseconds(99999);
    EXPECT_EQ(subscription->remainingOf(100000), 1);
    clock.advanceMicroseconds(1);
    EXPECT_EQ(subscription->remainingOf(100000), 0);
    clock.advance(1000000);
    EXPECT_EQ(subscription->remainingOf(100000), 0);
    EXPECT_GT(subscription->remainingOf(longest), 0) << "no limit overflows";
    clock.advance(-2000000);
    EXPECT_EQ(subscription->remainingOf(100000), 100000) << "nor does a clock that ran back";
}

TEST_F(SubscriptionObjectTest, IsAnnouncedUnlessItWasWithdrawnBefore)
{
    auto announced = subscribe("/shop/orders/1");
    EXPECT_FALSE(announced->isWithdrawn());
    EXPECT_TRUE(announced->announce());
    EXPECT_FALSE(announced->isWithdrawn());
    EXPECT_TRUE(announced->withdraw()) << "the listeners know it";
    EXPECT_FALSE(announced->withdraw()) << "they are told once";
    EXPECT_TRUE(announced->isWithdrawn());

    auto early = subscribe("/shop/orders/1");
    EXPECT_FALSE(early->withdraw());
    EXPECT_FALSE(early->announce());
    EXPECT_TRUE(early->isWithdrawn());
}

namespace
{

/// What happens to a block of each kind under the paging that the client asked for.
struct PagingRow
{
    const char* name;
    Paging* (*criterion)(); ///< null: none
    bool keepsMiddlePage;   ///< a next link, of three pages
    bool keepsLastPage;     ///< no next link, of three pages
    bool keepsOnlyPage;     ///< no next link, of one page
};

std::ostream& operator<<(std::ostream& out, const PagingRow& row)
{
    return out << row.name;
}

class PagingBlockTest: public testing::TestWithParam<PagingRow>
{
protected:
    struct PagedSource: ISubscriptionDataSource
    {
        Poco::JSON::Object::Ptr block;
        bool fetchData(const SubscriptionRequest&, WebSocketResponseObject& response) override
        {
            response.setData(Poco::JSON::Array::Ptr(new Poco::JSON::Array));
            response.setPaging(block);
            return true;
        }
    };

    bool isKept(const Poco::JSON::Object::Ptr& block)
    {
        WebSocketRequestObject request = subscribeTo("/shop/orders");
        if (GetParam().criterion)
            request.renderCriteria[Command::RequestBase::criteriaKey<Paging>()].push_back(GetParam().criterion());
        PlainSubscription subscription(noConnection(), request);
        PagedSource source;
        source.block = block;
        subscription.registerDataSource(source);
        return !subscription.loadNotificationData()->getPaging().isNull();
    }

    static Poco::JSON::Object::Ptr block(const Poco::Dynamic::Var& totalPages, const Poco::Dynamic::Var* next = nullptr)
    {
        Poco::JSON::Object::Ptr result = new Poco::JSON::Object;
        if (!totalPages.isEmpty())
            result->set("totalPages", totalPages);
        if (next)
            result->set("next", *next);
        return result;
    }
};

const Poco::Dynamic::Var nextPage = "/shop/orders?$offset=20";

} // namespace

TEST_P(PagingBlockTest, KeepsTheBlockThatTheClientNeeds)
{
    EXPECT_EQ(isKept(block(3, &nextPage)), GetParam().keepsMiddlePage);
    EXPECT_EQ(isKept(block(3)), GetParam().keepsLastPage);
    EXPECT_EQ(isKept(block(1)), GetParam().keepsOnlyPage);
}

TEST_P(PagingBlockTest, PassesANotificationWithoutABlock)
{
    EXPECT_FALSE(isKept(nullptr));
}

TEST_P(PagingBlockTest, ANumberOfPagesThatCannotBeReadIsNotOne)
{
    const bool keepsUnlessAlways = GetParam().keepsMiddlePage && GetParam().keepsLastPage;
    EXPECT_EQ(isKept(block(Poco::Dynamic::Var())), keepsUnlessAlways);
    EXPECT_EQ(isKept(block("many")), keepsUnlessAlways);
    EXPECT_EQ(isKept(block("1")), GetParam().keepsOnlyPage) << "a number as text is read";
    EXPECT_EQ(isKept(block(2)), keepsUnlessAlways);
}

TEST_P(PagingBlockTest, ANextLinkCountsWhateverItsValue)
{
    const Poco::Dynamic::Var null;
    EXPECT_EQ(isKept(block(3, &null)), GetParam().keepsMiddlePage);
}

INSTANTIATE_TEST_SUITE_P(
    Criteria, PagingBlockTest,
    testing::Values(PagingRow{"NoPaging", nullptr, true, true, true},
                    PagingRow{"OffsetAndLimit", [] { return new Paging("10", "10"); }, false, false, false},
                    PagingRow{"OffsetByIdAndLimit", [] { return new Paging("abc", "10"); }, false, false, false},
                    PagingRow{"Offset", [] { return new Paging("10", ""); }, true, false, false},
                    PagingRow{"OffsetById", [] { return new Paging("abc", ""); }, true, false, false},
                    PagingRow{"Limit", [] { return new Paging("", "10"); }, true, true, false},
                    PagingRow{"Forced", [] { return new Paging(Paging::createDefaultPaging()); }, true, true, false},
                    PagingRow{"Total", [] { return new Paging("", ""); }, true, true, true},
                    PagingRow{"Invalid", [] { return new Paging("10", "0"); }, true, true, true}),
    [](const auto& row) { return row.param.name; });

TEST(PagingBlock, TheFirstCriterionDecides)
{
    WebSocketRequestObject request = subscribeTo("/shop/orders");
    auto& criteria = request.renderCriteria[Command::RequestBase::criteriaKey<Paging>()];
    criteria.push_back(new Paging("", ""));
    criteria.push_back(new Paging("10", "10"));
    PlainSubscription subscription(noConnection(), request);
    struct Source: ISubscriptionDataSource
    {
        bool fetchData(const SubscriptionRequest&, WebSocketResponseObject& response) override
        {
            response.setPaging(new Poco::JSON::Object);
            return true;
        }
    } source;
    subscription.registerDataSource(source);
    EXPECT_FALSE(subscription.loadNotificationData()->getPaging().isNull());
}
