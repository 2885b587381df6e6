#pragma once

#include "SubscriptionObject.h"

#include <map>
#include <string>
#include <vector>

namespace Kesa::Command
{
class UrlPath;
}

namespace Kesa::Service
{

/// The subscriptions that end at one node, grouped by path and query: those of one group behave alike when data
/// changes.
///
/// Invariant: no group is empty.
/// Ownership: shares its members until they are removed, then hands its share to the caller.
/// Threads:   no lock of its own; reached under the tree's mutex.
class KESA_API GroupedSubscriptionList
{
public:
    typedef std::vector<SubscriptionObject::SubscriptionObjectPtr> SubscriptionList; ///< members in order of arrival
    typedef std::map<std::string, SubscriptionList> GroupedSubMap;
    typedef std::vector<SubscriptionList> GroupedSubList;

    /// Appends to its group; a repeated subscription is kept as a member of its own. False for null.
    bool addSubscription(const SubscriptionObject::SubscriptionObjectPtr& subscription);
    /// Appends a copy of each group to `out`, in key order.
    void getGroupedList(GroupedSubList& out) const;
    void clear();
    /// True when there is no group, and so no subscription.
    bool isEmpty() const;
    /// Moves the connection's members with the path and fragment of `url`, whatever their query, to the end of
    /// `removed`; true if there were any. A null member raises Poco::NullPointerException; those before it are moved.
    bool removeSubscription(const Net::WebSocketProxy& webSocket, const Command::UrlPath& url,
                            SubscriptionList& removed);
    /// Moves all members of the connection to the end of `removed`, under the same terms.
    bool removeByWebsocket(const Net::WebSocketProxy& webSocket, SubscriptionList& removed);
    /// Whether any member belongs to the connection.
    bool existsSubscriptionForWebsocket(const Net::WebSocketProxy& webSocket) const;

private:
    bool internal_removeSubscriptions(SubscriptionList& removed, const Net::WebSocketProxy& webSocket,
                                      const Command::UrlPath* url);

    GroupedSubMap m_subscriptionMap;
};

} // namespace Kesa::Service
