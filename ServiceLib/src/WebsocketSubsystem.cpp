#include "WebsocketSubsystem.h"

#include "SubscriptionHandling/LibraryCall.h"
#include "SubscriptionHandling/SubscriptionManager.h"
#include "WebSocketGenericRequestProcessor.h"

#include <ApplicationServices.h>
#include <LibraryThread.h>
#include <LogStream.h>
#include <SubscriptionHandling/ISubscriptionDelegateFactory.h>
#include <SubscriptionHandling/SubscriptionTrigger.h>
#include <Websocket/WebsocketConnectionManager.h>
#include <Websocket/WebsocketDataObjectSplitter.h>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>

namespace Kesa::Service
{

using Net::WebsocketConnectionManager;
using Net::WebsocketDataEventPayload;
using Net::WebsocketDataObjectSplitter;
using Net::WebsocketEventPayload;
using Util::Mutex;
using Util::ScopedLock;

namespace
{

typedef Poco::Delegate<WebsocketDataObjectSplitter, const WebsocketDataEventPayload, false> BlockDelegate;
typedef Poco::Delegate<WebsocketSubsystem, const WebsocketEventPayload, false> CloseDelegate;
typedef Poco::Delegate<WebSocketGenericRequestProcessor, const WebsocketDataEventPayload, false> RequestDelegate;

} // namespace

WebsocketSubsystem::WebsocketSubsystem(): m_isInitialized(false) {}

WebsocketSubsystem* WebsocketSubsystem::create(Poco::SharedPtr<SubscriptionTrigger> trigger,
                                               Poco::SharedPtr<ISubscriptionDelegateFactory> factory)
{
    if (trigger.isNull())
        return nullptr;
    if (factory.isNull())
    {
        KESA_LOG_DEBUG("Create WebsocketSubsystem with DefaultSubscriptionDelegateFactory");
        factory = new DefaultSubscriptionDelegateFactory(trigger.get());
    }
    auto* subsystem = new WebsocketSubsystem;
    subsystem->m_subscrTrigger = trigger;
    subsystem->m_factory = factory;
    return subsystem;
}

WebsocketSubsystem::~WebsocketSubsystem()
{
    if (m_triggerCleanup)
        m_triggerCleanup();
    m_factory = nullptr;
    m_subscrTrigger = nullptr;
}

bool WebsocketSubsystem::isInitialized()
{
    ScopedLock<Mutex> lock(m_mtxInit);
    return m_isInitialized;
}

bool WebsocketSubsystem::initializeSystem()
{
    ScopedLock<Mutex> lock(m_mtxInit);
    if (m_isInitialized)
        return true;
    if (!ApplicationServices::getService<SubscriptionTrigger>().isNull())
        throw Poco::AssertionViolationException("SubscriptionTrigger is already registered");
    ApplicationServices::registerService<SubscriptionTrigger>(m_subscrTrigger);
    provideConnectionManager();
    m_seperator = new WebsocketDataObjectSplitter;
    m_subscrManager = new SubscriptionManager;
    if (m_subscrTrigger.isNull())
    {
        KESA_LOG_ERROR("Subscription subsystem is disabled.");
        return false;
    }
    m_dataSourceShare = m_subscrTrigger;
    m_subscrTrigger->initialise(*m_subscrManager);
    m_requestProcessor = new WebSocketGenericRequestProcessor(m_subscrManager.get(), m_factory);
    connectEvents();
    m_isInitialized = true;
    return true;
}

void WebsocketSubsystem::provideConnectionManager()
{
    m_connectionManager = ApplicationServices::getService<WebsocketConnectionManager>();
    if (!m_connectionManager.isNull())
        return;
    m_connectionManager = new WebsocketConnectionManager;
    ApplicationServices::registerService<WebsocketConnectionManager>(m_connectionManager);
}

/// The chain's last link is made last, after its target exists.
void WebsocketSubsystem::connectEvents()
{
    m_connectionManager->DataReceived +=
        BlockDelegate(m_seperator.get(), &WebsocketDataObjectSplitter::onDataBlockAvailable);
    m_connectionManager->ConnectionClosed += CloseDelegate(this, &WebsocketSubsystem::onSocketClosed);
    m_seperator->DataObjectAvailable +=
        RequestDelegate(m_requestProcessor.get(), &WebSocketGenericRequestProcessor::webSocketRequestReceived);
}

/// From the inside out. When it returns no handler is running and none can start.
void WebsocketSubsystem::disconnectEvents()
{
    if (m_seperator.isNull() || m_connectionManager.isNull() || m_requestProcessor.isNull())
        return;
    m_seperator->DataObjectAvailable -=
        RequestDelegate(m_requestProcessor.get(), &WebSocketGenericRequestProcessor::webSocketRequestReceived);
    m_connectionManager->DataReceived -=
        BlockDelegate(m_seperator.get(), &WebsocketDataObjectSplitter::onDataBlockAvailable);
    m_connectionManager->ConnectionClosed -= CloseDelegate(this, &WebsocketSubsystem::onSocketClosed);
}

void WebsocketSubsystem::uninitializeSystem()
{
    KESA_LOG_TRACE("uninitializeSystem");
    if (Util::LibraryThread::isCurrent() || LibraryCall::isInside())
    {
        KESA_LOG_CRITICAL("WebsocketSubsystem::uninitializeSystem: refused inside a callback of the library, for which "
                          "it would have to wait. Stop the service from its main thread.");
        throw Poco::IllegalStateException("the websocket side cannot be stopped from inside a callback of the library");
    }
    ScopedLock<Mutex> lock(m_mtxInit);
    if (!m_isInitialized)
        return;
    disconnectEvents();
    m_subscrTrigger->deinitialise();
    m_subscrTrigger = nullptr;
    m_connectionManager = nullptr;
    m_seperator = nullptr;
    m_requestProcessor = nullptr;
    ApplicationServices::unregisterService<WebsocketConnectionManager>();
    ApplicationServices::unregisterService<SubscriptionTrigger>();
    m_isInitialized = false;
}

void WebsocketSubsystem::onSocketClosed(const WebsocketEventPayload& payload)
{
    LibraryCall call;
    KESA_LOG_INFO("Closed websocket connection:" << payload.webSocketProxy.address().toString());
    if (m_subscrManager.isNull())
    {
        KESA_LOG_CRITICAL("WebsocketSubsystem::onSocketClosed: SubscriptionManager is not available!");
        throw Poco::NullPointerException("SubscriptionManager is not available!");
    }
    m_subscrManager->removeAllSubscriptions(payload.webSocketProxy);
}

} // namespace Kesa::Service
