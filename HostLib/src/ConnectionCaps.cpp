#include "ConnectionCaps.h"

namespace Kesa::Host
{

using Kesa::Util::FastMutex;
using Kesa::Util::ScopedLock;

bool ConnectionCaps::enter(const std::string& address)
{
    ScopedLock<FastMutex> lock(m_mutex);
    if (m_count >= m_inAll)
        return false;
    const auto known = m_addresses.find(address);
    if (known == m_addresses.end() ? m_perAddress == 0 : known->second >= m_perAddress)
        return false;
    ++m_addresses[address];
    ++m_count;
    return true;
}

void ConnectionCaps::leave(const std::string& address)
{
    ScopedLock<FastMutex> lock(m_mutex);
    const auto known = m_addresses.find(address);
    if (--known->second == 0)
        m_addresses.erase(known);
    --m_count;
}

std::size_t ConnectionCaps::count() const
{
    ScopedLock<FastMutex> lock(m_mutex);
    return m_count;
}

} // namespace Kesa::Host
