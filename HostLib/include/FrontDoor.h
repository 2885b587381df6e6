#pragma once

#include "Export.h"

#include <Poco/SharedPtr.h>
#include <Poco/Types.h>

#include <functional>
#include <memory>
#include <string>

namespace Poco::Net
{
class HTTPServerRequest;
class HTTPServerResponse;
class WebSocket;
} // namespace Poco::Net

namespace Kesa::Host
{

/// An HTTP server whose threads are never held up by clients. One thread accepts and holds all connections until a
/// request is whole; a small pool then handles that one request; what a client does not take of its answer at once is
/// sent by the first thread again. So hundreds of silent, slow or hostile clients do not delay the next one.
///
///     FrontDoor door(handler, options);   // the port is open, clients may connect
///     door.start();                       // they are served
///     door.stop();
///
/// Requests that could be understood in two ways never reach the handler: they are answered with an error document.
///
/// Ownership: owns its threads and sockets. A handler may take a connection away with takeWebsocket().
/// Threads:   start() and stop() from one thread at a time; port() from any. The handler runs on the pool's threads,
/// several
///            at once.
/// Errors:    the constructor raises Poco::Net::NetException, naming address and port, when it cannot listen there.
/// What
///            leaves a handler as an exception is logged and answered with 500.
/// Shutdown:  stop() (idempotent) lets running handlers end, gives answers one second to leave, joins every thread and
///            closes every socket; the destructor calls it. Not from a handler: Poco::IllegalStateException.
class KESA_API FrontDoor
{
public:
    /// Answers one request, on a thread of the pool. The request's body is read from request.stream(); a short one has
    /// arrived already. Has to send the response, unless it takes the connection.
    typedef std::function<void(Poco::Net::HTTPServerRequest&, Poco::Net::HTTPServerResponse&)> Handler;

    static constexpr unsigned DEFAULT_THREADS = 32;          ///< handlers at once: so many may wait for slow data
    static constexpr std::size_t DEFAULT_CONNECTIONS = 8000; ///< at the door; websockets have left it and do not count
    static constexpr std::size_t DEFAULT_PER_ADDRESS =
        4000;                                      ///< half of them, so that one address cannot keep others out
    static constexpr long HEAD_TIMEOUT = 5000;     ///< ms for a whole request head: a second more than any honest one
    static constexpr long BODY_TIMEOUT = 10000;    ///< ms for the body after the head
    static constexpr long IDLE_TIMEOUT = 15000;    ///< ms that a connection is kept between two requests
    static constexpr long WRITE_TIMEOUT = 10000;   ///< ms in which a client has to take something of its answer
    static constexpr long ANSWER_TIMEOUT = 300000; ///< ms in which it has to take all of it
    static constexpr long LINGER_TIMEOUT = 2000;   ///< ms that a client has to close after the last answer
    static constexpr long STOP_GRACE = 1000;       ///< ms that answers have to leave while the door stops

    struct Options
    {
        std::string address = "127.0.0.1";  ///< of this machine; "::1", "0.0.0.0" and names are fine too
        Poco::UInt16 port = 0;              ///< 0: the system chooses one
        unsigned threads = DEFAULT_THREADS; ///< handlers that run at once, 1 or more; started as needed
        std::size_t maxConnections = DEFAULT_CONNECTIONS;
        std::size_t maxConnectionsPerAddress = DEFAULT_PER_ADDRESS;
        long headTimeout = HEAD_TIMEOUT; ///< milliseconds, as all below
        long bodyTimeout = BODY_TIMEOUT;
        long idleTimeout = IDLE_TIMEOUT;
        long writeTimeout = WRITE_TIMEOUT;
        long lingerTimeout = LINGER_TIMEOUT;
    };

    /// Opens the port; nobody is served before start(). `handler` is copied.
    FrontDoor(Handler handler, const Options& options);
    ~FrontDoor();
    FrontDoor(const FrontDoor&) = delete;
    FrontDoor& operator=(const FrontDoor&) = delete;

    /// Begins to serve. Raises Poco::IllegalStateException after a stop(): build a new door then.
    void start();
    /// Ends all; see the class.
    void stop();

    /// Answers a request that asks for a websocket with 101 and takes its connection away from the door that called the
    /// handler; the caller shares the result with nobody. Null if the client was gone at once. Which requests may have
    /// one is the handler's to judge. Raises Poco::Net::WebSocketException for a request that is none,
    /// Poco::IOException for a client that does not read its earlier answers.
    static Poco::SharedPtr<Poco::Net::WebSocket> takeWebsocket(Poco::Net::HTTPServerRequest& request,
                                                               Poco::Net::HTTPServerResponse& response);

    /// The port that it listens on, also the one that the system chose.
    Poco::UInt16 port() const;
    /// How many connections there are at the door; websockets have left it.
    std::size_t connections() const;

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace Kesa::Host
