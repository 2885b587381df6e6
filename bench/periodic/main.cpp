// periodic: what 1,000 periodic subscriptions of a second each cost a service, as a share of one core, beside a bare
// loop that sends as many bytes as often. How to read the result: bench/README.md.

#include <GenericServiceBootstrap.h>
#include <Log.h>
#include <ServiceHost.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionRequest.h>
#include <SubscriptionHandling/SubscriptionTrigger.h>

#include <Command/WebSocketResponseObject.h>

#include <Poco/JSON/Object.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Net/WebSocket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using Clock = std::chrono::steady_clock;

constexpr int CONNECTIONS = 10;
constexpr int SUBSCRIPTIONS = 100; ///< on each connection
constexpr int RUNS = 5;            ///< of each kind; the median counts
constexpr std::chrono::seconds RUN_TIME(4);
constexpr std::size_t MESSAGE = 130; ///< bytes that the bare loop sends at a time: about one notification

/// The service: elements whose figure nobody changes.
class Items: public Kesa::Service::SubscriptionTrigger
{
public:
    bool fetchData(const Kesa::Service::SubscriptionRequest& request,
                   Kesa::Command::WebSocketResponseObject& response) override
    {
        Poco::JSON::Object::Ptr item = new Poco::JSON::Object;
        item->set("id", request.getUrlPath().getElement());
        item->set("name", "first");
        item->set("amount", 7);
        response.setData(item);
        return true;
    }
    void checkNewSubscription(Kesa::Service::SubscriptionSubscribingEventPayload&) override {}
};

class Bench: public Kesa::Service::GenericServiceBootstrap
{
protected:
    bool startupImpl() override { return true; }
    bool shutdownImpl() override { return true; }
    Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> createSubscriptionInterface() override { return new Items; }
};

/// Subscribes, a subscription each millisecond over all connections, then reads until the server closes.
void follow(std::uint16_t port, int index, std::atomic<long>& received)
{
    Poco::Net::HTTPClientSession session("127.0.0.1", port);
    Poco::Net::HTTPRequest request("GET", "/", "HTTP/1.1");
    Poco::Net::HTTPResponse response;
    Poco::Net::WebSocket socket(session, request, response);
    const auto begin = Clock::now();
    for (int i = 0; i < SUBSCRIPTIONS; ++i)
    {
        const int number = i * CONNECTIONS + index;
        std::this_thread::sleep_until(begin + std::chrono::milliseconds(number));
        const std::string text =
            R"({"type":"subscribe","event":"/bench/items/)" + std::to_string(number) + R"(","interval":1000})";
        socket.sendFrame(text.data(), static_cast<int>(text.size()));
    }
    char buffer[4096];
    int flags = 0;
    while (socket.receiveFrame(buffer, sizeof buffer, flags) > 0 || flags != 0) // nothing and no flags: closed
    {
        ++received;
        if ((flags & Poco::Net::WebSocket::FRAME_OP_BITMASK) == Poco::Net::WebSocket::FRAME_OP_PING)
            socket.sendFrame("", 0, int(Poco::Net::WebSocket::FRAME_FLAG_FIN) | Poco::Net::WebSocket::FRAME_OP_PONG);
    }
}

/// Reads what the bare loop sends until it closes.
void drain(std::uint16_t port)
{
    Poco::Net::StreamSocket socket(Poco::Net::SocketAddress("127.0.0.1", port));
    char buffer[4096];
    while (socket.receiveBytes(buffer, sizeof buffer) > 0)
        ;
}

/// The clients' process: ends when the server closes its connections.
[[noreturn]] void runClients(int ports, std::atomic<long>& received)
{
    std::uint16_t port[2];
    if (read(ports, port, sizeof port) != sizeof port)
        _exit(1);
    std::vector<std::thread> threads;
    const auto guarded = [](auto&& action)
    {
        try
        {
            action();
        }
        catch (const Poco::Exception& exception)
        {
            std::fprintf(stderr, "periodic: client: %s\n", exception.displayText().c_str());
        }
    };
    for (int i = 0; i < CONNECTIONS; ++i)
    {
        threads.emplace_back([&, i] { guarded([&] { follow(port[0], i, received); }); });
        threads.emplace_back([&] { guarded([&] { drain(port[1]); }); });
    }
    for (std::thread& thread: threads)
        thread.join();
    _exit(0);
}

