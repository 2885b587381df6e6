#include "GroupedSubscriptionList.h"

#include "StoreClient.h"

#include <CapturedLog.h>
#include <Command/UrlPath.h>

#include <gtest/gtest.h>

namespace Kesa::Service
{
namespace
{

using Command::UrlPath;
using Test::CapturedLog;
using Test::Events;
using Test::eventsOf;
using Test::StoreClient;
using Test::SubscriptionPtr;
using Test::Subscriptions;

class GroupedSubscriptionListTest: public testing::Test
{
protected:
    void add(const StoreClient& client, const std::string& event)
    {
        ASSERT_TRUE(m_list.addSubscription(client.subscriptionTo(event)));
    }
    std::vector<Events> groups() const
    {
        GroupedSubscriptionList::GroupedSubList found;
        m_list.getGroupedList(found);
        return eventsOf(found);
    }
    bool removeByUrl(const StoreClient& client, const std::string& url)
    {
        return m_list.removeSubscription(client.connection(), UrlPath(url), m_removed);
    }

    GroupedSubscriptionList m_list;
    Subscriptions m_removed;
    StoreClient m_client;
    StoreClient m_other;
};

TEST_F(GroupedSubscriptionListTest, IsEmptyAtFirst)
{
    EXPECT_TRUE(m_list.isEmpty());
    EXPECT_EQ(groups(), std::vector<Events>());
}

TEST_F(GroupedSubscriptionListTest, GroupsByPathAndQueryWithoutTheFragment)
{
    add(m_client, "/shop/orders/a?x=1");
    add(m_client, "/shop/orders/a?x=2");
    add(m_other, "/shop/orders/a?x=1#f");
    EXPECT_EQ(groups(), (std::vector<Events>{{"/shop/orders/a?x=1", "/shop/orders/a?x=1#f"}, {"/shop/orders/a?x=2"}}));
}

TEST_F(GroupedSubscriptionListTest, SchemeAndHostTakeNoPartInTheKey)
{
    add(m_client, "http://127.0.0.1:8080/shop/orders?x=1");
    add(m_client, "/shop/orders?x=1");
    EXPECT_EQ(groups().size(), 1U);
}

TEST_F(GroupedSubscriptionListTest, KeepsGroupsInKeyOrderAndMembersInOrderOfArrival)
{
    add(m_client, "/shop/b#1");
    add(m_client, "/shop/a");
    add(m_client, "/shop/b#0");
    add(m_client, "/shop/B");
    EXPECT_EQ(groups(), (std::vector<Events>{{"/shop/B"}, {"/shop/a"}, {"/shop/b#1", "/shop/b#0"}}));
}

TEST_F(GroupedSubscriptionListTest, KeepsARepeatedSubscriptionAsAMemberOfItsOwn)
{
    add(m_client, "/shop/orders");
    add(m_client, "/shop/orders");
    EXPECT_EQ(groups(), (std::vector<Events>{{"/shop/orders", "/shop/orders"}}));
    EXPECT_TRUE(removeByUrl(m_client, "/shop/orders"));
    EXPECT_EQ(m_removed.size(), 2U);
    EXPECT_NE(m_removed[0].get(), m_removed[1].get());
    EXPECT_TRUE(m_list.isEmpty());
}

TEST_F(GroupedSubscriptionListTest, RefusesANullSubscriptionAndSaysSo)
{
    const CapturedLog log;
    EXPECT_FALSE(m_list.addSubscription(SubscriptionPtr()));
    EXPECT_TRUE(log.contains(Poco::Message::PRIO_ERROR, "SubscriptionObjectPtr is null, function: addSubscription"));
    EXPECT_TRUE(m_list.isEmpty());
}

TEST_F(GroupedSubscriptionListTest, SearchOnlyAppendsToTheResult)
{
    add(m_client, "/shop/a");
    GroupedSubscriptionList::GroupedSubList found{{m_other.subscriptionTo("/before")}};
    m_list.getGroupedList(found);
    EXPECT_EQ(eventsOf(found), (std::vector<Events>{{"/before"}, {"/shop/a"}}));
}

TEST_F(GroupedSubscriptionListTest, SearchOfAnEmptyListLeavesTheResultAsItWas)
{
    GroupedSubscriptionList::GroupedSubList found{{m_other.subscriptionTo("/before")}};
    m_list.getGroupedList(found);
    EXPECT_EQ(eventsOf(found), (std::vector<Events>{{"/before"}}));
}

TEST_F(GroupedSubscriptionListTest, SearchHandsOutCopiesThatShareTheMembers)
{
    const SubscriptionPtr subscription = m_client.subscriptionTo("/shop/a");
    m_list.addSubscription(subscription);
    GroupedSubscriptionList::GroupedSubList found;
    m_list.getGroupedList(found);
    EXPECT_EQ(found.at(0).at(0).get(), subscription.get());
    found.at(0).clear();
    EXPECT_EQ(groups(), (std::vector<Events>{{"/shop/a"}}));
}

TEST_F(GroupedSubscriptionListTest, ClearDropsAllGroups)
{
    add(m_client, "/shop/a");
    add(m_other, "/shop/b");
    m_list.clear();
    EXPECT_TRUE(m_list.isEmpty());
}

TEST_F(GroupedSubscriptionListTest, RemovalByUrlComparesPathAndFragmentAndNoQuery)
{
    add(m_client, "/shop/a?x=1#f");
    add(m_client, "/shop/a?x=2");
    add(m_client, "/shop/a?x=3#f");
    EXPECT_TRUE(removeByUrl(m_client, "/shop/a?x=9#f"));
    EXPECT_EQ(eventsOf(m_removed), (Events{"/shop/a?x=1#f", "/shop/a?x=3#f"}));
    EXPECT_EQ(groups(), (std::vector<Events>{{"/shop/a?x=2"}}));
}

TEST_F(GroupedSubscriptionListTest, RemovalByUrlLeavesOtherFragments)
{
    add(m_client, "/shop/a?x=1#f");
    add(m_client, "/shop/a?x=2");
    EXPECT_TRUE(removeByUrl(m_client, "/shop/a#f"));
    EXPECT_EQ(eventsOf(m_removed), (Events{"/shop/a?x=1#f"}));
    EXPECT_EQ(groups(), (std::vector<Events>{{"/shop/a?x=2"}}));
}

TEST_F(GroupedSubscriptionListTest, RemovalByUrlLeavesOtherPaths)
{
    add(m_client, "/shop/a");
    EXPECT_FALSE(removeByUrl(m_client, "/shop/b"));
    EXPECT_FALSE(removeByUrl(m_client, "/shop/A"));
    EXPECT_EQ(groups(), (std::vector<Events>{{"/shop/a"}}));
    EXPECT_TRUE(m_removed.empty());
}

TEST_F(GroupedSubscriptionListTest, RemovalByUrlLeavesOtherConnections)
{
    add(m_other, "/shop/a");
    add(m_client, "/shop/a");
    add(m_other, "/shop/a");
    EXPECT_TRUE(removeByUrl(m_client, "/shop/a"));
    EXPECT_EQ(m_removed.size(), 1U);
    EXPECT_TRUE(m_client.connection() == *m_removed[0]->getWebsocket());
    EXPECT_FALSE(m_list.existsSubscriptionForWebsocket(m_client.connection()));
    EXPECT_EQ(groups(), (std::vector<Events>{{"/shop/a", "/shop/a"}}));
}

TEST_F(GroupedSubscriptionListTest, RemovalByConnectionTakesAllItsMembersAcrossGroupsInOrder)
{
    add(m_client, "/shop/b");
    add(m_client, "/shop/a#2");
    add(m_other, "/shop/a");
    add(m_client, "/shop/a#1");
    EXPECT_TRUE(m_list.removeByWebsocket(m_client.connection(), m_removed));
    EXPECT_EQ(eventsOf(m_removed), (Events{"/shop/a#2", "/shop/a#1", "/shop/b"}));
    EXPECT_EQ(groups(), (std::vector<Events>{{"/shop/a"}}));
}

TEST_F(GroupedSubscriptionListTest, RemovalForAConnectionWithoutMembersChangesNothing)
{
    add(m_other, "/shop/a");
    EXPECT_FALSE(m_list.removeByWebsocket(m_client.connection(), m_removed));
    EXPECT_FALSE(removeByUrl(m_client, "/shop/a"));
    EXPECT_TRUE(m_removed.empty());
    EXPECT_EQ(groups(), (std::vector<Events>{{"/shop/a"}}));
}

TEST_F(GroupedSubscriptionListTest, RemovalOnlyAppendsToWhatWasRemovedBefore)
{
    add(m_client, "/shop/a");
    add(m_client, "/shop/b");
    EXPECT_TRUE(removeByUrl(m_client, "/shop/b"));
    EXPECT_TRUE(m_list.removeByWebsocket(m_client.connection(), m_removed));
    EXPECT_EQ(eventsOf(m_removed), (Events{"/shop/b", "/shop/a"}));
}

TEST_F(GroupedSubscriptionListTest, RemovalOfTheLastMemberErasesTheGroup)
{
    add(m_client, "/shop/a");
    add(m_other, "/shop/b");
    EXPECT_TRUE(removeByUrl(m_client, "/shop/a"));
    EXPECT_EQ(groups().size(), 1U);
    EXPECT_FALSE(m_list.isEmpty());
    EXPECT_TRUE(removeByUrl(m_other, "/shop/b"));
    EXPECT_TRUE(m_list.isEmpty());
}

TEST_F(GroupedSubscriptionListTest, KeepsASubscriptionAliveAndHandsThatShareOver)
{
    SubscriptionPtr subscription = m_client.subscriptionTo("/shop/a");
    m_list.addSubscription(subscription);
    EXPECT_EQ(subscription.referenceCount(), 2);
    m_list.removeByWebsocket(m_client.connection(), m_removed);
    EXPECT_EQ(subscription.referenceCount(), 2);
    m_removed.clear();
    EXPECT_EQ(subscription.referenceCount(), 1);
}

TEST_F(GroupedSubscriptionListTest, KnowsWhetherAConnectionHasMembers)
{
    EXPECT_FALSE(m_list.existsSubscriptionForWebsocket(m_client.connection()));
    add(m_other, "/shop/a");
    add(m_client, "/shop/b");
    EXPECT_TRUE(m_list.existsSubscriptionForWebsocket(m_client.connection()));
    EXPECT_TRUE(m_list.existsSubscriptionForWebsocket(Net::WebSocketProxy(m_client.connection())));
    EXPECT_FALSE(m_list.existsSubscriptionForWebsocket(StoreClient().connection()));
}

} // namespace
} // namespace Kesa::Service
