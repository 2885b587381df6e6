#pragma once

#include "Export.h"
#include "Mutex.h"

#include <memory>
#include <string>
#include <unordered_map>

namespace Kesa::Host
{

/// Counts the connections of a front door, in all and for each address, and says when there are enough.
///
/// Threads: every operation from any thread.
class KESA_API ConnectionCaps
{
public:
    ConnectionCaps(std::size_t inAll, std::size_t perAddress): m_inAll(inAll), m_perAddress(perAddress) {}
    ConnectionCaps(const ConnectionCaps&) = delete;
    ConnectionCaps& operator=(const ConnectionCaps&) = delete;

    /// Counts one connection from that address; false, and not counted, if there are enough of them.
    bool enter(const std::string& address);
    /// Takes one connection of that address off the count.
    void leave(const std::string& address);
    /// How many connections there are.
    std::size_t count() const;

private:
    const std::size_t m_inAll;
    const std::size_t m_perAddress;
    mutable Kesa::Util::FastMutex m_mutex;
    std::size_t m_count KESA_GUARDED_BY(m_mutex) = 0;
    std::unordered_map<std::string, std::size_t> m_addresses KESA_GUARDED_BY(m_mutex);
};

} // namespace Kesa::Host
