#include "RegistryAgent.h"

#include "GuardedStep.h"
#include "LibraryThread.h"
#include "LogStream.h"
#include "ServiceName.h"

#include "Data/ServiceRegistryConnection.h"
#include "ServiceRegistry.h"

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>

#include <random>
#include <utility>

namespace Kesa::Host
{

using Kesa::Service::ServiceRegistrationHelper;
using Kesa::Service::ServiceRegistryAbstraction;
using Kesa::Service::SRServiceMonitor;

namespace
{

/// How long a connection may take. The registry is on this machine: it is there at once, or too busy to be asked.
constexpr long CONNECT_TIME = 500;

std::string registryAddress()
{
    return ServiceRegistryConnection::ADDRESS + ":" + std::to_string(ServiceRegistryConnection::PORT);
}

long randomUpTo(long milliseconds)
{
    static thread_local std::mt19937 generator{std::random_device{}()};
    return std::uniform_int_distribution<long>(1, milliseconds)(generator);
}

} // namespace

RegistryAgent::RegistryAgent(const MicroServiceInfo& service): RegistryAgent(service, Times()) {}

RegistryAgent::RegistryAgent(const MicroServiceInfo& service, const Times& times)
    : m_service(service), m_times(times), m_name("'" + service.getName() + "'")
{
    checkServiceName(service.getName());
    m_service.getHost(); // these two raise what is missing now, and not on the thread
    m_service.getPort();
}

RegistryAgent::~RegistryAgent()
{
    stop();
}

void RegistryAgent::start()
{
    m_thread = std::thread([this] { run(); });
}

void RegistryAgent::stop()
{
    if (!m_thread.joinable())
        return;
    m_limit.endIn(STOP_TIME - CONNECT_TIME); // a last look whether the registry is there may begin just before
    m_stop.set();
    m_news.set();
    m_thread.join();
}

std::string RegistryAgent::id() const
{
    Util::ScopedLock lock(m_mutex);
    return m_id;
}

void RegistryAgent::run()
{
    const Util::LibraryThread mark;
    const Service::RegistryExchangeLimit::Scope scope(&m_limit);
    bool goesOn = true;
    while (goesOn)
        if (!runGuarded("Registering the service", [&] { goesOn = keepRegistered(); }))
            goesOn = recover();
    runGuarded("Unregistering the service", [&] { leave(); });
    m_monitor.reset();
}

/// One look at how things stand, and the wait for what comes next. False when it is time to end.
bool RegistryAgent::keepRegistered()
{
    startMonitor();
    if (id().empty())
        registerService();
    else if (m_mayHaveStrays && isRegistryThere())
        m_mayHaveStrays = !removeStrayEntries();
    return waitForNews();
}

/// After a failure that left the monitor in who knows what state: a new one will watch what is held. False when it is
/// time to end.
bool RegistryAgent::recover()
{
    m_monitor.reset();
    return !m_stop.tryWait(m_times.retry);
}

void RegistryAgent::startMonitor()
{
    if (m_monitor)
        return;
    try
    {
        m_monitor = std::make_unique<SRServiceMonitor>();
    }
    catch (const Poco::Exception& e)
    {
        if (!std::exchange(m_isUnwatchedTold, true))
            KESA_LOG_WARNING("The entry of " << m_name << " at the service registry cannot be watched: "
                                             << e.displayText() << ". Give the default thread pool a larger capacity.");
        return;
    }
    m_monitor->ServiceRegistryStatus += Poco::delegate(this, &RegistryAgent::onStatus);
    m_monitor->ServiceEntryGone += Poco::delegate(this, &RegistryAgent::onEntryGone);
    watch();
}

void RegistryAgent::registerService()
{
    // A registry that is not there would give two Error lines for each attempt.
    if (!isRegistryThere())
        return enter(State::UNREACHABLE, "The service registry " + registryAddress() + " cannot be reached. " + m_name +
                                             " serves, and is registered when the registry is there.");
    // What happened to this service happened to all the others too.
    if (m_state != State::STARTING && m_stop.tryWait(randomUpTo(m_times.jitter)))
        return;
    MicroServiceInfo entry(m_service);
    m_helper = std::make_unique<ServiceRegistrationHelper>(); // without the entry that is gone
    m_mayHaveStrays = true;
    if (!m_helper->registerService(entry))
        return enter(State::REFUSED, "The service registry " + registryAddress() + " did not register " + m_name +
                                         ", which serves. Trying again until it does.");
    setId(entry.getIdString());
    watch();
    enter(State::REGISTERED, m_name + " is registered at the service registry " + registryAddress() + " as " + id());
    m_mayHaveStrays = !removeStrayEntries();
}

/// Makes what is watched equal to what is held, whatever the monitor has dropped meanwhile.
void RegistryAgent::watch()
{
    if (!m_monitor)
        return;
    m_monitor->removeUUIDs();
    if (const std::string held = id(); !held.empty())
        m_monitor->addUUID(held);
}

/// Removes the entries of this very service of which we do not hold the id. False if the registry was no help: then it
/// is tried again.
bool RegistryAgent::removeStrayEntries()
{
    std::vector<MicroServiceInfo> entries;
    if (!ServiceRegistryAbstraction::findRegisteredService(m_service.getName(), entries))
        return false;
    for (const MicroServiceInfo& entry: entries)
        if (isStray(entry) && !ServiceRegistryAbstraction::unregisterService(entry))
            return false;
    return true;
}

bool RegistryAgent::isStray(const MicroServiceInfo& entry) const
{
    return entry.hasValue(Data::XObjectBase::KEY_ID) && entry.getIdString() != id() &&
           entry.getName() == m_service.getName() && entry.getHost() == m_service.getHost() &&
           entry.getPort() == m_service.getPort();
}

/// Waits for something to do. False when it is time to end.
bool RegistryAgent::waitForNews()
{
    if (m_monitor && !id().empty() && !m_mayHaveStrays)
        m_news.wait();
    else
        m_news.tryWait(id().empty() && m_state == State::UNREACHABLE ? m_times.look : m_times.retry);
    handleNews();
    return !m_stop.tryWait(0);
}

void RegistryAgent::handleNews()
{
    Util::ScopedLock lock(m_mutex);
    const auto status = std::exchange(m_status, SRServiceMonitor::UNKNOWN);
    const bool isGone = std::exchange(m_isGone, false);
    const bool isHeld = !m_id.empty();
    if (isGone)
        m_id.clear();
    lock.unlock();
    if (isGone)
        enter(State::LOST, "The entry of " + m_name + " at the service registry is gone. Registering again.");
    else if (isHeld && status == SRServiceMonitor::UNREACHABLE)
        enter(State::UNREACHABLE, "The service registry " + registryAddress() + " does not answer. " + m_name +
                                      " serves on, and is listed again when the registry is back.");
    else if (isHeld && status == SRServiceMonitor::REACHABLE)
    {
        watch();
        enter(State::REGISTERED, "The service registry " + registryAddress() + " answers again.");
    }
}

void RegistryAgent::leave()
{
    const bool isListed = !id().empty();
    if (isListed && !isRegistryThere())
        KESA_LOG_WARNING("The service registry " << registryAddress() << " cannot be reached. " << m_name
                                                 << " leaves without being unregistered.");
    else if (isListed)
        m_helper->unregisterServices();
    setId(std::string());
    if (m_mayHaveStrays && isRegistryThere())
        removeStrayEntries();
}

bool RegistryAgent::isRegistryThere() const
{
    try
    {
        Poco::Net::StreamSocket socket;
        socket.connect(Poco::Net::SocketAddress(ServiceRegistryConnection::ADDRESS, ServiceRegistryConnection::PORT),
                       Poco::Timespan(CONNECT_TIME * Poco::Timespan::MILLISECONDS));
        return true;
    }
    catch (const Poco::Exception&) // refused, or no answer in time
    {
        return false;
    }
}

/// Logs what has changed; a state that stays is not told again.
void RegistryAgent::enter(State state, const std::string& text)
{
    if (state == std::exchange(m_state, state))
        return;
    if (state == State::REGISTERED)
        KESA_LOG_INFO(text);
    else
        KESA_LOG_WARNING(text);
}

void RegistryAgent::setId(const std::string& id)
{
    Util::ScopedLock lock(m_mutex);
    m_id = id;
    m_isGone = false;
}

void RegistryAgent::onStatus(SRServiceMonitor::SRStatus& status)
{
    {
        Util::ScopedLock lock(m_mutex);
        m_status = status;
    }
    m_news.set();
}

void RegistryAgent::onEntryGone(std::string& id)
{
    {
        Util::ScopedLock lock(m_mutex);
        m_isGone = m_isGone || (!m_id.empty() && id == m_id);
    }
    m_news.set();
}

} // namespace Kesa::Host
