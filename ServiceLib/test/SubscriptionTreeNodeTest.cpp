#include "SubscriptionTreeNode.h"

#include "StoreClient.h"

#include <CapturedLog.h>

#include <gtest/gtest.h>

#include <ostream>

namespace Kesa::Service
{
namespace
{

using Command::HttpRequest;
using Command::RequestBase;
using Command::UrlPath;
using Poco::Message;
using Test::CapturedLog;
using Test::Events;
using Test::eventsOf;
using Test::requestFor;
using Test::StoreClient;
using Test::SubscriptionPtr;
using Test::Subscriptions;
using NodePtr = SubscriptionTreeNode::SubscriptionTreeNodePtr;

class SubscriptionTreeNodeTest: public testing::Test
{
protected:
    bool add(const StoreClient& client, const std::string& event)
    {
        SubscriptionPtr subscription = client.subscriptionTo(event);
        return m_root.addChild(client.connection(), requestFor(event), subscription, m_node);
    }
    bool remove(const StoreClient& client, const std::string& url)
    {
        return m_root.removeChild(client.connection(), UrlPath(url), m_node, m_removed);
    }
    std::vector<Events> candidates(const std::string& url)
    {
        GroupedSubscriptionList::GroupedSubList found;
        EXPECT_TRUE(m_root.searchSubscriptions(nullptr, HttpRequest::POST, RequestBase(UrlPath(url)), found));
        return eventsOf(found);
    }
    /// The keys of the children below the node at the end of `path`.
    static std::vector<std::string> keysBelow(const SubscriptionTreeNode& node, const std::vector<std::string>& path)
    {
        std::vector<std::string> keys;
        SubscriptionTreeNode::SubscriptionTreeChildList children = node.getChildNodeList();
        for (const std::string& segment: path)
        {
            const NodePtr child = children.at(segment);
            children = child->getChildNodeList();
        }
        for (const auto& [key, child]: children)
            keys.push_back(key);
        return keys;
    }
    std::vector<std::string> keysBelow(const std::vector<std::string>& path = {}) const
    {
        return keysBelow(m_root, path);
    }
    typedef std::vector<std::string> Keys;

    SubscriptionTreeNode m_root{UrlPath::ROOT};
    NodePtr m_node;
    Subscriptions m_removed;
    StoreClient m_client;
    StoreClient m_other;
};

TEST_F(SubscriptionTreeNodeTest, IsEmptyAtFirst)
{
    EXPECT_TRUE(m_root.isEmpty());
    EXPECT_EQ(keysBelow(), Keys());
}

TEST_F(SubscriptionTreeNodeTest, ASubscriptionHangsAtTheNodeOfItsPath)
{
    const CapturedLog log;
    ASSERT_TRUE(add(m_client, "/shop"));
    EXPECT_EQ(eventsOf(m_node->getNodeSubscriptionsPerWebsocket(m_client.connection())), (Events{"/shop"}));
    ASSERT_TRUE(add(m_client, "/shop/orders"));
    EXPECT_EQ(eventsOf(m_node->getNodeSubscriptionsPerWebsocket(m_client.connection())), (Events{"/shop/orders"}));
    ASSERT_TRUE(add(m_client, "/shop/orders/1"));
    EXPECT_EQ(eventsOf(m_node->getNodeSubscriptionsPerWebsocket(m_client.connection())), (Events{"/shop/orders/1"}));
    EXPECT_EQ(keysBelow(), (Keys{"shop"}));
    EXPECT_EQ(keysBelow({"shop"}), (Keys{"orders"}));
    EXPECT_EQ(keysBelow({"shop", "orders"}), (Keys{"1"}));
    EXPECT_EQ(keysBelow({"shop", "orders", "1"}), Keys());
    EXPECT_EQ(log.count(Message::PRIO_TRACE, "add subscription to tree"), 3U);
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 0U);
}

TEST_F(SubscriptionTreeNodeTest, QueryFragmentAndTrailingSlashPlayNoPartInTheWayDown)
{
    ASSERT_TRUE(add(m_client, "/shop/orders"));
    const NodePtr node = m_node;
    for (const char* event: {"/shop/orders?$fields=name", "/shop/orders#f", "/shop/orders/"})
    {
        ASSERT_TRUE(add(m_client, event)) << event;
        EXPECT_EQ(m_node, node) << event;
    }
}

TEST_F(SubscriptionTreeNodeTest, ARootSubscriptionStaysInTheRootAndLeavesTheResultNode)
{
    const NodePtr before = new SubscriptionTreeNode(UrlPath::SERVICE);
    m_node = before;
    ASSERT_TRUE(add(m_client, "/"));
    EXPECT_EQ(m_node, before);
    EXPECT_EQ(keysBelow(), Keys());
    EXPECT_TRUE(m_root.hasSubscriptionsForWebsocket(m_client.connection()));
}

TEST_F(SubscriptionTreeNodeTest, AnInvalidUrlIsRefusedAtTheRootAndMakesNoNode)
{
    const CapturedLog log;
    EXPECT_FALSE(add(m_client, "/shop/orders/1/parts"));
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, "invalid characteristic in url path"));
    EXPECT_TRUE(m_root.isEmpty());
    EXPECT_TRUE(m_node.isNull());
}

