#include "SubscriptionTree.h"

#include <LogStream.h>

#include <algorithm>

namespace Kesa::Service
{

using Command::UrlPath;
using Net::WebSocketProxy;
using Util::Mutex;
using Util::ScopedLock;

SubscriptionTree::SubscriptionTree(): m_root(new SubscriptionTreeNode(UrlPath::ROOT)) {}

SubscriptionTree::~SubscriptionTree()
{
    KESA_LOG_TRACE("dtor Subscription tree");
}

bool SubscriptionTree::add(const WebSocketProxy& webSocket, const Command::WebSocketRequestObject& request,
                           SubscriptionObject::SubscriptionObjectPtr& subscription)
{
    ScopedLock<Mutex> lock(m_subscriptionTreeMutex);
    // A connection is marked as ended before its subscriptions are swept, so what passes here is swept.
    if (webSocket.hasEnded())
        return false;
    SubscriptionTreeNode::SubscriptionTreeNodePtr node = m_root;
    if (!m_root->addChild(webSocket, request, subscription, node))
    {
        m_root->prune(request.getUrlPath());
        return false;
    }
    if (node.isNull())
        KESA_LOG_ERROR("Missing node pointer after adding subscription!");
    else
        addToWebsocketMap(webSocket, node);
    return true;
}

void SubscriptionTree::addToWebsocketMap(const WebSocketProxy& webSocket,
                                         SubscriptionTreeNode::SubscriptionTreeNodePtr node)
{
    WebsocketSubscriptionMapEntry& entry = m_websocketSubscriptionsMap[webSocket];
    if (std::find(entry.nodes.begin(), entry.nodes.end(), node) == entry.nodes.end())
        entry.nodes.push_back(node);
    ++entry.subscriptionCount;
}

bool SubscriptionTree::remove(const WebSocketProxy& webSocket, const Command::WebSocketRequestObject& request,
                              SubscriptionTreeNode::SubscriptionList& removed)
{
    return remove(webSocket, request.getUrlPath(), removed);
}

bool SubscriptionTree::remove(const WebSocketProxy& webSocket, const UrlPath& url,
                              SubscriptionTreeNode::SubscriptionList& removed)
{
    ScopedLock<Mutex> lock(m_subscriptionTreeMutex);
    SubscriptionTreeNode::SubscriptionTreeNodePtr node = m_root;
    if (!m_root->removeChild(webSocket, url, node, removed))
        return false;
    if (node.isNull())
        KESA_LOG_ERROR("Missing node pointer after removing subscription!");
    else
    {
        removeFromWebsocketMap(webSocket, node, static_cast<uint32_t>(removed.size()));
        noteUnbooked(webSocket, node);
    }
    return true;
}

void SubscriptionTree::removeFromWebsocketMap(const WebSocketProxy& webSocket,
                                              SubscriptionTreeNode::SubscriptionTreeNodePtr node, uint32_t count)
{
    const auto found = m_websocketSubscriptionsMap.find(webSocket);
    if (found == m_websocketSubscriptionsMap.end())
    {
        KESA_LOG_ERROR("Websocket not found in websocket map!");
        return;
    }
    WebsocketSubscriptionMapEntry& entry = found->second;
    const auto position = std::find(entry.nodes.begin(), entry.nodes.end(), node);
    if (position == entry.nodes.end())
        return;
    entry.nodes.erase(position);
    entry.subscriptionCount -= count;
    if (entry.subscriptionCount == 0)
        m_websocketSubscriptionsMap.erase(found);
}

void SubscriptionTree::noteUnbooked(const WebSocketProxy& webSocket,
                                    const SubscriptionTreeNode::SubscriptionTreeNodePtr& node)
{
    const bool hasSurvivors = node->hasSubscriptionsForWebsocket(webSocket);
    auto entry = m_unbookedNodes.find(webSocket);
    if (entry == m_unbookedNodes.end())
    {
        if (hasSurvivors)
            m_unbookedNodes[webSocket].push_back(node);
        return;
    }
    Nodes& nodes = entry->second;
    const auto position = std::find(nodes.begin(), nodes.end(), node);
    if (hasSurvivors && position == nodes.end())
        nodes.push_back(node);
    else if (!hasSurvivors && position != nodes.end())
        nodes.erase(position);
    if (nodes.empty())
        m_unbookedNodes.erase(entry);
}

bool SubscriptionTree::remove(const WebSocketProxy& webSocket, SubscriptionTreeNode::SubscriptionList& removed)
{
    ScopedLock<Mutex> lock(m_subscriptionTreeMutex);
    const auto entry = m_websocketSubscriptionsMap.find(webSocket);
    if (entry == m_websocketSubscriptionsMap.end())
    {
        KESA_LOG_DEBUG("Websocket not found in websocket map!");
        return false;
    }
    const std::size_t first = removed.size();
    bool result = false;
    for (SubscriptionTreeNode::SubscriptionTreeNodePtr& node: entry->second.nodes)
        result = node->removeByWebsocket(webSocket, removed);
    m_websocketSubscriptionsMap.erase(entry);
    pruneAfterRemoval(removed, first);
    return result;
}

void SubscriptionTree::removeUnbooked(const WebSocketProxy& webSocket, SubscriptionTreeNode::SubscriptionList& removed)
{
    ScopedLock<Mutex> lock(m_subscriptionTreeMutex);
    const auto entry = m_unbookedNodes.find(webSocket);
    if (entry == m_unbookedNodes.end())
        return;
    const std::size_t first = removed.size();
    for (SubscriptionTreeNode::SubscriptionTreeNodePtr& node: entry->second)
        node->removeByWebsocket(webSocket, removed);
    m_unbookedNodes.erase(entry);
    pruneAfterRemoval(removed, first);
}

void SubscriptionTree::pruneAfterRemoval(const SubscriptionTreeNode::SubscriptionList& removed, std::size_t first)
{
    for (std::size_t index = first; index < removed.size(); ++index)
        m_root->prune(removed[index]->getUrlPath());
}

bool SubscriptionTree::searchSubscriptions(Command::HttpRequest::RequestType type, const Command::RequestBase& request,
                                           GroupedSubscriptionList::GroupedSubList& out)
{
    ScopedLock<Mutex> lock(m_subscriptionTreeMutex);
    return m_root->searchSubscriptions(nullptr, type, request, out);
}

uint32_t SubscriptionTree::getSubscriptionCountPerWebsocket(const WebSocketProxy& webSocket)
{
    ScopedLock<Mutex> lock(m_subscriptionTreeMutex);
    const auto entry = m_websocketSubscriptionsMap.find(webSocket);
    return entry == m_websocketSubscriptionsMap.end() ? 0 : entry->second.subscriptionCount;
}

uint32_t SubscriptionTree::getSubscriptionCount() const
{
    ScopedLock<Mutex> lock(m_subscriptionTreeMutex);
    uint32_t sum = 0;
    for (const auto& [webSocket, entry]: m_websocketSubscriptionsMap)
        sum += entry.subscriptionCount;
    return sum;
}

bool SubscriptionTree::getElementSubscriptionsPerWebsocket(const UrlPath& url, const WebSocketProxy& webSocket,
                                                           SubscriptionTreeNode::SubscriptionList& out)
{
    ScopedLock<Mutex> lock(m_subscriptionTreeMutex);
    return m_root->searchElementSubscriptionsPerWebsocketPerResource(url, webSocket, out);
}

void SubscriptionTree::clear()
{
    ScopedLock<Mutex> lock(m_subscriptionTreeMutex);
    m_root->clear();
}

} // namespace Kesa::Service
