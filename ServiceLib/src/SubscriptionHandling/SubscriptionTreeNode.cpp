#include "SubscriptionTreeNode.h"

#include <LogStream.h>

namespace Kesa::Service
{

using Command::UrlPath;
using Net::WebSocketProxy;

SubscriptionTreeNode::SubscriptionTreeNode(UrlPath::Characteristic level): m_level(level) {}

void SubscriptionTreeNode::getNextTreeLevel(UrlPath::Characteristic level, const UrlPath& url,
                                            UrlPath::Characteristic& nextLevel, std::string& key)
{
    switch (level)
    {
    case UrlPath::ROOT:
        key = url.getService();
        nextLevel = UrlPath::SERVICE;
        break;
    case UrlPath::SERVICE:
        key = url.getResource();
        nextLevel = UrlPath::SERVICE_RESOURCE;
        break;
    case UrlPath::SERVICE_RESOURCE:
        key = url.getElement();
        nextLevel = UrlPath::SERVICE_RESOURCE_ELEMENT;
        break;
    default:
        key.clear();
        nextLevel = UrlPath::INVALID;
    }
}

bool SubscriptionTreeNode::addChild(const WebSocketProxy& websocket, const Command::WebSocketRequestObject& command,
                                    SubscriptionObject::SubscriptionObjectPtr& subscription,
                                    SubscriptionTreeNodePtr& nodeResult)
{
    const UrlPath& urlPath = command.getUrlPath();
    if (urlPath.getCharacteristic() == UrlPath::INVALID)
    {
        KESA_LOG_ERROR("invalid characteristic in url path");
        return false;
    }
    if (m_level == urlPath.getCharacteristic())
    {
        KESA_LOG_TRACE("add subscription to tree");
        return m_groupedSubscriptionList.addSubscription(subscription);
    }
    UrlPath::Characteristic nextLevel;
    std::string key;
    getNextTreeLevel(m_level, urlPath, nextLevel, key);
    if (nextLevel == UrlPath::INVALID)
    {
        KESA_LOG_ERROR("cannot get next level in function: "
                       << "addChild");
        return false;
    }
    auto child = m_childNodeList.find(key);
    if (child == m_childNodeList.end())
        child = m_childNodeList.emplace(key, new SubscriptionTreeNode(nextLevel)).first;
    nodeResult = child->second;
    return nodeResult->addChild(websocket, command, subscription, nodeResult);
}

bool SubscriptionTreeNode::removeChild(const WebSocketProxy& websocket, const UrlPath& urlPath,
                                       SubscriptionTreeNodePtr& modifiedNode, SubscriptionList& removedSubscriptions)
{
    if (m_level == urlPath.getCharacteristic())
        return m_groupedSubscriptionList.removeSubscription(websocket, urlPath, removedSubscriptions);
    UrlPath::Characteristic nextLevel;
    std::string key;
    getNextTreeLevel(m_level, urlPath, nextLevel, key);
    const auto entry = m_childNodeList.find(key);
    if (entry == m_childNodeList.end())
        return false;
    SubscriptionTreeNodePtr child = entry->second;
    modifiedNode = child;
    const bool result = child->removeChild(websocket, urlPath, modifiedNode, removedSubscriptions);
    if (child->isEmpty())
        m_childNodeList.erase(entry);
    return result;
}

void SubscriptionTreeNode::prune(const UrlPath& urlPath)
{
    UrlPath::Characteristic nextLevel;
    std::string key;
    getNextTreeLevel(m_level, urlPath, nextLevel, key);
    const auto child = m_childNodeList.find(key);
    if (child == m_childNodeList.end())
        return;
    child->second->prune(urlPath);
    if (child->second->isEmpty())
        m_childNodeList.erase(child);
}

bool SubscriptionTreeNode::searchSubscriptions(const SubscriptionTreeNode* /*parentNode*/,
                                               Command::HttpRequest::RequestType requestType,
                                               const Command::RequestBase& requestCommand,
                                               GroupedSubscriptionList::GroupedSubList& foundSubscriptionList)
{
    const UrlPath& urlPath = requestCommand.getUrlPath();
    UrlPath::Characteristic nextLevel;
    std::string key;
    getNextTreeLevel(m_level, urlPath, nextLevel, key);
    const auto child = m_childNodeList.find(key);
    if (m_level == urlPath.getCharacteristic() || nextLevel == urlPath.getCharacteristic())
        m_groupedSubscriptionList.getGroupedList(foundSubscriptionList);
    if (child == m_childNodeList.end())
        return true;
    SubscriptionTreeNodePtr node = child->second;
    return node->searchSubscriptions(this, requestType, requestCommand, foundSubscriptionList);
}

bool SubscriptionTreeNode::removeByWebsocket(const WebSocketProxy& webSocket, SubscriptionList& removed)
{
    return m_groupedSubscriptionList.removeByWebsocket(webSocket, removed);
}

bool SubscriptionTreeNode::isEmpty() const
{
    return m_groupedSubscriptionList.isEmpty() && m_childNodeList.empty();
}

bool SubscriptionTreeNode::hasSubscriptionsForWebsocket(const WebSocketProxy& webSocket) const
{
    return m_groupedSubscriptionList.existsSubscriptionForWebsocket(webSocket);
}

void SubscriptionTreeNode::clear()
{
    m_childNodeList.clear();
    m_groupedSubscriptionList.clear();
}

SubscriptionTreeNode::SubscriptionList
SubscriptionTreeNode::getNodeSubscriptionsPerWebsocket(const WebSocketProxy& webSocket) const
{
    GroupedSubscriptionList::GroupedSubList groups;
    m_groupedSubscriptionList.getGroupedList(groups);
    SubscriptionList result;
    for (const auto& group: groups)
    {
        for (const auto& member: group)
        {
            if (webSocket == *member->getWebsocket())
                result.push_back(member);
        }
    }
    return result;
}

bool SubscriptionTreeNode::searchElementSubscriptionsPerWebsocketPerResource(const UrlPath& url,
                                                                             const WebSocketProxy& webSocket,
                                                                             SubscriptionList& out)
{
    const char* const function = "searchElementSubscriptionsPerWebsocketPerResource";
    out.clear();
    if (m_level != UrlPath::ROOT)
    {
        KESA_LOG_ERROR("Wrong entry level to get element subscriptions per websocket per resource");
        return false;
    }
    if (url.getCharacteristic() != UrlPath::SERVICE_RESOURCE)
    {
        KESA_LOG_ERROR("Wrong URL characteristic to get elem subscriptions per websocket per resource ");
        return false;
    }
    const auto service = m_childNodeList.find(url.getService());
    if (service == m_childNodeList.end())
    {
        KESA_LOG_ERROR(function << " no service found");
        return false;
    }
    const SubscriptionTreeChildList resources = service->second->getChildNodeList();
    const auto resource = resources.find(url.getResource());
    if (resource == resources.end())
    {
        KESA_LOG_ERROR(function << " no resource found");
        return false;
    }
    for (const auto& [key, element]: resource->second->getChildNodeList())
    {
        SubscriptionTreeNodePtr node = element;
        const SubscriptionList found = node->getNodeSubscriptionsPerWebsocket(webSocket);
        out.insert(out.end(), found.begin(), found.end());
    }
    return true;
}

SubscriptionTreeNode::SubscriptionTreeChildList SubscriptionTreeNode::getChildNodeList() const
{
    return m_childNodeList;
}

} // namespace Kesa::Service
