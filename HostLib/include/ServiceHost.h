#pragma once

#include "Export.h"

#include <Poco/Types.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Poco::Net
{
class HTTPServerRequest;
class HTTPServerResponse;
} // namespace Poco::Net

namespace Kesa::Service
{
class GenericServiceBootstrap;
}

namespace Kesa::Host
{

class FrontDoor;
class RegistryAgent;

/// Runs a service as a process: reachable over HTTP and websocket, and found through the service registry, until it is
/// told to stop.
///
///     MyService service;
///     ServiceHost::Options options;
///     options.name = "shop";      // its URLs begin with /shop
///     Kesa::Host::ServiceHost host(service, options);
///     return host.run();
///
/// Ownership: borrows the bootstrap, which must outlive it. Owns the HTTP side.
/// Threads:   start(), run() and stop() from one thread, not one of the library's own; requestStop(), port() and url()
///            from any, handlers included.
/// Registry:  a service with a name is registered once it serves, and again whenever its entry is lost; a registry that
///            is down delays and disturbs nothing. RegistryAgent tells more.
/// Errors:    the constructor raises Poco::InvalidArgumentException for a name that is no service name, for an
///            advertised host that is no address and for a further port of 0. start() raises what keeps the service
///            from starting: Poco::Net::NetException, naming address and port, when it cannot listen;
///            Poco::RuntimeException when the service's own start failed. run() logs that and gives 1.
/// Shutdown:  stop() (idempotent) in this order: the service is unregistered, for which a registry has two seconds; no
///            new clients and requests; the websockets are closed with 1001; the service's own shutdown. The destructor
///            calls it.
class KESA_API ServiceHost
{
public:
    static constexpr long DRAIN_TIME = 3000; ///< ms that websocket clients have to take their leave at a stop

    /// Websockets at once: ten times the subscriptions of a service, so it bounds only what nobody needs.
    static constexpr std::size_t DEFAULT_WEBSOCKETS = 10000;

    struct Options
    {
        std::string address =
            "127.0.0.1";       ///< of this machine to listen on; only others than loopback are reachable from outside
        Poco::UInt16 port = 0; ///< 0: the system chooses one
        /// Origins of web pages that may open a websocket, as browsers send them ("https://app.example:8443"); "*"
        /// allows all. Pages from this host or from the loopback address always may.
        std::vector<std::string> allowedOrigins;
        std::size_t maxConnections = 0;           ///< HTTP connections at once; 0: FrontDoor::DEFAULT_CONNECTIONS
        std::size_t maxConnectionsPerAddress = 0; ///< of one client; 0: FrontDoor::DEFAULT_PER_ADDRESS
        std::size_t maxWebsockets = 0;            ///< at once; 0: DEFAULT_WEBSOCKETS
        unsigned threads = 0;                     ///< HTTP requests handled at once; 0: FrontDoor::DEFAULT_THREADS

        /// Of the service at the registry, and the first segment of its URLs: 1 to 64 of A-Z a-z 0-9 . _ -, but neither
        /// "registry" nor a UUID. Empty: the service is not registered.
        std::string name;
        std::string description; ///< of the service, for people
        /// Of the API that the service speaks, as "1.2.3". An HTTP client that asks for another version in its `Accept`
        /// field is refused with 404. With none, or more than one, such a client gets 501.
        std::vector<std::string> apiVersions;
        /// Where clients of the registry find the service, as an IP address or "localhost". Empty: the address listened
        /// on, or, where that stands for all addresses, the loopback address 127.0.0.1, since the registry is on this
        /// machine.
        std::string advertisedHost;
        std::map<std::string, Poco::UInt16> ports; ///< further ports of the service, by name

        /// For URLs beside those of the service's data: asked first about every request that asks for no websocket, on
        /// several threads at once. True when it has sent the answer; false, with nothing read or sent, leaves the
        /// request to the host.
        std::function<bool(Poco::Net::HTTPServerRequest&, Poco::Net::HTTPServerResponse&)> handleFirst;
    };

    ServiceHost(Kesa::Service::GenericServiceBootstrap& bootstrap, const Options& options);
    ~ServiceHost();
    ServiceHost(const ServiceHost&) = delete;
    ServiceHost& operator=(const ServiceHost&) = delete;

    /// Takes the port, starts the service, then serves. Lets the process open as many descriptors as the system allows,
    /// and ignores SIGPIPE. Raises Poco::IllegalStateException if it is started already.
    void start();

    /// Starts, prints "listening on <url>" as one line on standard output, waits for SIGTERM, SIGINT or requestStop(),
    /// and stops. A second signal meanwhile ends the process at once. Gives the process's exit status: 0 after a clean
    /// stop, else 1. At most one run() at a time in a process.
    int run();

    /// Makes run() stop; returns at once. Safe in a signal handler too.
    void requestStop();

    /// False if the service's own shutdown failed: then it is still up, and stop() may be tried again. Raises
    /// Poco::IllegalStateException on one of the library's own threads, for which it would have to wait: use
    /// requestStop().
    bool stop();

    /// The port that is listened on, once started.
    Poco::UInt16 port() const { return m_port; }
    /// Where the service is reached, once started: "http://127.0.0.1:8920".
    std::string url() const;

private:
    void startService();
    void startRegistration();
    void closeWebsockets();
    void waitForStopRequest() const;
    int stopReporting();

    Kesa::Service::GenericServiceBootstrap& m_bootstrap;
    const Options m_options;
    const int m_stopRequests; ///< an eventfd
    std::unique_ptr<FrontDoor> m_door;
    std::unique_ptr<RegistryAgent> m_registration; ///< null: not registered
    std::atomic<Poco::UInt16> m_port{0};           ///< atomic: read by any thread
    bool m_isServiceUp = false;
};

} // namespace Kesa::Host