double cpuSeconds(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Share of one core, in percent, that the whole process needs while it only delivers.
double measureService(const std::atomic<long>& received)
{
    const long before = received;
    const double cpu = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
    std::this_thread::sleep_for(RUN_TIME);
    const double share = (cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - cpu) / static_cast<double>(RUN_TIME.count()) * 100;
    const double rate = static_cast<double>(received - before) / static_cast<double>(RUN_TIME.count());
    if (rate < 0.9 * CONNECTIONS * SUBSCRIPTIONS)
        throw std::runtime_error("only " + std::to_string(rate) + " deliveries a second: the machine is too busy");
    return share;
}

/// The same for this thread while it sends a message each millisecond.
double measureBareLoop(std::vector<Poco::Net::StreamSocket>& sockets)
{
    const std::string message(MESSAGE, 'n');
    const double cpu = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
    const auto begin = Clock::now();
    const auto messages = RUN_TIME.count() * CONNECTIONS * SUBSCRIPTIONS;
    for (long i = 0; i < messages; ++i)
    {
        std::this_thread::sleep_until(begin + std::chrono::milliseconds(i));
        sockets[static_cast<std::size_t>(i % CONNECTIONS)].sendBytes(message.data(), static_cast<int>(message.size()));
    }
    return (cpuSeconds(CLOCK_THREAD_CPUTIME_ID) - cpu) / static_cast<double>(RUN_TIME.count()) * 100;
}

double print(const char* name, std::vector<double> shares)
{
    std::printf("%-9s ", name);
    for (const double share: shares)
        std::printf(" %5.2f", share);
    std::sort(shares.begin(), shares.end());
    std::printf("   median %.2f %% of a core\n", shares[shares.size() / 2]);
    return shares[shares.size() / 2];
}

void measure(const std::atomic<long>& received, std::vector<Poco::Net::StreamSocket>& sockets)
{
    std::vector<double> service;
    std::vector<double> bare;
    for (int i = 0; i < RUNS; ++i)
    {
        service.push_back(measureService(received));
        bare.push_back(measureBareLoop(sockets));
    }
    std::printf("%d subscriptions with an interval of 1000 ms, %d runs of %ld s each, in turns\n\n",
                CONNECTIONS * SUBSCRIPTIONS, RUNS, static_cast<long>(RUN_TIME.count()));
    const double share = print("service", service);
    std::printf("ratio to the bare loop: %.2f\n", share / print("bare loop", bare));
}

void run()
{
    Logging::Log::SetLogLevel(Poco::Message::PRIO_CRITICAL, "");
    void* const memory = mmap(nullptr, sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::runtime_error("no shared memory");
    auto& received = *new (memory) std::atomic<long>(0); // messages, counted by the clients
    int ports[2];
    if (pipe(ports) != 0)
        throw std::runtime_error("no pipe");
    const pid_t clients = fork(); // before the first thread
    if (clients == 0)
        runClients(ports[0], received);
    Bench bench;
    Kesa::Host::ServiceHost host(bench, {});
    host.start();
    std::vector<Poco::Net::StreamSocket> sockets;
    {
        Poco::Net::ServerSocket listener(Poco::Net::SocketAddress("127.0.0.1", 0), CONNECTIONS);
        const std::uint16_t numbers[] = {host.port(), listener.address().port()};
        if (write(ports[1], numbers, sizeof numbers) != sizeof numbers)
            throw std::runtime_error("the clients are gone");
        for (int i = 0; i < CONNECTIONS; ++i)
            sockets.push_back(listener.acceptConnection());
    }
    std::this_thread::sleep_for(std::chrono::seconds(3)); // until all have subscribed and the first data is out
    measure(received, sockets);
    sockets.clear();
    host.stop();
    waitpid(clients, nullptr, 0);
}

} // namespace

int main()
{
    try
    {
        run();
    }
    catch (const std::exception& exception)
    {
        std::fprintf(stderr, "periodic: %s\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
