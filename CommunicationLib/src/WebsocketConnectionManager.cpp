#include "Websocket/WebsocketConnectionManager.h"

#include "ConnectionServer.h"
#include "Websocket/WebSocketProxy.h"

#include <LibraryThread.h>
#include <LogStream.h>

#include <Poco/Exception.h>

namespace Kesa::Net
{

WebsocketConnectionManager::WebsocketConnectionManager(): m_server(std::make_shared<ConnectionServer>(*this))
{
    m_server->start();
}

WebsocketConnectionManager::~WebsocketConnectionManager()
{
    if (Kesa::Util::LibraryThread::isCurrent())
        KESA_LOG_CRITICAL(
            "The last reference to the WebsocketConnectionManager went on a thread of the library; hold one "
            "until stop() has returned on a thread of the application");
    m_server->abandon();
}

void WebsocketConnectionManager::addConnection(const Poco::SharedPtr<Poco::Net::WebSocket>& webSocket)
{
    m_server->addConnection(webSocket);
}

void WebsocketConnectionManager::drain(Poco::Timespan deadline)
{
    m_server->drain(deadline);
}

void WebsocketConnectionManager::stop()
{
    if (Kesa::Util::LibraryThread::isCurrent())
    {
        const char refusal[] = "WebsocketConnectionManager::stop() was called on a thread of the library, for which it "
                               "would wait for ever; call it on a thread of the application";
        KESA_LOG_CRITICAL(refusal);
        throw Poco::IllegalStateException(refusal);
    }
    m_server->stop();
}

std::size_t WebsocketConnectionManager::connectionCount() const
{
    return m_server->connectionCount();
}

} // namespace Kesa::Net
