#include "FrontDoor.h"

#include "ConnectionCaps.h"
#include "DoorLoop.h"
#include "DoorPool.h"
#include "LibraryThread.h"
#include "Listener.h"
#include "LogStream.h"
#include "NextRequest.h"
#include "RequestRunner.h"

#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/WebSocket.h>

#include <thread>

namespace Kesa::Host
{

/// What the door is made of. Later members use earlier ones.
struct FrontDoor::Parts
{
    Parts(Handler handler, const Options& wanted)
        : options(wanted),
          listener(std::make_unique<Listener>(options.address, options.port)),
          port(listener->port()),
          caps(options.maxConnections, options.maxConnectionsPerAddress),
          shared(std::make_shared<DoorSocket::Shared>()),
          runner(std::move(handler), options),
          pool([this](DoorPool::Connection connection) { serve(std::move(connection)); }),
          loop(std::make_unique<DoorLoop>(*listener, caps, shared, options,
                                          [this](DoorLoop::Connection connection)
                                          { pool.submit(std::move(connection)); }))
    {
    }

    /// On a thread of the pool.
    void serve(DoorPool::Connection connection)
    {
        do
            runner.serve(*connection);
        while (!connection->isTaken && pool.isCalm() && !shared->isStopping && NextRequest::arrives(*connection));
        if (!connection->isTaken)
            return loop->giveBack(std::move(connection));
        connection.reset();
        loop->forget();
    }

    const Options options;
    std::unique_ptr<Listener> listener; ///< null after the stop
    const Poco::UInt16 port;
    ConnectionCaps caps;
    const std::shared_ptr<DoorSocket::Shared> shared;
    const RequestRunner runner;
    DoorPool pool;
    std::unique_ptr<DoorLoop> loop; ///< null after the stop
    std::thread thread;             ///< runs the loop
};

FrontDoor::FrontDoor(Handler handler, const Options& options)
    : m_parts(std::make_unique<Parts>(std::move(handler), options))
{
}

FrontDoor::~FrontDoor()
{
    stop();
}

void FrontDoor::start()
{
    if (!m_parts->loop || m_parts->thread.joinable())
        throw Poco::IllegalStateException("This front door has been started before: build a new one");
    m_parts->pool.start(m_parts->options.threads);
    m_parts->thread = std::thread([loop = m_parts->loop.get()] { loop->run(); });
}

void FrontDoor::stop()
{
    if (Kesa::Util::LibraryThread::isCurrent())
    {
        KESA_LOG_CRITICAL("FrontDoor::stop was called from a handler, for which it would have to wait.");
        throw Poco::IllegalStateException("A front door cannot be stopped from a handler");
    }
    if (!m_parts->loop)
        return;
    m_parts->shared->isStopping = true;
    m_parts->loop->stop();
    if (m_parts->thread.joinable())
        m_parts->thread.join();
    m_parts->pool.stop();
    m_parts->loop.reset();
    m_parts->listener.reset();
}

Poco::UInt16 FrontDoor::port() const
{
    return m_parts->port;
}

std::size_t FrontDoor::connections() const
{
    return m_parts->caps.count();
}

Poco::SharedPtr<Poco::Net::WebSocket> FrontDoor::takeWebsocket(Poco::Net::HTTPServerRequest& request,
                                                               Poco::Net::HTTPServerResponse& response)
{
    DoorSocket* door = DoorSocket::of(dynamic_cast<Poco::Net::HTTPServerRequestImpl&>(request).socket());
    if (!door || !door->takesMore())
        throw Poco::IOException("A client that does not read its answers asked for a websocket");
    request.set("Upgrade", "websocket"); // POCO wants the word alone, where a list is allowed
    const Poco::SharedPtr<Poco::Net::WebSocket> webSocket(new Poco::Net::WebSocket(request, response));
    return door->release() ? webSocket : nullptr;
}

} // namespace Kesa::Host
