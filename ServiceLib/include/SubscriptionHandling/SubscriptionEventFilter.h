#pragma once

#include "Command/UrlPath.h"
#include "Export.h"
#include "Mutex.h"
#include "SubscriptionEvents.h"

#include <Poco/SharedPtr.h>

#include <map>

namespace Kesa
{

/// Listeners by the URL that they listen to; those of one URL in the order of their registration. Each entry owns its
/// clone.
template <class Delegate>
using EventCollection = std::multimap<Command::UrlPath, Poco::SharedPtr<Delegate>>;

} // namespace Kesa

namespace Kesa::Service
{

class SubscriptionManager;

/// Narrows the manager's events down to the subscriptions of one exact URL: a service starts a stream of data when the
/// first client comes, and stops it when the last one goes.
///
/// Ownership: keeps clones of the delegates that it is given.
/// Threads: every operation from any thread. Listeners run on the thread that changed the subscription, with the lock
/// of their kind held: filter lock first, a listener's own lock second. Calls of one listener run one at a time. A
/// listener of additions must not register or remove listeners of additions, but may those of removals; a listener of
/// removals may register or remove listeners of removals, itself included, but neither the one that follows its own nor
/// any of additions. Errors: an exception of a listener skips the remaining ones and goes to the thread that changed
/// the subscription.
class KESA_API SubscriptionEventFilter
{
public:
    SubscriptionEventFilter();
    SubscriptionEventFilter(const SubscriptionEventFilter&) = delete;
    SubscriptionEventFilter& operator=(const SubscriptionEventFilter&) = delete;

    /// Adds a listener for the subscriptions of one URL, whatever their query. False, with a Warning in the log, for an
    /// invalid URL and for a delegate that is registered there already.
    bool registerEvent(const Command::UrlPath& subscriptionUrl, const AddEventDelegate& addEvent);
    bool registerEvent(const Command::UrlPath& subscriptionUrl, const RemoveEventDelegate& removeEvent);

    /// Removes a listener; true if there was one.
    bool removeEvent(const Command::UrlPath& subscriptionUrl, const AddEventDelegate& addEvent);
    bool removeEvent(const Command::UrlPath& subscriptionUrl, const RemoveEventDelegate& removeEvent);

    /// Begins to listen to the manager's events. The listeners registered here stay when it ends.
    void connect(SubscriptionManager& mgr);
    /// Ends listening; when it returns no listener is running and none will start. Not from a listener.
    void disconnect(SubscriptionManager& mgr);

protected:
    ~SubscriptionEventFilter();

private:
    typedef EventCollection<AddEventDelegate> AdditionEventCollection;
    typedef EventCollection<RemoveEventDelegate> RemovalEventCollection;

    void notifyAdditions(SubscriptionAddedEventPayload& payload);
    void notifyRemovals(SubscriptionRemovedEventPayload& payload);

    Util::RWLock m_additionLock;
    Util::Mutex m_removalMutex; ///< recursive, since a listener of removals may come back
    AdditionEventCollection m_additionEvents KESA_GUARDED_BY(m_additionLock);
    RemovalEventCollection m_removalEvents KESA_GUARDED_BY(m_removalMutex);
};

} // namespace Kesa::Service
