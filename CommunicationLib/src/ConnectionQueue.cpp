#include "ConnectionQueue.h"

namespace Kesa::Net
{

void ConnectionQueue::push(const Entry& connection)
{
    {
        const Kesa::Util::ScopedLock lock(m_mutex);
        m_entries.push_back(connection);
    }
    m_changed.notify_one();
}

ConnectionQueue::Entry ConnectionQueue::pop()
{
    const Kesa::Util::ScopedLock lock(m_mutex);
    while (m_entries.empty() && !m_isFinished)
        m_changed.wait(m_mutex);
    if (m_entries.empty())
        return nullptr;
    Entry first = std::move(m_entries.front());
    m_entries.pop_front();
    return first;
}

void ConnectionQueue::finish()
{
    {
        const Kesa::Util::ScopedLock lock(m_mutex);
        m_isFinished = true;
    }
    m_changed.notify_all();
}

} // namespace Kesa::Net
