#pragma once

#include "Export.h"
#include "Mutex.h"

#include <Poco/SharedPtr.h>

#include <functional>

namespace Kesa::Net
{
class WebsocketConnectionManager;
class WebsocketDataObjectSplitter;
class WebsocketEventPayload;
} // namespace Kesa::Net

namespace Kesa::Service
{

class ISubscriptionDelegateFactory;
class SubscriptionManager;
class SubscriptionTrigger;
class WebSocketGenericRequestProcessor;

/// Owner and wiring board of the websocket side of a service: connection manager, splitter, subscription manager and
/// request processor, with the events between them.
///
/// Ownership: owns the subscription manager and the processor; shares the trigger, the factory and the connection
/// manager.
/// Threads:   initializeSystem() and uninitializeSystem() on the thread that starts and stops the service.
/// Shutdown:  uninitializeSystem(), then the destructor. Not restartable: build a new one.
class KESA_API WebsocketSubsystem
{
public:
    /// A new subsystem, owned by the caller; null without a trigger. A null factory means that the trigger itself is
    /// the data source of every subscription.
    static WebsocketSubsystem* create(Poco::SharedPtr<SubscriptionTrigger> trigger,
                                      Poco::SharedPtr<ISubscriptionDelegateFactory> factory);
    ~WebsocketSubsystem();
    WebsocketSubsystem(const WebsocketSubsystem&) = delete;
    WebsocketSubsystem& operator=(const WebsocketSubsystem&) = delete;

    /// Brings the subsystem up. True if it is up when the call returns, false after uninitializeSystem().
    /// Raises Poco::AssertionViolationException if the process has a trigger already.
    bool initializeSystem();

    /// Takes the subsystem down; waits for running handlers. Raises Poco::IllegalStateException on one of the library's
    /// own threads and inside a callback of the library on any thread.
    void uninitializeSystem();

    bool isInitialized();

private:
    WebsocketSubsystem();

    void onSocketClosed(const Net::WebsocketEventPayload& payload);
    void provideConnectionManager();
    void connectEvents();
    void disconnectEvents();

    std::function<void()> m_triggerCleanup; ///< called first by the destructor if set
    /// Keeps the data source of the subscriptions alive until the manager and its worker are gone.
    Poco::SharedPtr<SubscriptionTrigger> m_dataSourceShare;
    Poco::SharedPtr<Net::WebsocketConnectionManager> m_connectionManager;
    Poco::SharedPtr<Net::WebsocketDataObjectSplitter> m_seperator;
    Poco::SharedPtr<WebSocketGenericRequestProcessor> m_requestProcessor;
    Poco::SharedPtr<ISubscriptionDelegateFactory> m_factory;
    Poco::SharedPtr<SubscriptionTrigger> m_subscrTrigger;
    Poco::SharedPtr<SubscriptionManager> m_subscrManager;
    Util::Mutex m_mtxInit; ///< guards initialisation and the flag; the outermost lock at start and stop
    bool m_isInitialized;
};

} // namespace Kesa::Service
