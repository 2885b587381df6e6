#pragma once

#include <Command/WebSocketResponseObject.h>
#include <Mutex.h>

#include <Poco/SharedPtr.h>
#include <Poco/Types.h>

#include <string>

namespace Kesa::Service
{

/// A notification that came out of a load of data, with what delivery has to know of that load. Once its data has been
/// filled in it is not changed any more, so a group shares one; only a copy of a periodic subscription's own is ever
/// stamped.
class LoadedNotification final: public Command::WebSocketResponseObject
{
public:
    typedef Poco::SharedPtr<Command::WebSocketResponseObject> NotificationPtr;
    typedef bool (*Comparer)(const NotificationPtr&, const NotificationPtr&);

    /// Process-wide and rising: the place in time of a load's beginning, or of the arrival of a change.
    static Poco::UInt64 nextNumber();

    /// The start of a load for a request: its number is taken here.
    explicit LoadedNotification(const Command::WebSocketRequestObject& request);
    /// What `request` makes of a notification that a neighbour of its group has loaded: the same content under its own
    /// event.
    LoadedNotification(const Command::WebSocketRequestObject& request, const Command::WebSocketResponseObject& source);

    /// The number of the load; 0 for a notification that came from elsewhere, and for none.
    static Poco::UInt64 numberOf(const NotificationPtr& notification);
    static Poco::UInt64 numberOf(const LoadedNotification& notification);

    /// True if this is what `request` would make of it: a shared one saves the copy.
    static bool fitsEvent(const NotificationPtr& notification, const std::string& event);

    /// The comparer's answer for the two, remembered in `next`, since the members of a group ask the same question.
    static bool compare(Comparer comparer, const NotificationPtr& last, const NotificationPtr& next);

private:
    const Poco::UInt64 m_number;
    const std::string m_eventText;

    Util::FastMutex m_comparisonMutex;
    Comparer m_comparer KESA_GUARDED_BY(m_comparisonMutex) = nullptr;
    Poco::UInt64 m_comparedWith KESA_GUARDED_BY(m_comparisonMutex) = 0; ///< number of the notification compared with
    bool m_isEqual KESA_GUARDED_BY(m_comparisonMutex) = false;
};

} // namespace Kesa::Service