class ReservedKeyTest: public SubscriptionTreeNodeTest, public testing::WithParamInterface<std::vector<std::string>>
{
};

TEST_P(ReservedKeyTest, ASubscribeIsRefusedAtTheDeepestLevelAndLeavesTheNodesOfItsPath)
{
    std::string url;
    for (const std::string& segment: GetParam())
        url += "/" + segment;
    const CapturedLog log;
    EXPECT_FALSE(add(m_client, url));
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, "cannot get next level in function: addChild"));
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 1U);
    std::vector<std::string> path;
    for (std::size_t depth = 0; depth < 3; ++depth)
    {
        const std::string key = depth < GetParam().size() ? GetParam()[depth] : "";
        EXPECT_EQ(keysBelow(path), (Keys{key})) << depth;
        path.push_back(key);
    }
    EXPECT_EQ(candidates(url), std::vector<Events>());
}

INSTANTIATE_TEST_SUITE_P(AllReservedKeys, ReservedKeyTest,
                         testing::Values(Events{"$id"}, Events{"shop", "$id"}, Events{"shop", "$spec"},
                                         Events{"shop", "$rights"}, Events{"shop", "orders", "$id"},
                                         Events{"shop", "orders", "$spec"}));

TEST_F(SubscriptionTreeNodeTest, ANullSubscriptionIsRefusedWhereItWouldHang)
{
    const CapturedLog log;
    SubscriptionPtr null;
    EXPECT_FALSE(m_root.addChild(m_client.connection(), requestFor("/shop/orders"), null, m_node));
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, "SubscriptionObjectPtr is null, function: addSubscription"));
    EXPECT_EQ(keysBelow(), (Keys{"shop"}));
}

TEST_F(SubscriptionTreeNodeTest, RemovalOfTheLastSubscriptionErasesTheNodesOnTheWayBackUp)
{
    ASSERT_TRUE(add(m_client, "/shop/orders/1"));
    const NodePtr node = m_node;
    m_node = nullptr;
    EXPECT_TRUE(remove(m_client, "/shop/orders/1"));
    EXPECT_EQ(m_node, node) << "the node is handed over although it was erased";
    EXPECT_EQ(eventsOf(m_removed), (Events{"/shop/orders/1"}));
    EXPECT_TRUE(m_root.isEmpty());
}

TEST_F(SubscriptionTreeNodeTest, RemovalKeepsNodesWhereSomethingElseHangs)
{
    ASSERT_TRUE(add(m_client, "/shop/orders/1"));
    ASSERT_TRUE(add(m_client, "/shop/orders/2"));
    ASSERT_TRUE(add(m_other, "/shop"));
    EXPECT_TRUE(remove(m_client, "/shop/orders/1"));
    EXPECT_EQ(keysBelow({"shop", "orders"}), (Keys{"2"}));
    EXPECT_TRUE(remove(m_client, "/shop/orders/2"));
    EXPECT_EQ(keysBelow({"shop"}), Keys());
    EXPECT_EQ(candidates("/shop"), (std::vector<Events>{{"/shop"}}));
}

