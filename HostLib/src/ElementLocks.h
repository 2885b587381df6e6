#pragma once

#include "Export.h"
#include "Mutex.h"

#include <array>
#include <functional>
#include <string>

namespace Kesa::Host
{

/// One mutex for each element, so that a condition on its state is judged and the state changed in one step. Elements
/// share mutexes by chance; nobody takes two.
///
/// Threads: of() from any thread.
class KESA_API ElementLocks
{
public:
    /// The mutex of an element: guards its state against other writers through HTTP. Held while the data access point
    /// is called, and by no one who reports a change.
    Util::FastMutex& of(const std::string& service, const std::string& resource, const std::string& element)
    {
        return m_mutexes[std::hash<std::string>()(service + "/" + resource + "/" + element) % m_mutexes.size()];
    }

private:
    static constexpr std::size_t COUNT = 64; ///< many more than threads that write

    std::array<Util::FastMutex, COUNT> m_mutexes;
};

} // namespace Kesa::Host
