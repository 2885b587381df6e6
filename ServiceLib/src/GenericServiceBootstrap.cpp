#include "GenericServiceBootstrap.h"

#include "SubscriptionHandling/LibraryCall.h"
#include "WebsocketSubsystem.h"

#include <ApplicationServices.h>
#include <ClientConnectionManager.h>
#include <LibraryThread.h>
#include <LogStream.h>
#include <SimpleErrorHandler.h>
#include <SubscriptionHandling/ISubscriptionDelegateFactory.h>
#include <SubscriptionHandling/SubscriptionTrigger.h>
#include <Time/Timestamp.h>

#include <Poco/ErrorHandler.h>
#include <Poco/Exception.h>

namespace Kesa::Service
{

using Net::ClientConnectionManager;

namespace
{
/// Opens the way to POCO's default handler, which only handlers may see.
struct DefaultErrorHandler: private Poco::ErrorHandler
{
    static Poco::ErrorHandler* get() { return Poco::ErrorHandler::defaultHandler(); }
};
} // namespace

GenericServiceBootstrap::GenericServiceBootstrap()
    : m_isStarted(false), notifications(new ServiceNotifications), m_errorHandler(nullptr)
{
    ApplicationServices::registerService<ServiceNotifications>(notifications);
    Timestamp::initSystemTime(Poco::Timestamp());
}

GenericServiceBootstrap::~GenericServiceBootstrap()
{
    shutdown();
    if (m_errorHandler == Poco::ErrorHandler::get())
        Poco::ErrorHandler::set(DefaultErrorHandler::get());
    delete m_errorHandler;
    m_errorHandler = nullptr;
    ApplicationServices::unregisterService<ServiceNotifications>();
    notifications = nullptr;
    m_wsSubsystem = nullptr;
}

bool GenericServiceBootstrap::startup()
{
    provideClientConnectionManager();
    if (m_wsSubsystem.isNull())
        provideSubsystem();
    m_wsSubsystem->initializeSystem();
    installErrorHandler();
    if (!startupImpl())
    {
        unwindFailedStart();
        return false;
    }
    notifications->ServiceStartup.notify(this);
    m_isStarted = true;
    return true;
}

void GenericServiceBootstrap::provideClientConnectionManager()
{
    if (ApplicationServices::getService<ClientConnectionManager>().isNull())
        ApplicationServices::registerService<ClientConnectionManager>(createClientConnectionManager());
}

void GenericServiceBootstrap::provideSubsystem()
{
    const SubscriptionTrigger::Ptr trigger = createSubscriptionInterface();
    if (trigger.isNull())
    {
        KESA_LOG_CRITICAL("Unable to start service without SubscriptionInterface");
        throw Poco::AssertionViolationException("No subscription interface provided");
    }
    m_wsSubsystem = WebsocketSubsystem::create(trigger, Poco::SharedPtr<ISubscriptionDelegateFactory>());
}

/// A handler that the application installed stays in place.
void GenericServiceBootstrap::installErrorHandler()
{
    if (Poco::ErrorHandler::get() != DefaultErrorHandler::get())
        return;
    m_errorHandler = new Util::SimpleErrorHandler;
    Poco::ErrorHandler::set(m_errorHandler);
}

void GenericServiceBootstrap::unwindFailedStart()
{
    shutdownImpl();
    m_wsSubsystem->uninitializeSystem();
    m_wsSubsystem = nullptr;
    Poco::ErrorHandler::set(DefaultErrorHandler::get());
    KESA_LOG_ERROR("Service startup failed");
}

bool GenericServiceBootstrap::shutdown()
{
    if (!m_isStarted)
        return true;
    if (Util::LibraryThread::isCurrent() || LibraryCall::isInside())
    {
        KESA_LOG_CRITICAL("GenericServiceBootstrap::shutdown: refused inside a callback of the library, for which it "
                          "would have to wait. Wake the service's main thread and stop it there.");
        throw Poco::IllegalStateException("a service cannot be stopped from inside a callback of the library");
    }
    notifications->ServiceShutdown.notify(this);
    if (!shutdownImpl())
    {
        KESA_LOG_ERROR("Service shutdown failed");
        return false;
    }
    if (!m_wsSubsystem.isNull())
    {
        m_wsSubsystem->uninitializeSystem();
        m_wsSubsystem = nullptr;
    }
    ApplicationServices::unregisterService<ClientConnectionManager>();
    m_isStarted = false;
    return true;
}

Poco::SharedPtr<ClientConnectionManager> GenericServiceBootstrap::createClientConnectionManager()
{
    return new ClientConnectionManager;
}

} // namespace Kesa::Service