TEST_F(SubscriptionTreeNodeTest, RemovalKeepsANodeWithAnotherConnectionsSubscription)
{
    ASSERT_TRUE(add(m_client, "/shop/orders/1"));
    ASSERT_TRUE(add(m_other, "/shop/orders/1"));
    EXPECT_TRUE(remove(m_client, "/shop/orders/1"));
    EXPECT_EQ(m_removed.size(), 1U);
    EXPECT_TRUE(m_node->hasSubscriptionsForWebsocket(m_other.connection()));
    EXPECT_EQ(keysBelow({"shop", "orders"}), (Keys{"1"}));
}

TEST_F(SubscriptionTreeNodeTest, RemovalFromTheRootLeavesTheResultNodeAndNeverErasesTheRoot)
{
    ASSERT_TRUE(add(m_client, "/"));
    const NodePtr before = new SubscriptionTreeNode(UrlPath::SERVICE);
    m_node = before;
    EXPECT_TRUE(remove(m_client, "/"));
    EXPECT_EQ(m_node, before);
    EXPECT_TRUE(m_root.isEmpty());
    EXPECT_TRUE(add(m_client, "/shop"));
}

TEST_F(SubscriptionTreeNodeTest, RemovalWithoutANodeOnTheWaySaysNothing)
{
    ASSERT_TRUE(add(m_client, "/shop/orders"));
    const CapturedLog log;
    EXPECT_FALSE(remove(m_client, "/bakery"));
    EXPECT_FALSE(remove(m_client, "/shop/orders/1"));
    EXPECT_FALSE(remove(m_client, "/shop/orders/1/parts"));
    EXPECT_TRUE(log.entries().empty());
    EXPECT_TRUE(m_removed.empty());
}

TEST_F(SubscriptionTreeNodeTest, AFailedRemovalPrunesTheEmptyNodesOnItsWay)
{
    const CapturedLog log;
    EXPECT_FALSE(add(m_client, "/shop/orders/$id"));
    ASSERT_TRUE(add(m_client, "/shop/orders/1"));
    EXPECT_FALSE(remove(m_client, "/shop/orders/$id"));
    EXPECT_EQ(keysBelow({"shop", "orders"}), (Keys{"1"}));
    EXPECT_FALSE(remove(m_other, "/shop/orders/1"));
    EXPECT_EQ(keysBelow({"shop", "orders"}), (Keys{"1"}));
}

TEST_F(SubscriptionTreeNodeTest, PruneErasesTheEmptyNodesOfAPathAndNothingElse)
{
    const CapturedLog log;
    EXPECT_FALSE(add(m_client, "/shop/orders/$id"));
    ASSERT_TRUE(add(m_client, "/shop/orders"));
    m_root.prune(UrlPath("/shop/orders/$id"));
    EXPECT_EQ(keysBelow({"shop", "orders"}), Keys());
    EXPECT_EQ(candidates("/shop/orders"), (std::vector<Events>{{"/shop/orders"}}));
    m_root.prune(UrlPath("/bakery/rolls"));
    EXPECT_EQ(keysBelow({"shop"}), (Keys{"orders"}));
}

TEST_F(SubscriptionTreeNodeTest, RemovalByConnectionDoesNotDescend)
{
    ASSERT_TRUE(add(m_client, "/"));
    ASSERT_TRUE(add(m_client, "/shop"));
    EXPECT_TRUE(m_root.removeByWebsocket(m_client.connection(), m_removed));
    EXPECT_EQ(eventsOf(m_removed), (Events{"/"}));
    EXPECT_FALSE(m_root.removeByWebsocket(m_client.connection(), m_removed));
    EXPECT_EQ(candidates("/shop"), (std::vector<Events>{{"/shop"}}));
}

TEST_F(SubscriptionTreeNodeTest, ANodeIsEmptyWithoutSubscriptionsAndChildrenOnly)
{
    ASSERT_TRUE(add(m_client, "/shop"));
    EXPECT_FALSE(m_root.isEmpty()) << "a child";
    EXPECT_FALSE(m_root.hasSubscriptionsForWebsocket(m_client.connection())) << "its own list only";
    ASSERT_TRUE(remove(m_client, "/shop"));
    ASSERT_TRUE(add(m_client, "/"));
    EXPECT_FALSE(m_root.isEmpty()) << "an own subscription";
}

