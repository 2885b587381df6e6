// fanout: what it costs a service to tell one change to 1,000 subscribers of one URL on 1,000 connections, beside a
// bare loop that sends the same bytes to as many sockets with one send() each. How to read the result: bench/README.md.
//
// The clients run in a forked process. Service and bare loop take turns, run by run, in the same server process.

#include "Client.h"

#include <GenericServiceBootstrap.h>
#include <Log.h>
#include <ServiceHost.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionTrigger.h>

#include <Command/WebSocketResponseObject.h>

#include <Poco/JSON/Object.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/StreamSocket.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace Fanout;

constexpr int RUNS = 7;              ///< of each kind; the median counts
constexpr std::size_t MESSAGE = 250; ///< bytes of one notification, without the frame's head of four
const char* const URL = "/bench/items/1";

/// The service: one element whose figure changes. Only the main thread changes it.
class Items: public Kesa::Service::SubscriptionTrigger
{
public:
    /// Changes the figure and reports it. All subscribers have been written to when this returns.
    void change()
    {
        m_item = item(++m_figure);
        changedElement(Kesa::Command::HttpRequest::POST, "bench", "items", "1", m_item.get());
    }

    bool fetchData(const Kesa::Service::SubscriptionRequest&, Kesa::Command::WebSocketResponseObject& response) override
    {
        response.setData(m_item);
        return true;
    }
    void checkNewSubscription(Kesa::Service::SubscriptionSubscribingEventPayload&) override {}

private:
    /// An element that makes the whole notification MESSAGE bytes long.
    static Poco::JSON::Object::Ptr item(int figure)
    {
        constexpr std::size_t rest = 84; // what the message holds beside the note
        Poco::JSON::Object::Ptr item = new Poco::JSON::Object;
        item->set("id", "1");
        item->set("figure", figure);
        item->set("note", std::string(MESSAGE - rest, 'n'));
        return item;
    }

    int m_figure = 100'000;
    Poco::JSON::Object::Ptr m_item = item(m_figure);
};

class Bench: public Kesa::Service::GenericServiceBootstrap
{
public:
    Poco::SharedPtr<Items> items = new Items;

protected:
    bool startupImpl() override { return true; }
    bool shutdownImpl() override { return true; }
    Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> createSubscriptionInterface() override { return items; }
};

/// The plain choice: sockets and a loop.
class BareLoop
{
public:
    BareLoop(): m_listener(Poco::Net::SocketAddress("127.0.0.1", 0), CONNECTIONS) {}

    std::uint16_t port() const { return m_listener.address().port(); }

    /// Accepts every connection of the client; they wait in the listener's queue.
    void accept()
    {
        while (m_sockets.size() < CONNECTIONS)
        {
            m_sockets.push_back(m_listener.acceptConnection());
            m_sockets.back().setNoDelay(true);
            m_sockets.back().setBlocking(false);
        }
    }

    void send(const Shared& shared)
    {
        const std::size_t length = shared.frameLength;
        for (const auto& socket: m_sockets)
            if (::send(socket.impl()->sockfd(), shared.frame.data(), length, MSG_NOSIGNAL) !=
                static_cast<ssize_t>(length))
                throw std::runtime_error("the bare loop's socket took only a part");
    }

private:
    Poco::Net::ServerSocket m_listener;
    std::vector<Poco::Net::StreamSocket> m_sockets;
};

