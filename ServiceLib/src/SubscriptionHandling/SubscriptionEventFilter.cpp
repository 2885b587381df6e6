#include <SubscriptionHandling/SubscriptionEventFilter.h>

#include "SubscriptionManager.h"

#include <LogStream.h>

#include <Poco/Bugcheck.h>
#include <Poco/Delegate.h>

#include <algorithm>

namespace Kesa
{

/// The entry of this delegate under this URL, or the end.
template <class Delegate>
typename EventCollection<Delegate>::const_iterator findPair(const Command::UrlPath& url, const Delegate& delegate,
                                                            const EventCollection<Delegate>& events)
{
    const auto range = events.equal_range(url);
    for (auto entry = range.first; entry != range.second; ++entry)
    {
        if (!entry->second.isNull() && entry->second->equals(delegate))
            return entry;
    }
    return events.end();
}

/// Calls the listeners of exactly this URL. One that removes itself is safe: it is kept alive, and passed, before its
/// call. What a listener registers for this URL is called in the same pass.
template <class Delegate, class Payload>
void notify(const Command::UrlPath& url, Payload& payload, const EventCollection<Delegate>& events)
{
    const auto range = events.equal_range(url);
    for (auto entry = range.first; entry != range.second;)
    {
        Poco::SharedPtr<Delegate> listener = entry->second;
        if (listener.isNull())
            Poco::Bugcheck::bugcheck(__FILE__, __LINE__);
        ++entry;
        listener->notify(nullptr, payload);
        if (entry != range.second)
            continue;
        // It was the last one: what it registered stands behind it.
        entry = std::find_if(events.lower_bound(url), range.second,
                             [&listener](const auto& other) { return other.second == listener; });
        if (entry != range.second)
            ++entry;
    }
}

} // namespace Kesa

namespace Kesa::Service
{

using Command::UrlPath;
using Util::Mutex;
using Util::ReadLock;
using Util::ScopedLock;
using Util::WriteLock;

namespace
{

/// `kind` is "addition" or "removal".
bool refuseInvalid(const UrlPath& url, const char* kind)
{
    if (url.isValid())
        return false;
    KESA_LOG_WARNING("can't register event-filter of " << kind << " for invalid URI: \"" << url.getUri().toString()
                                                       << "\"");
    return true;
}

template <class Delegate>
bool insertNew(const UrlPath& url, const Delegate& delegate, const char* kind, EventCollection<Delegate>& events)
{
    if (findPair(url, delegate, events) != events.end())
    {
        KESA_LOG_WARNING("duplicate event-filter registration of " << kind << " for URI: \"" << url.getUri().toString()
                                                                   << "\"");
        return false;
    }
    events.emplace(url, static_cast<Delegate*>(delegate.clone()));
    return true;
}

template <class Delegate>
bool eraseOne(const UrlPath& url, const Delegate& delegate, EventCollection<Delegate>& events)
{
    const auto entry = findPair(url, delegate, events);
    if (entry == events.end())
        return false;
    events.erase(entry);
    return true;
}

} // namespace

SubscriptionEventFilter::SubscriptionEventFilter() = default;

SubscriptionEventFilter::~SubscriptionEventFilter() = default;

bool SubscriptionEventFilter::registerEvent(const UrlPath& subscriptionUrl, const AddEventDelegate& addEvent)
{
    if (refuseInvalid(subscriptionUrl, "addition"))
        return false;
    WriteLock lock(m_additionLock);
    return insertNew(subscriptionUrl, addEvent, "addition", m_additionEvents);
}

bool SubscriptionEventFilter::registerEvent(const UrlPath& subscriptionUrl, const RemoveEventDelegate& removeEvent)
{
    if (refuseInvalid(subscriptionUrl, "removal"))
        return false;
    ScopedLock<Mutex> lock(m_removalMutex);
    return insertNew(subscriptionUrl, removeEvent, "removal", m_removalEvents);
}

bool SubscriptionEventFilter::removeEvent(const UrlPath& subscriptionUrl, const AddEventDelegate& addEvent)
{
    WriteLock lock(m_additionLock);
    return eraseOne(subscriptionUrl, addEvent, m_additionEvents);
}

bool SubscriptionEventFilter::removeEvent(const UrlPath& subscriptionUrl, const RemoveEventDelegate& removeEvent)
{
    ScopedLock<Mutex> lock(m_removalMutex);
    return eraseOne(subscriptionUrl, removeEvent, m_removalEvents);
}

void SubscriptionEventFilter::connect(SubscriptionManager& mgr)
{
    mgr.SubscriptionAdded += Poco::Delegate<SubscriptionEventFilter, SubscriptionAddedEventPayload, false>(
        this, &SubscriptionEventFilter::notifyAdditions);
    mgr.SubscriptionRemoved += Poco::Delegate<SubscriptionEventFilter, SubscriptionRemovedEventPayload, false>(
        this, &SubscriptionEventFilter::notifyRemovals);
}

void SubscriptionEventFilter::disconnect(SubscriptionManager& mgr)
{
    mgr.SubscriptionAdded -= Poco::Delegate<SubscriptionEventFilter, SubscriptionAddedEventPayload, false>(
        this, &SubscriptionEventFilter::notifyAdditions);
    mgr.SubscriptionRemoved -= Poco::Delegate<SubscriptionEventFilter, SubscriptionRemovedEventPayload, false>(
        this, &SubscriptionEventFilter::notifyRemovals);
}

void SubscriptionEventFilter::notifyAdditions(SubscriptionAddedEventPayload& payload)
{
    ReadLock lock(m_additionLock);
    notify(payload.subscription.getUrlPath(), payload, m_additionEvents);
}

void SubscriptionEventFilter::notifyRemovals(SubscriptionRemovedEventPayload& payload)
{
    ScopedLock<Mutex> lock(m_removalMutex);
    notify(payload.subscription.getUrlPath(), payload, m_removalEvents);
}

} // namespace Kesa::Service