TEST_F(SubscriptionTreeNodeTest, ClearDropsChildrenAndOwnSubscriptions)
{
    ASSERT_TRUE(add(m_client, "/"));
    ASSERT_TRUE(add(m_client, "/shop/orders/1"));
    m_root.clear();
    EXPECT_TRUE(m_root.isEmpty());
    EXPECT_EQ(candidates("/shop"), std::vector<Events>());
}

TEST_F(SubscriptionTreeNodeTest, ANodeListsAConnectionsSubscriptionsGroupAfterGroup)
{
    for (const char* event: {"/shop?x=2", "/shop?x=1#b", "/shop?x=1#a"})
        ASSERT_TRUE(add(m_client, event));
    ASSERT_TRUE(add(m_other, "/shop?x=1"));
    EXPECT_EQ(eventsOf(m_node->getNodeSubscriptionsPerWebsocket(m_client.connection())),
              (Events{"/shop?x=1#b", "/shop?x=1#a", "/shop?x=2"}));
    EXPECT_EQ(eventsOf(m_node->getNodeSubscriptionsPerWebsocket(StoreClient().connection())), Events());
}

/// A tree with one subscription at each level of two branches, and what a change at a URL finds in it.
struct SearchCase
{
    const char* name;
    const char* url;
    std::vector<Events> candidates;
};

std::ostream& operator<<(std::ostream& out, const SearchCase& searchCase)
{
    return out << searchCase.url;
}

std::string nameOf(const testing::TestParamInfo<SearchCase>& info)
{
    return info.param.name;
}

class SearchTest: public SubscriptionTreeNodeTest, public testing::WithParamInterface<SearchCase>
{
protected:
    void SetUp() override
    {
        for (const char* event: {"/", "/shop", "/shop/orders", "/shop/orders/1", "/shop/orders/2", "/bakery"})
            ASSERT_TRUE(add(m_client, event));
    }
};

TEST_P(SearchTest, FindsTheGroupsAtTheUrlsNodeAndAtItsParent)
{
    EXPECT_EQ(candidates(GetParam().url), GetParam().candidates);
}

INSTANTIATE_TEST_SUITE_P(
    Urls, SearchTest,
    testing::Values(
        SearchCase{"Root", "/", {{"/"}}}, SearchCase{"Service", "/shop", {{"/"}, {"/shop"}}},
        SearchCase{"Resource", "/shop/orders", {{"/shop"}, {"/shop/orders"}}},
        SearchCase{"Element", "/shop/orders/1", {{"/shop/orders"}, {"/shop/orders/1"}}},
        SearchCase{"QueryAndFragment", "/shop/orders/1?a=b#c", {{"/shop/orders"}, {"/shop/orders/1"}}},
        SearchCase{"UnknownElement", "/shop/orders/9", {{"/shop/orders"}}},
        SearchCase{"UnknownResource", "/shop/bills", {{"/shop"}}}, SearchCase{"UnknownService", "/tavern", {{"/"}}},
        SearchCase{"BelowAnUnknownResource", "/shop/bills/1", {}}, SearchCase{"ReservedKeyOfTheRoot", "/$id", {}},
        SearchCase{"ReservedKeyOfAService", "/shop/$spec", {}},
        SearchCase{"ReservedKeyOfAResource", "/shop/orders/$id", {}},
        SearchCase{"InvalidBelowAnElement", "/shop/orders/1/parts", {{"/shop/orders/1"}}},
        SearchCase{"InvalidBelowAnUnknownElement", "/shop/orders/9/parts", {}}, SearchCase{"Empty", "", {}}),
    nameOf);

TEST_F(SubscriptionTreeNodeTest, TheMethodDecidesNothingInASearch)
{
    ASSERT_TRUE(add(m_client, "/shop"));
    for (int type = HttpRequest::UNSUPPORTED; type <= HttpRequest::DELETE; ++type)
    {
        GroupedSubscriptionList::GroupedSubList found;
        EXPECT_TRUE(m_root.searchSubscriptions(&m_root, static_cast<HttpRequest::RequestType>(type),
                                               RequestBase(UrlPath("/shop")), found));
        EXPECT_EQ(found.size(), 1U);
    }
}

