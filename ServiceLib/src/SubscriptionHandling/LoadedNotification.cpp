#include "LoadedNotification.h"

#include <Command/WebSocketRequestObject.h>

#include <atomic>

namespace Kesa::Service
{

using Command::WebSocketRequestObject;
using Command::WebSocketResponseObject;
using Util::FastMutex;
using Util::ScopedLock;

Poco::UInt64 LoadedNotification::nextNumber()
{
    static std::atomic<Poco::UInt64> counter{0};
    return ++counter;
}

LoadedNotification::LoadedNotification(const WebSocketRequestObject& request)
    : WebSocketResponseObject(request), m_number(nextNumber()), m_eventText(request.getEvent().toString())
{
}

namespace
{
Poco::UInt64 numberOfObject(const WebSocketResponseObject* notification)
{
    const auto* loaded = dynamic_cast<const LoadedNotification*>(notification);
    return loaded ? LoadedNotification::numberOf(*loaded) : 0;
}
} // namespace

LoadedNotification::LoadedNotification(const WebSocketRequestObject& request, const WebSocketResponseObject& source)
    : WebSocketResponseObject(request), m_number(numberOfObject(&source)), m_eventText(request.getEvent().toString())
{
    copyObject(&source);
    setEvent(request.getEvent());
}

Poco::UInt64 LoadedNotification::numberOf(const LoadedNotification& notification)
{
    return notification.m_number;
}

Poco::UInt64 LoadedNotification::numberOf(const NotificationPtr& notification)
{
    return numberOfObject(notification.get());
}

bool LoadedNotification::fitsEvent(const NotificationPtr& notification, const std::string& event)
{
    const auto* loaded = dynamic_cast<const LoadedNotification*>(notification.get());
    return loaded && loaded->m_eventText == event;
}

bool LoadedNotification::compare(Comparer comparer, const NotificationPtr& last, const NotificationPtr& next)
{
    const Poco::UInt64 lastNumber = numberOf(last);
    auto* loaded = dynamic_cast<LoadedNotification*>(const_cast<WebSocketResponseObject*>(next.get()));
    if (lastNumber == 0 || !loaded)
        return comparer(last, next);
    {
        ScopedLock<FastMutex> lock(loaded->m_comparisonMutex);
        if (loaded->m_comparer == comparer && loaded->m_comparedWith == lastNumber)
            return loaded->m_isEqual;
    }
    const bool isEqual = comparer(last, next);
    ScopedLock<FastMutex> lock(loaded->m_comparisonMutex);
    loaded->m_comparer = comparer;
    loaded->m_comparedWith = lastNumber;
    loaded->m_isEqual = isEqual;
    return isEqual;
}

} // namespace Kesa::Service
