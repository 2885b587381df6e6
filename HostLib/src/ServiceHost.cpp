#include "ServiceHost.h"

#include "ApplicationServices.h"
#include "FrontDoor.h"
#include "LibraryThread.h"
#include "LogStream.h"
#include "RegistryAgent.h"
#include "RequestDispatcher.h"
#include "ServiceEntry.h"
#include "SignalWatch.h"

#include "GenericServiceBootstrap.h"
#include "Websocket/WebsocketConnectionManager.h"

#include <Poco/Exception.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

namespace Kesa::Host
{

namespace
{

/// A limit of a thousand descriptors is the default of most systems, and less than this library can serve.
void raiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max)
        return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

FrontDoor::Options doorOptions(const ServiceHost::Options& options)
{
    FrontDoor::Options door;
    door.address = options.address;
    door.port = options.port;
    if (options.maxConnections > 0)
        door.maxConnections = options.maxConnections;
    if (options.maxConnectionsPerAddress > 0)
        door.maxConnectionsPerAddress = options.maxConnectionsPerAddress;
    if (options.threads > 0)
        door.threads = options.threads;
    return door;
}

RestHandler::Options restOptions(const ServiceHost::Options& options)
{
    RestHandler::Options rest;
    rest.apiVersions = options.apiVersions;
    rest.bodyWaiters = options.threads == 1 ? 1 : options.threads / 2;
    return rest;
}

/// Refused before anything is started.
const ServiceHost::Options& checked(const ServiceHost::Options& options)
{
    if (!options.name.empty())
        checkEntry(options);
    return options;
}

int createEvent()
{
    const int descriptor = ::eventfd(0, EFD_CLOEXEC);
    if (descriptor < 0)
        throw Poco::SystemException("No descriptor is left for a service host");
    return descriptor;
}

} // namespace

ServiceHost::ServiceHost(Kesa::Service::GenericServiceBootstrap& bootstrap, const Options& options)
    : m_bootstrap(bootstrap), m_options(checked(options)), m_stopRequests(createEvent())
{
}

ServiceHost::~ServiceHost()
{
    try
    {
        stop();
    }
    catch (const Poco::Exception& e)
    {
        KESA_LOG_ERROR("The service did not stop: " << e.displayText());
    }
    ::close(m_stopRequests);
}

void ServiceHost::start()
{
    if (m_door || m_isServiceUp)
        throw Poco::IllegalStateException("The service host is started already");
    std::signal(SIGPIPE, SIG_IGN);
    raiseDescriptorLimit();
    const auto dispatcher = std::make_shared<const RequestDispatcher>(
        m_options.allowedOrigins, m_options.maxWebsockets > 0 ? m_options.maxWebsockets : DEFAULT_WEBSOCKETS,
        restOptions(m_options), m_options.handleFirst);
    auto door = std::make_unique<FrontDoor>(
        [dispatcher](Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response)
        { dispatcher->handle(request, response); },
        doorOptions(m_options));
    m_port = door->port(); // the service's own start may ask for it
    startService();
    m_door = std::move(door);
    m_door->start();
    startRegistration();
}

void ServiceHost::startService()
{
    if (!m_bootstrap.startup())
        throw Poco::RuntimeException("The service did not start: its startupImpl() returned false");
    m_isServiceUp = true;
}

void ServiceHost::startRegistration()
{
    if (m_options.name.empty())
        return;
    m_registration = std::make_unique<RegistryAgent>(entryOf(m_options, m_port));
    m_registration->start();
}

int ServiceHost::run()
{
    const SignalWatch signals(m_stopRequests);
    try
    {
        start();
    }
    catch (const Poco::Exception& e)
    {
        KESA_LOG_CRITICAL(e.displayText());
        return EXIT_FAILURE;
    }
    catch (const std::exception& e)
    {
        KESA_LOG_CRITICAL(e.what());
        return EXIT_FAILURE;
    }
    std::cout << "listening on " << url() << std::endl;
    waitForStopRequest();
    return stopReporting();
}

void ServiceHost::waitForStopRequest() const
{
    pollfd poller{m_stopRequests, POLLIN, 0};
    while (::poll(&poller, 1, -1) < 0 && errno == EINTR)
        ;
    std::uint64_t requests = 0;
    [[maybe_unused]] const ssize_t ignored =
        ::read(m_stopRequests, &requests, sizeof requests); // there is at least one
}

int ServiceHost::stopReporting()
{
    try
    {
        return stop() ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    catch (const Poco::Exception& e)
    {
        KESA_LOG_CRITICAL("The service did not stop: " << e.displayText());
    }
    catch (const std::exception& e)
    {
        KESA_LOG_CRITICAL("The service did not stop: " << e.what());
    }
    return EXIT_FAILURE;
}

void ServiceHost::requestStop()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(m_stopRequests, &one, sizeof one);
}

bool ServiceHost::stop()
{
    if (Kesa::Util::LibraryThread::isCurrent())
    {
        KESA_LOG_CRITICAL("ServiceHost::stop was called on one of the library's own threads. Use requestStop().");
        throw Poco::IllegalStateException("A service host cannot be stopped on one of the library's own threads");
    }
    m_registration.reset(); // first, so that no new client is sent here
    if (m_door)
        m_door->stop();
    m_door.reset();
    if (!m_isServiceUp)
        return true;
    closeWebsockets();
    m_isServiceUp = !m_bootstrap.shutdown();
    return !m_isServiceUp;
}

void ServiceHost::closeWebsockets()
{
    auto manager = ApplicationServices::getService<Kesa::Net::WebsocketConnectionManager>();
    if (!manager.isNull())
        manager->drain(Poco::Timespan(DRAIN_TIME * Poco::Timespan::MILLISECONDS));
}

std::string ServiceHost::url() const
{
    const bool isIPv6 = m_options.address.find(':') != std::string::npos;
    return "http://" + (isIPv6 ? "[" + m_options.address + "]" : m_options.address) + ":" + std::to_string(m_port);
}

} // namespace Kesa::Host
