#include "LoadedNotification.h"

#include "Delivery.h"

#include <gtest/gtest.h>

using namespace Kesa;
using namespace Kesa::Service;
using namespace Kesa::Test;
using Command::WebSocketResponseObject;

namespace
{

typedef LoadedNotification::NotificationPtr NotificationPtr;

int g_comparisons = 0;

bool countedEqual(const NotificationPtr&, const NotificationPtr&)
{
    ++g_comparisons;
    return true;
}

bool countedDifferent(const NotificationPtr&, const NotificationPtr&)
{
    ++g_comparisons;
    return false;
}

Poco::SharedPtr<LoadedNotification> load(const std::string& event)
{
    Poco::SharedPtr<LoadedNotification> result = new LoadedNotification(subscribeTo(event));
    result->seal();
    return result;
}

} // namespace

TEST(LoadedNotification, NumbersRiseInTheOrderInWhichLoadsBeginAndEnd)
{
    Poco::SharedPtr<LoadedNotification> first = new LoadedNotification(subscribeTo("/shop"));
    const auto second = load("/shop");
    first->seal();
    EXPECT_LT(LoadedNotification::numberOf(first), LoadedNotification::numberOf(second));
    EXPECT_LT(LoadedNotification::numberOf(second), LoadedNotification::endNumberOf(second));
    EXPECT_LT(LoadedNotification::endNumberOf(second), LoadedNotification::endNumberOf(first));
    EXPECT_LT(LoadedNotification::endNumberOf(first), LoadedNotification::nextNumber());
}

TEST(LoadedNotification, NothingAndOtherNotificationsHaveNoNumber)
{
    EXPECT_EQ(LoadedNotification::numberOf(nullptr), 0U);
    EXPECT_EQ(LoadedNotification::endNumberOf(nullptr), 0U);
    EXPECT_EQ(LoadedNotification::numberOf(new WebSocketResponseObject), 0U);
    EXPECT_EQ(LoadedNotification::endNumberOf(new WebSocketResponseObject), 0U);
}

TEST(LoadedNotification, ACopyForANeighbourKeepsTheNumbersOfTheLoad)
{
    const auto original = load("/shop");
    const NotificationPtr copy = new LoadedNotification(subscribeTo("/shop#mine"), *original);
    EXPECT_EQ(LoadedNotification::numberOf(copy), LoadedNotification::numberOf(original));
    EXPECT_EQ(LoadedNotification::endNumberOf(copy), LoadedNotification::endNumberOf(original));
    EXPECT_EQ(copy->getEvent().toString(), "/shop#mine");
}

TEST(LoadedNotification, ACopyOfOneThatNobodyLoadedIsAsNewAsThisMoment)
{
    const Poco::UInt64 before = LoadedNotification::nextNumber();
    const NotificationPtr copy = new LoadedNotification(subscribeTo("/shop"), WebSocketResponseObject());
    EXPECT_GT(LoadedNotification::numberOf(copy), before);
    EXPECT_EQ(LoadedNotification::endNumberOf(copy), LoadedNotification::numberOf(copy));
}

TEST(LoadedNotification, FitsThoseThatAskForTheSameEvent)
{
    const auto notification = load("/shop/orders?$limit=5");
    EXPECT_TRUE(LoadedNotification::fitsEvent(notification, "/shop/orders?$limit=5"));
    EXPECT_FALSE(LoadedNotification::fitsEvent(notification, "/shop/orders"));
    EXPECT_FALSE(LoadedNotification::fitsEvent(nullptr, "/shop"));
    EXPECT_FALSE(LoadedNotification::fitsEvent(new WebSocketResponseObject, ""));
}

TEST(LoadedNotification, TheMembersOfAGroupCompareOnce)
{
    g_comparisons = 0;
    const auto last = load("/shop");
    const auto next = load("/shop");
    for (int member = 0; member < 1000; ++member)
        EXPECT_TRUE(LoadedNotification::compare(countedEqual, last, next));
    EXPECT_EQ(g_comparisons, 1);
}

TEST(LoadedNotification, AMemberThatSawAnotherStateIsComparedByItself)
{
    g_comparisons = 0;
    const auto last = load("/shop");
    const auto otherLast = load("/shop");
    const auto next = load("/shop");
    EXPECT_TRUE(LoadedNotification::compare(countedEqual, last, next));
    EXPECT_FALSE(LoadedNotification::compare(countedDifferent, otherLast, next));
    EXPECT_FALSE(LoadedNotification::compare(countedDifferent, last, next)) << "another comparer, another answer";
    EXPECT_EQ(g_comparisons, 3);
}

TEST(LoadedNotification, WithoutALastOneNothingIsRemembered)
{
    g_comparisons = 0;
    const auto next = load("/shop");
    EXPECT_TRUE(LoadedNotification::compare(countedEqual, nullptr, next));
    EXPECT_FALSE(LoadedNotification::compare(countedDifferent, nullptr, next));
    EXPECT_TRUE(LoadedNotification::compare(countedEqual, load("/shop"), new WebSocketResponseObject));
    EXPECT_EQ(g_comparisons, 3);
}

TEST(LoadedNotification, AnExceptionOfTheComparerIsNotRemembered)
{
    const auto last = load("/shop");
    const auto next = load("/shop");
    const auto raise = [](const NotificationPtr&, const NotificationPtr&) -> bool { throw std::runtime_error("type"); };
    EXPECT_THROW(LoadedNotification::compare(raise, last, next), std::runtime_error);
    EXPECT_THROW(LoadedNotification::compare(raise, last, next), std::runtime_error);
}
