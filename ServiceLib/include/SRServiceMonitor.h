#pragma once

#include "Export.h"
#include "Mutex.h"

#include <Poco/BasicEvent.h>
#include <Poco/Timer.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace Poco::Net
{
class HTTPClientSession;
}

namespace Kesa
{

/// Failed checks that are tolerated before the registry counts as unreachable.
inline constexpr std::uint32_t N_ReadSR_Retry = 4;
/// Period between retries, in milliseconds.
inline constexpr std::uint32_t T_ReadSR_Retry = 500;

namespace Service
{

class RegistryExchangeLimit;

/// Watches whether the service registry answers, and whether the entries of this process's services are still there.
///
/// The first check comes 10 seconds after construction, then one every 10 seconds. A failed check is repeated after
/// 500 ms; the fifth failure since the registry was last given up declares it unreachable, however many good checks lie
/// between. Entries are checked only while the registry answers. An exchange that takes longer than 10 seconds has
/// failed.
///
/// Threads:  addUUID(), removeUUID() and removeUUIDs() from any thread; they block while entries are checked. Both the
///           checks and the events run on the monitor's timer thread, taken from the default thread pool. A listener
///           that blocks delays the checks. A listener may call the three operations.
/// Errors:   the constructor raises Poco::NoThreadAvailableException if the default thread pool has no thread. What
///           leaves a check as an exception goes to Poco::ErrorHandler, and the checks go on.
/// Shutdown: the destructor waits for a running check; a RegistryExchangeLimit in whose scope the monitor was built can
///           end that. A listener must not destroy its monitor.
class KESA_API SRServiceMonitor
{
public:
    enum SRStatus
    {
        REACHABLE = 0,
        UNREACHABLE = 1,
        UNKNOWN = 2
    };

    typedef std::vector<std::string> UUIDList_t;

    /// Whether the registry answers. REACHABLE may come twice in a row, since a short outage is not reported.
    Poco::BasicEvent<SRStatus, Poco::FastMutex> ServiceRegistryStatus;
    /// The id of an entry that is gone. It is no longer watched: register anew and call addUUID() to watch it again.
    Poco::BasicEvent<std::string, Poco::FastMutex> ServiceEntryGone;

    SRServiceMonitor();
    virtual ~SRServiceMonitor();
    SRServiceMonitor(const SRServiceMonitor&) = delete;
    SRServiceMonitor& operator=(const SRServiceMonitor&) = delete;

    /// Watches the entry with this id; an id that is added twice is checked twice.
    void addUUID(const std::string& uuid);
    /// Stops watching the entry with this id, once. An unknown id is ignored.
    void removeUUID(const std::string& uuid);
    /// Stops watching all entries.
    void removeUUIDs();

private:
    void onCheckInterval(Poco::Timer& timer);
    void checkServiceRegistry(Poco::Net::HTTPClientSession& session, std::uint32_t& period);
    void checkServiceEntries(Poco::Net::HTTPClientSession& session);
    long checkSRFailed();
    void restartTimer(std::uint32_t period);
    void noteListSize() KESA_REQUIRES(m_listMutex);

    Util::Mutex m_listMutex; ///< held while entries are checked and while ServiceEntryGone is raised
    UUIDList_t m_serviceUUIDs KESA_GUARDED_BY(m_listMutex);
    Poco::Timer m_timer;
    const std::uint32_t m_T_Check_SR;        ///< normal period, in milliseconds
    SRStatus m_SRStatus;                     ///< of the timer thread alone
    std::uint8_t m_retryCount;               ///< of the timer thread alone
    const std::uint32_t m_SRFailRetryFactor; ///< times T_ReadSR_Retry is the pause after giving up
    RegistryExchangeLimit* const m_limit;    ///< of the thread that built the monitor; borrowed, may be null

    std::atomic<bool> m_hasUUIDs; ///< atomic, since a cycle looks at it without the mutex
    /// Guards m_isEnding and each restart of the timer, since a restart after the timer's stop would revive it and make
    /// the stop wait for ever. A leaf.
    Util::FastMutex m_endMutex;
    bool m_isEnding KESA_GUARDED_BY(m_endMutex);
    std::atomic<bool> m_isCleared; ///< atomic: ends a walk over the entries from the destructor, without the mutex
};

} // namespace Service
} // namespace Kesa
