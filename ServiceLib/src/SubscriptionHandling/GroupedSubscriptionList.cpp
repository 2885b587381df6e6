#include "GroupedSubscriptionList.h"

#include <Command/UrlPath.h>
#include <LogStream.h>

#include <iterator>

namespace Kesa::Service
{

bool GroupedSubscriptionList::addSubscription(const SubscriptionObject::SubscriptionObjectPtr& subscription)
{
    if (subscription.isNull())
    {
        KESA_LOG_ERROR("SubscriptionObjectPtr is null, function: "
                       << "addSubscription");
        return false;
    }
    m_subscriptionMap[subscription->getUri().getPathAndQuery()].push_back(subscription);
    return true;
}

void GroupedSubscriptionList::getGroupedList(GroupedSubList& out) const
{
    for (const auto& [key, members]: m_subscriptionMap)
        out.push_back(members);
}

void GroupedSubscriptionList::clear()
{
    m_subscriptionMap.clear();
}

bool GroupedSubscriptionList::isEmpty() const
{
    return m_subscriptionMap.empty();
}

bool GroupedSubscriptionList::removeSubscription(const Net::WebSocketProxy& webSocket, const Command::UrlPath& url,
                                                 SubscriptionList& removed)
{
    return internal_removeSubscriptions(removed, webSocket, &url);
}

bool GroupedSubscriptionList::removeByWebsocket(const Net::WebSocketProxy& webSocket, SubscriptionList& removed)
{
    return internal_removeSubscriptions(removed, webSocket, nullptr);
}

bool GroupedSubscriptionList::existsSubscriptionForWebsocket(const Net::WebSocketProxy& webSocket) const
{
    for (const auto& [key, members]: m_subscriptionMap)
    {
        for (const auto& member: members)
        {
            if (!member.isNull() && webSocket == *member->getWebsocket())
                return true;
        }
    }
    return false;
}

bool GroupedSubscriptionList::internal_removeSubscriptions(SubscriptionList& removed,
                                                           const Net::WebSocketProxy& webSocket,
                                                           const Command::UrlPath* url)
{
    bool result = false;
    const auto isWanted = [&](const SubscriptionObject& member)
    {
        return webSocket == *member.getWebsocket() &&
               (!url || (member.getUri().getPath() == url->getUri().getPath() &&
                         member.getUri().getFragment() == url->getUri().getFragment()));
    };
    for (auto group = m_subscriptionMap.begin(); group != m_subscriptionMap.end();)
    {
        SubscriptionList& members = group->second;
        for (auto member = members.begin(); member != members.end();)
        {
            if (!isWanted(**member)) // a null member raises
            {
                ++member;
                continue;
            }
            removed.push_back(*member);
            member = members.erase(member);
            result = true;
        }
        group = members.empty() ? m_subscriptionMap.erase(group) : std::next(group);
    }
    return result;
}

} // namespace Kesa::Service
