#include <SubscriptionHandling/ISubscriptionDelegateFactory.h>
#include <SubscriptionHandling/SubscriptionEvents.h>

#include "LoopbackConnection.h"
#include "Requests.h"
#include "SubscriptionObject.h"
#include "TestTrigger.h"

#include <Poco/BasicEvent.h>
#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include <type_traits>

using namespace Kesa::Service;
using Kesa::Test::LoopbackConnection;
using Kesa::Test::subscribeTo;
using Kesa::Test::TestTrigger;

namespace
{

TEST(SubscriptionEventsTest, ThePayloadsReferToTheSubscription)
{
    SubscriptionRequest request(subscribeTo("/shop/orders"));
    EXPECT_EQ(&SubscriptionSubscribingEventPayload(request).request, &request);
    EXPECT_EQ(&SubscriptionAddedEventPayload(request).subscription, &request);
    EXPECT_EQ(&SubscriptionRemovedEventPayload(request).subscription, &request);
}

TEST(SubscriptionEventsTest, CancelSubscribingRefusesTheRequest)
{
    SubscriptionRequest request(subscribeTo("/shop/orders"));
    SubscriptionSubscribingEventPayload payload(request);
    payload.cancelSubscribing(SubscriptionError::event_name_unknown, "no such thing");
    EXPECT_TRUE(request.isCanceled());
    EXPECT_EQ(request.result().getSubscriptionError(), SubscriptionError::event_name_unknown);
    EXPECT_EQ(request.result().getErrorMsg(), "no such thing");
}

TEST(SubscriptionEventsTest, TheInterfacesBuildOnOneAnother)
{
    EXPECT_TRUE((std::is_base_of_v<ISubscriptionDataSource, ISubscriptionInterface>));
    EXPECT_TRUE((std::is_base_of_v<ISubscriptionDelegateFactory, DefaultSubscriptionDelegateFactory>));
    EXPECT_TRUE((std::is_same_v<AddEventDelegate, Poco::AbstractDelegate<SubscriptionAddedEventPayload>>));
    EXPECT_TRUE((std::is_same_v<RemoveEventDelegate, Poco::AbstractDelegate<SubscriptionRemovedEventPayload>>));
}

/// The text of the failure, or "" where nothing is raised.
template <class Action>
std::string bugcheckOf(Action action)
{
    try
    {
        action();
        return "";
    }
    catch (const Poco::BugcheckException& exc)
    {
        return exc.displayText();
    }
}

TEST(DefaultSubscriptionDelegateFactoryTest, GivesItsSource)
{
    TestTrigger trigger;
    EXPECT_EQ(DefaultSubscriptionDelegateFactory(&trigger).getSource(), &trigger);
}

TEST(DefaultSubscriptionDelegateFactoryTest, WithoutASourceFailsAtItsUseOnly)
{
    DefaultSubscriptionDelegateFactory factory(nullptr);
    const std::string text = "SubscriptionTrigger not available";
    EXPECT_NE(bugcheckOf([&] { factory.getSource(); }).find(text), std::string::npos);
    EXPECT_NE(bugcheckOf([&] { factory.createDelegate(); }).find(text), std::string::npos);
}

TEST(DefaultSubscriptionDelegateFactoryTest, TheDelegateSendsAnUpdateOfTheSubscriptionThatIsFired)
{
    TestTrigger trigger;
    trigger.deliver("/shop/orders/1", R"({"amount":1})");
    DefaultSubscriptionDelegateFactory factory(&trigger);
    Poco::BasicEvent<SubscriptionObject*> event;
    event += factory.createDelegate();

    LoopbackConnection client;
    SubscriptionObject::Ptr subscription =
        SubscriptionObject::Create(client.proxy(), subscribeTo("/shop/orders/1", R"(,"updateLimit":0)"));
    subscription->registerDataSource(trigger);
    subscription->initialUpdate();
    EXPECT_EQ(client.nextMessage()->getObject("data")->getValue<int>("amount"), 1);

    trigger.deliver("/shop/orders/1", R"({"amount":2})");
    SubscriptionObject* fired = subscription.get();
    event.notify(nullptr, fired);
    EXPECT_EQ(client.nextMessage()->getObject("data")->getValue<int>("amount"), 2);
}

} // namespace
