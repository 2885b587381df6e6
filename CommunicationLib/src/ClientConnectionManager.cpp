#include "ClientConnectionManager.h"

namespace Kesa::Net
{

ClientConnectionManager::ClientConnectionManager() = default;

ClientConnectionManager::~ClientConnectionManager() = default;

void ClientConnectionManager::setPrerequisite(Prerequisite::State state)
{
    const Poco::Mutex::ScopedLock lock(m_mutex);
    m_prerequisite = state;
}

bool ClientConnectionManager::isReady() const
{
    const Poco::Mutex::ScopedLock lock(m_mutex);
    return m_prerequisite;
}

void ClientConnectionManager::setLimits(const ConnectionLimits& limits)
{
    const Poco::Mutex::ScopedLock lock(m_mutex);
    m_limits = limits;
}

bool ClientConnectionManager::admit(const Poco::Net::IPAddress& address)
{
    const Poco::Mutex::ScopedLock lock(m_mutex);
    const auto found = m_connections.find(address);
    const std::size_t ofAddress = found == m_connections.end() ? 0 : found->second;
    if (count() >= m_limits.total || ofAddress >= m_limits.perAddress)
        return false;
    ++m_connections[address];
    return true;
}

void ClientConnectionManager::release(const Poco::Net::IPAddress& address)
{
    const Poco::Mutex::ScopedLock lock(m_mutex);
    const auto found = m_connections.find(address);
    if (found != m_connections.end() && --found->second == 0)
        m_connections.erase(found);
}

std::size_t ClientConnectionManager::count() const
{
    const Poco::Mutex::ScopedLock lock(m_mutex);
    std::size_t sum = 0;
    for (const auto& [address, connections]: m_connections)
        sum += connections;
    return sum;
}

} // namespace Kesa::Net
