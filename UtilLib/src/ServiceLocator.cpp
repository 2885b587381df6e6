#include "ServiceLocator.h"

#include <algorithm>

using Kesa::Util::FastMutex;
using Kesa::Util::ScopedLock;

namespace
{
template <class Entries>
auto findEntry(Entries& entries, const std::type_info& key)
{
    return std::find_if(entries.begin(), entries.end(), [&key](const auto& entry) { return *entry.first == key; });
}
} // namespace

bool ServiceLocator::find(const std::type_info* key, Poco::Any& out) const
{
    Poco::Any previous; // dies after the lock, as below
    ScopedLock<FastMutex> lock(m_mutex);
    const auto entry = findEntry(m_entries, *key);
    if (entry == m_entries.end())
        return false;
    previous.swap(out);
    out = entry->second;
    return true;
}

void ServiceLocator::insert(const std::type_info* key, Poco::Any value)
{
    ScopedLock<FastMutex> lock(m_mutex);
    m_entries.emplace_back(key, value);
}

bool ServiceLocator::erase(const std::type_info* key)
{
    Poco::Any released; // dies after the lock: a service's destructor may come back here
    ScopedLock<FastMutex> lock(m_mutex);
    const auto entry = findEntry(m_entries, *key);
    if (entry == m_entries.end())
        return false;
    released.swap(entry->second);
    m_entries.erase(entry);
    return true;
}
