#pragma once

#include "Data/MicroServiceInfo.h"

#include "Mutex.h"
#include "RegistryExchangeLimit.h"
#include "SRServiceMonitor.h"
#include "ServiceRegistrationHelper.h"

#include <Poco/Event.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace Kesa::Host
{

/// Keeps one service listed at the service registry, on a thread of its own: registers it, watches its entry, and
/// registers it again when the entry is gone. ServiceHost has one; a program without a host may use it by itself.
///
///     RegistryAgent agent(entry);     // refuses a name that no registry takes
///     agent.start();                  // returns at once, whether or not there is a registry
///     agent.stop();                   // unregisters
///
/// A registry that is down, hangs or refuses delays nothing: the service is registered when the registry is there. A
/// registry that came back with its entries keeps the entry that it has; one that came back without is told within 20
/// seconds. After each registration, entries that an earlier one with the same name, host and port left behind are
/// removed: a registration whose answer was lost, or a process that was killed there.
///
/// What happened is logged once for each change of state, besides what the registry client logs.
///
/// Threads:  start() and stop() from one thread; id() from any. The monitor takes a thread of the default thread pool;
///           while there is none the service is registered but not watched, and this is tried again.
/// Errors:   the constructor raises Poco::InvalidArgumentException for a name that is no service name, and
///           Poco::InvalidAccessException for an entry without name, host or port.
/// Shutdown: stop() (idempotent) waits at most two seconds for the registry; the destructor calls it.
class KESA_API RegistryAgent
{
public:
    static constexpr long STOP_TIME = 2000; ///< ms that a stop waits for the registry

    /// Waiting times in milliseconds, 1 or more.
    struct Times
    {
        long look = 1000;   ///< between two looks whether anybody listens at the registry's address, while nobody does
        long retry = 10000; ///< after which a registration that failed is tried again; as often as the monitor looks
        /// Before a registration that follows a loss or a failure, a random time up to this one passes, so that all the
        /// services of a registry that came back do not return in the same instant.
        long jitter = 5000;
    };

    explicit RegistryAgent(const MicroServiceInfo& service);
    RegistryAgent(const MicroServiceInfo& service, const Times& times);
    ~RegistryAgent();
    RegistryAgent(const RegistryAgent&) = delete;
    RegistryAgent& operator=(const RegistryAgent&) = delete;

    /// Begins, and returns at once. For the first call only.
    void start();
    /// Unregisters and ends.
    void stop();

    /// The id of the present entry, empty while there is none.
    std::string id() const;

private:
    enum class State
    {
        STARTING,
        REGISTERED,
        UNREACHABLE, ///< nobody answers at the registry's address
        REFUSED,     ///< somebody answers there, but does not register
        LOST
    };

    void run();
    bool keepRegistered();
    bool recover();
    void startMonitor();
    void registerService();
    void watch();
    bool removeStrayEntries();
    bool isStray(const MicroServiceInfo& entry) const;
    bool waitForNews();
    void handleNews();
    void leave();
    bool isRegistryThere() const;
    void enter(State state, const std::string& text);
    void setId(const std::string& id);
    void onStatus(Service::SRServiceMonitor::SRStatus& status);
    void onEntryGone(std::string& id);

    const MicroServiceInfo m_service;
    const Times m_times;
    const std::string m_name; ///< of the service, in quotes, for the log

    mutable Util::FastMutex m_mutex; ///< a leaf; taken by the monitor's listeners, under the monitor's mutex
    std::string m_id KESA_GUARDED_BY(m_mutex);
    bool m_isGone KESA_GUARDED_BY(m_mutex) = false; ///< the entry m_id
    /// The last report that was not handled yet; UNKNOWN: none.
    Service::SRServiceMonitor::SRStatus m_status KESA_GUARDED_BY(m_mutex) = Service::SRServiceMonitor::UNKNOWN;

    Poco::Event m_news;                                 ///< something for the thread to look at
    Poco::Event m_stop{Poco::Event::EVENT_MANUALRESET}; ///< ends the thread
    Service::RegistryExchangeLimit m_limit;             ///< bounds every exchange once stop() was called

    // Of the thread alone.
    std::unique_ptr<Service::ServiceRegistrationHelper> m_helper; ///< holds the present entry and nothing else
    std::unique_ptr<Service::SRServiceMonitor> m_monitor;         ///< null: no thread could be had for it
    State m_state = State::STARTING;
    bool m_isUnwatchedTold = false; ///< that there was no thread for the monitor
    bool m_mayHaveStrays = false;   ///< the registry may hold an entry of ours whose id we do not know

    std::thread m_thread;
};

} // namespace Kesa::Host