double cpuSeconds(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// One run of one kind; microseconds.
struct Result
{
    double cpu = 0;    ///< of the whole server process, for each notification
    double thread = 0; ///< of the reporting thread alone
    double median = 0; ///< latency from the change to the received frame
    double p99 = 0;
    double slowest = 0;
};

/// The client's process and the two pipes to it.
class Clients
{
public:
    explicit Clients(Shared& shared): m_shared(shared)
    {
        if (pipe(m_commands) != 0 || pipe(m_answers) != 0)
            throw std::runtime_error("no pipes");
        m_process = fork();
        if (m_process == 0)
            live();
        close(m_commands[0]);
        close(m_answers[1]);
    }

    /// Lets the client connect; returns when it has subscribed everywhere.
    void connect(std::uint16_t servicePort, std::uint16_t barePort)
    {
        const std::uint16_t ports[] = {servicePort, barePort};
        if (write(m_commands[1], ports, sizeof ports) != sizeof ports)
            throw std::runtime_error("the clients are gone");
        awaitDone();
    }

    /// Measures ROUNDS changes, each told by `change`; the next one waits until the last has reached every client.
    template <class Change>
    Result measure(Command command, Change change)
    {
        m_shared.latencies = 0;
        const double cpu = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
        const double thread = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
        for (std::size_t round = 0; round < ROUNDS; ++round)
        {
            const char code = static_cast<char>(command);
            if (write(m_commands[1], &code, 1) != 1)
                throw std::runtime_error("the clients are gone");
            m_shared.changedAt = monotonicNanoseconds();
            change();
            awaitDone();
        }
        constexpr double toMicroseconds = 1e6 / (ROUNDS * CONNECTIONS);
        Result result;
        result.cpu = (cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - cpu) * toMicroseconds;
        result.thread = (cpuSeconds(CLOCK_THREAD_CPUTIME_ID) - thread) * toMicroseconds;
        addLatencies(result);
        return result;
    }

    /// Ends the client's process.
    void end()
    {
        close(m_commands[1]);
        close(m_answers[0]);
        waitpid(m_process, nullptr, 0);
    }

private:
    [[noreturn]] void live()
    {
        close(m_commands[1]);
        close(m_answers[0]);
        try
        {
            std::uint16_t ports[2];
            if (read(m_commands[0], ports, sizeof ports) != sizeof ports)
                _exit(1);
            Client client(m_shared, ports[0], ports[1], URL);
            const char done = static_cast<char>(Command::DONE);
            if (write(m_answers[1], &done, 1) == 1)
                client.run(m_commands[0], m_answers[1]);
        }
        catch (const std::exception& exception)
        {
            std::fprintf(stderr, "fanout: client: %s\n", exception.what());
            _exit(1);
        }
        _exit(0);
    }

    void awaitDone()
    {
        char done = 0;
        if (read(m_answers[0], &done, 1) != 1)
            throw std::runtime_error("the clients are gone");
    }

    void addLatencies(Result& result)
    {
        const auto begin = m_shared.nanoseconds.begin();
        const auto end = begin + static_cast<std::ptrdiff_t>(m_shared.latencies);
        std::sort(begin, end);
        const auto at = [&](double part) {
            return static_cast<double>(
                       begin[static_cast<std::ptrdiff_t>(static_cast<double>(end - begin - 1) * part)]) /
                   1000;
        };
        result.median = at(0.5);
        result.p99 = at(0.99);
        result.slowest = at(1);
    }

    Shared& m_shared;
    int m_commands[2];
    int m_answers[2];
    pid_t m_process = -1;
};

double median(const std::vector<Result>& results, double Result::*figure)
{
    std::vector<double> values;
    for (const Result& result: results)
        values.push_back(result.*figure);
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void print(const char* name, const std::vector<Result>& results)
{
    std::printf("%-9s %8.2f %8.2f %10.0f %10.0f %10.0f   ", name, median(results, &Result::cpu),
                median(results, &Result::thread), median(results, &Result::median), median(results, &Result::p99),
                median(results, &Result::slowest));
    for (const Result& result: results)
        std::printf(" %.2f", result.cpu);
    std::printf("\n");
}

std::string machine()
{
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);)
        if (line.compare(0, 10, "model name") == 0)
            return line.substr(line.find(':') + 2);
    return "unknown processor";
}

void report(const Shared& shared, const std::vector<Result>& service, const std::vector<Result>& bare)
{
    std::printf("%s, %u threads; %zu connections, frames of %zu bytes, %d runs of %zu changes each, in turns\n\n",
                machine().c_str(), std::thread::hardware_concurrency(), CONNECTIONS, shared.frameLength.load(), RUNS,
                ROUNDS);
    std::printf("          microseconds for each notification, medians of the runs\n");
    std::printf("%-9s %8s %8s %10s %10s %10s    %s\n", "", "cpu", "thread", "latency50", "latency99", "slowest",
                "cpu of each run");
    print("service", service);
    print("bare loop", bare);
    std::printf("\nratio of cpu: %.2f\n", median(service, &Result::cpu) / median(bare, &Result::cpu));
}

void raiseDescriptorLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < 3 * CONNECTIONS)
        throw std::runtime_error("needs 3000 descriptors: raise the hard limit, ulimit -Hn");
}

void run()
{
    Logging::Log::SetLogLevel(Poco::Message::PRIO_WARNING, "");
    raiseDescriptorLimit();
    void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::runtime_error("no shared memory");
    Shared& shared = *new (memory) Shared;
    Clients clients(shared); // before the first thread

    Bench bench;
    Kesa::Host::ServiceHost::Options options;
    options.port = 0;
    Kesa::Host::ServiceHost host(bench, options);
    host.start();
    BareLoop bareLoop;
    clients.connect(host.port(), bareLoop.port());
    bareLoop.accept();

    std::vector<Result> service;
    std::vector<Result> bare;
    const auto change = [&bench] { bench.items->change(); };
    const auto send = [&] { bareLoop.send(shared); };
    clients.measure(Command::SERVICE, change); // warms up
    for (int i = 0; i < RUNS; ++i)
    {
        service.push_back(clients.measure(Command::SERVICE, change));
        bare.push_back(clients.measure(Command::BARE, send));
    }
    report(shared, service, bare);
    clients.end();
    host.stop();
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
        std::fprintf(stderr, "fanout: %s\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