TEST_F(SubscriptionTreeNodeTest, ASearchOnlyAppends)
{
    ASSERT_TRUE(add(m_client, "/shop"));
    GroupedSubscriptionList::GroupedSubList found{{m_other.subscriptionTo("/before")}};
    EXPECT_TRUE(m_root.searchSubscriptions(nullptr, HttpRequest::POST, RequestBase(UrlPath("/shop")), found));
    EXPECT_EQ(eventsOf(found), (std::vector<Events>{{"/before"}, {"/shop"}}));
}

class ElementSearchTest: public SubscriptionTreeNodeTest
{
protected:
    bool search(const SubscriptionTreeNode& node, const std::string& url)
    {
        SubscriptionTreeNode copy = node; // the operation changes nothing, but it is not const
        return copy.searchElementSubscriptionsPerWebsocketPerResource(UrlPath(url), m_client.connection(), m_found);
    }

    Subscriptions m_found{m_client.subscriptionTo("/before")};
};

TEST_F(ElementSearchTest, GivesTheConnectionsElementSubscriptionsInKeyOrder)
{
    for (const char* event:
         {"/shop/orders/2", "/shop/orders/1?x=2", "/shop/orders/1?x=1", "/shop/orders", "/shop/bills/1"})
        ASSERT_TRUE(add(m_client, event));
    ASSERT_TRUE(add(m_other, "/shop/orders/1"));
    EXPECT_TRUE(search(m_root, "/shop/orders"));
    EXPECT_EQ(eventsOf(m_found), (Events{"/shop/orders/1?x=1", "/shop/orders/1?x=2", "/shop/orders/2"}));
}

TEST_F(ElementSearchTest, GivesAnEmptyListForAResourceWithoutElements)
{
    ASSERT_TRUE(add(m_client, "/shop/orders"));
    const CapturedLog log;
    EXPECT_TRUE(search(m_root, "/shop/orders"));
    EXPECT_TRUE(m_found.empty());
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(ElementSearchTest, IsRefusedOnANodeThatIsNotTheRoot)
{
    const CapturedLog log;
    EXPECT_FALSE(search(SubscriptionTreeNode(UrlPath::SERVICE), "/shop/orders"));
    EXPECT_TRUE(
        log.contains(Message::PRIO_ERROR, "Wrong entry level to get element subscriptions per websocket per resource"));
    EXPECT_TRUE(m_found.empty());
}

TEST_F(ElementSearchTest, IsRefusedForAUrlThatIsNoResource)
{
    ASSERT_TRUE(add(m_client, "/shop/orders/1"));
    for (const char* url: {"/", "/shop", "/shop/orders/1", "/shop/$id", "/shop/orders/1/parts"})
    {
        const CapturedLog log;
        m_found.push_back(m_client.subscriptionTo("/before"));
        EXPECT_FALSE(search(m_root, url)) << url;
        EXPECT_TRUE(log.contains(Message::PRIO_ERROR,
                                 "Wrong URL characteristic to get elem subscriptions per websocket per resource "))
            << url;
        EXPECT_TRUE(m_found.empty());
    }
}

TEST_F(ElementSearchTest, SaysThatThereIsNoSuchService)
{
    const CapturedLog log;
    EXPECT_FALSE(search(m_root, "/shop/orders"));
    EXPECT_TRUE(
        log.contains(Message::PRIO_ERROR, "searchElementSubscriptionsPerWebsocketPerResource no service found"));
    EXPECT_TRUE(m_found.empty());
}

TEST_F(ElementSearchTest, SaysThatThereIsNoSuchResource)
{
    ASSERT_TRUE(add(m_client, "/shop"));
    const CapturedLog log;
    EXPECT_FALSE(search(m_root, "/shop/orders"));
    EXPECT_TRUE(
        log.contains(Message::PRIO_ERROR, "searchElementSubscriptionsPerWebsocketPerResource no resource found"));
    EXPECT_TRUE(m_found.empty());
}

} // namespace
} // namespace Kesa::Service
