#pragma once

#include "Export.h"
#include "ServiceNotifications.h"

#include <Poco/SharedPtr.h>

namespace Poco
{
class ErrorHandler;
}

namespace Kesa::Net
{
class ClientConnectionManager;
}

namespace Kesa::Service
{

class SubscriptionTrigger;
class WebsocketSubsystem;

/// Starts and stops a service in a fixed order. A service derives from it and supplies its own start and stop code and
/// its subscription trigger.
///
///     MyService service;                       // fixes the process's time origin
///     if (service.startup()) { ...; service.shutdown(); }
///
/// Ownership: owns the websocket side between start and stop; shares the trigger with the service.
/// Threads:   startup() and shutdown() run on the caller's thread, take no lock and must not run concurrently.
/// Errors:    an exception of the service's own code or of a listener goes to the caller; nothing is undone then.
/// Shutdown:  a derived class has to call shutdown() before its own destructor ends, since the base's destructor can no
/// longer reach shutdownImpl(). Not from inside a callback of the library (see shutdown()).
class KESA_API GenericServiceBootstrap
{
public:
    /// Registers the ServiceNotifications and makes this instant the process's time origin.
    GenericServiceBootstrap();
    virtual ~GenericServiceBootstrap();
    GenericServiceBootstrap(const GenericServiceBootstrap&) = delete;
    GenericServiceBootstrap& operator=(const GenericServiceBootstrap&) = delete;

    /// True if the service is started. False if startupImpl() failed: all but the client connection manager is taken
    /// down. Raises Poco::AssertionViolationException if the service supplies no trigger, or if the process has one
    /// already.
    bool startup();

    /// True if the service is stopped or was never started; false if shutdownImpl() failed: the service is still up
    /// then. Waits for running handlers, so it raises Poco::IllegalStateException on one of the library's own threads
    /// and inside a callback of the library on any thread: a listener, a veto, a data source.
    bool shutdown();

protected:
    /// The service's own start. False means that it failed.
    virtual bool startupImpl() = 0;
    /// The service's own stop; must cope with a start that failed half way. False means that it failed.
    virtual bool shutdownImpl() = 0;
    /// Supplies the service's trigger, shared with the caller.
    virtual Poco::SharedPtr<SubscriptionTrigger> createSubscriptionInterface() = 0;
    /// Supplies the access rules for clients. The default imposes none.
    virtual Poco::SharedPtr<Net::ClientConnectionManager> createClientConnectionManager();

private:
    void provideClientConnectionManager();
    void provideSubsystem();
    void installErrorHandler();
    void unwindFailedStart();

    bool m_isStarted;
    Poco::SharedPtr<WebsocketSubsystem> m_wsSubsystem;
    Poco::SharedPtr<ServiceNotifications> notifications;
    Poco::ErrorHandler* m_errorHandler; ///< owned; null if this object created none
};

} // namespace Kesa::Service
