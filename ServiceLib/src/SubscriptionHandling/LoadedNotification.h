#pragma once

#include <Command/WebSocketResponseObject.h>
#include <Mutex.h>

#include <Poco/SharedPtr.h>
#include <Poco/Types.h>

#include <string>

namespace Kesa::Service
{

/// A notification that came out of a load of data, with what delivery has to know of that load.
///
/// Ownership: shared by the members of a group whose event is the same. Nobody changes it once it is sealed; a periodic
///            subscription stamps a copy of its own.
/// Threads:   one thread fills and seals it; then many may read it and compare it at once.
class LoadedNotification final: public Command::WebSocketResponseObject
{
public:
    typedef Poco::SharedPtr<Command::WebSocketResponseObject> NotificationPtr;
    typedef bool (*Comparer)(const NotificationPtr&, const NotificationPtr&);

    /// Process-wide and rising: the place in time of a load's beginning or end, or of the arrival of a change.
    static Poco::UInt64 nextNumber();

    /// The start of a load for a request: its number is taken here.
    explicit LoadedNotification(const Command::WebSocketRequestObject& request);
    /// What `request` makes of a notification that a neighbour of its group has loaded: the same content and number
    /// under its own event. One that came out of no load gets the number of this moment.
    LoadedNotification(const Command::WebSocketRequestObject& request, const Command::WebSocketResponseObject& source);

    /// The load has ended: what it brought is this object's own from now on.
    void seal();

    /// The number of the load; 0 for a notification that came out of none, and for an empty pointer.
    static Poco::UInt64 numberOf(const NotificationPtr& notification);
    /// The number that was taken when the load ended; 0 as above.
    static Poco::UInt64 endNumberOf(const NotificationPtr& notification);
    /// True if this is just what a request with that event would make of it, so that it can be shared.
    static bool fitsEvent(const NotificationPtr& notification, const std::string& event);
    /// The comparer's answer for the two, remembered in `next`, since the members of a group ask the same question.
    static bool compare(Comparer comparer, const NotificationPtr& last, const NotificationPtr& next);

private:
    const Poco::UInt64 m_number;
    Poco::UInt64 m_endNumber;
    std::string m_eventText; ///< empty until it is sealed

    mutable Util::FastMutex m_comparisonMutex;
    mutable Comparer m_comparer KESA_GUARDED_BY(m_comparisonMutex) = nullptr;
    mutable Poco::UInt64 m_comparedWith KESA_GUARDED_BY(m_comparisonMutex) = 0; ///< number of the one compared with
    mutable bool m_isEqual KESA_GUARDED_BY(m_comparisonMutex) = false;
};

} // namespace Kesa::Service
