#include "LoadedNotification.h"

#include <Command/WebSocketRequestObject.h>

#include <atomic>

namespace Kesa::Service
{

using Command::WebSocketRequestObject;
using Command::WebSocketResponseObject;
using Util::FastMutex;
using Util::ScopedLock;

namespace
{

const LoadedNotification* asLoaded(const WebSocketResponseObject* notification)
{
    return dynamic_cast<const LoadedNotification*>(notification);
}

} // namespace

Poco::UInt64 LoadedNotification::nextNumber()
{
    static std::atomic<Poco::UInt64> counter{0};
    return ++counter;
}

LoadedNotification::LoadedNotification(const WebSocketRequestObject& request)
    : WebSocketResponseObject(request), m_number(nextNumber()), m_endNumber(m_number)
{
}

LoadedNotification::LoadedNotification(const WebSocketRequestObject& request, const WebSocketResponseObject& source)
    : WebSocketResponseObject(request),
      m_number(asLoaded(&source) ? asLoaded(&source)->m_number : nextNumber()),
      m_endNumber(asLoaded(&source) ? asLoaded(&source)->m_endNumber : m_number)
{
    copyObject(&source);
    setEvent(request.getEvent());
    m_eventText = getText(WebSocketRequestObject::FIELD_EVENT);
}

void LoadedNotification::seal()
{
    m_endNumber = nextNumber();
    takeSnapshot();
    m_eventText = getText(WebSocketRequestObject::FIELD_EVENT);
}

Poco::UInt64 LoadedNotification::numberOf(const NotificationPtr& notification)
{
    const LoadedNotification* loaded = asLoaded(notification.get());
    return loaded ? loaded->m_number : 0;
}

Poco::UInt64 LoadedNotification::endNumberOf(const NotificationPtr& notification)
{
    const LoadedNotification* loaded = asLoaded(notification.get());
    return loaded ? loaded->m_endNumber : 0;
}

bool LoadedNotification::fitsEvent(const NotificationPtr& notification, const std::string& event)
{
    const LoadedNotification* loaded = asLoaded(notification.get());
    return loaded && loaded->m_eventText == event;
}

bool LoadedNotification::compare(Comparer comparer, const NotificationPtr& last, const NotificationPtr& next)
{
    const Poco::UInt64 lastNumber = numberOf(last);
    const LoadedNotification* loaded = asLoaded(next.get());
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
