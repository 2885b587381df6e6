#pragma once

#include "Export.h"

#include <Mutex.h>

#include <condition_variable>
#include <deque>
#include <memory>

namespace Kesa::Net
{

class Connection;

/// Connections on their way to a thread that has something to do for them. A connection stands in it once at most,
/// which is its bound.
///
/// Threads: any number put, one takes.
class KESA_API ConnectionQueue
{
public:
    typedef std::shared_ptr<Connection> Entry;

    void push(const Entry& connection);

    /// Waits for an entry and takes it; null when the queue is empty and finished.
    Entry pop();

    /// Makes pop() return null instead of waiting.
    void finish();

private:
    Kesa::Util::FastMutex m_mutex; // taken alone
    std::condition_variable_any m_changed;
    std::deque<Entry> m_entries KESA_GUARDED_BY(m_mutex);
    bool m_isFinished KESA_GUARDED_BY(m_mutex) = false;
};

} // namespace Kesa::Net
