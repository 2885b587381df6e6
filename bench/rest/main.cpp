// rest: what requests cost over HTTP, beside a bare handler of POCO's HTTP server that sends the same texts ready-made.
// How to read the result: bench/README.md.

#include "BareServer.h"
#include "Followers.h"
#include "Load.h"

#include <DataAccessTrigger.h>
#include <GenericServiceBootstrap.h>
#include <InMemoryDataAccessPoint.h>
#include <Log.h>
#include <ServiceHost.h>

#include <Poco/JSON/Object.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/StreamCopier.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>

namespace
{

using namespace RestBench;
using Kesa::Host::InMemoryDataAccessPoint;

constexpr int RUNS = 3;      ///< of each kind, in turns; the median counts
constexpr int ELEMENTS = 50; ///< in the list
const std::string LIST = "/bench/items";

class Bench: public Kesa::Service::GenericServiceBootstrap
{
public:
    Bench()
    {
        m_store->addService("bench");
        m_store->addResource("bench", "items");
        for (int i = 0; i < ELEMENTS; ++i)
        {
            Poco::JSON::Object::Ptr item = new Poco::JSON::Object;
            item->set("name", "item " + std::to_string(i));
            item->set("figure", 100'000 + i);
            item->set("price", 12.5);
            item->set("available", true);
            item->set("note", std::string(80, 'n'));
            url = m_store->insertElement("bench", "items", item).created->getUri().getPath();
        }
    }
    ~Bench() override { shutdown(); }

    std::string url; ///< of one element

protected:
    bool startupImpl() override { return true; }
    bool shutdownImpl() override { return true; }
    Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> createSubscriptionInterface() override
    {
        return new Kesa::Host::DataAccessTrigger(m_store);
    }

private:
    InMemoryDataAccessPoint::Ptr m_store = new InMemoryDataAccessPoint;
};

/// What the service answers.
std::string get(Poco::UInt16 port, const std::string& url)
{
    Poco::Net::HTTPClientSession session("127.0.0.1", port);
    Poco::Net::HTTPRequest request(Poco::Net::HTTPRequest::HTTP_GET, url, Poco::Net::HTTPMessage::HTTP_1_1);
    session.sendRequest(request);
    Poco::Net::HTTPResponse response;
    std::string body;
    Poco::StreamCopier::copyToString(session.receiveResponse(response), body);
    return body;
}

Load median(std::vector<Load> loads)
{
    std::sort(loads.begin(), loads.end(), [](const Load& a, const Load& b) { return a.cpu < b.cpu; });
    return loads[loads.size() / 2];
}

/// Measures service and bare handler in turns and prints the line of the table.
void measure(const char* name, Poco::UInt16 service, Poco::UInt16 bare, const std::string& url,
             const std::string& script = "")
{
    std::vector<Load> ours;
    std::vector<Load> theirs;
    for (int i = 0; i < RUNS; ++i)
    {
        ours.push_back(Load::measure(service, url, script));
        theirs.push_back(Load::measure(bare, url, script));
    }
    const Load a = median(ours);
    const Load b = median(theirs);
    std::printf("%-38s %9.0f %7.1f   %9.0f %7.1f   %5.2f\n", name, a.perSecond, a.cpu, b.perSecond, b.cpu,
                a.cpu / b.cpu);
    std::fflush(stdout);
}

std::string machine()
{
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);)
        if (line.compare(0, 10, "model name") == 0)
            return line.substr(line.find(':') + 2);
    return "unknown processor";
}

void raiseDescriptorLimit()
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

void run()
{
    Logging::Log::SetLogLevel(Poco::Message::PRIO_ERROR, "");
    raiseDescriptorLimit();
    Followers followers; // before the first thread
    Bench bench;
    Kesa::Host::ServiceHost host(bench, Kesa::Host::ServiceHost::Options());
    host.start();
    const std::string fields = LIST + "?$fields=name,figure";
    BareServer bare(
        {{bench.url, get(host.port(), bench.url)}, {LIST, get(host.port(), LIST)}, {fields, get(host.port(), fields)}});

    std::printf("%s, %u threads; wrk with %d connections, %d runs of %d s each, in turns; an element has %zu bytes\n\n",
                machine().c_str(), std::thread::hardware_concurrency(), Load::CONNECTIONS, RUNS, Load::SECONDS,
                get(host.port(), bench.url).size());
    std::printf("%-38s %17s   %17s   %5s\n", "", "service", "bare handler", "ratio");
    std::printf("%-38s %9s %7s   %9s %7s   %5s\n", "", "req/s", "us cpu", "req/s", "us cpu", "cpu");
    measure("GET element", host.port(), bare.port(), bench.url);
    measure("GET list of 50", host.port(), bare.port(), LIST);
    measure("GET list of 50, two fields", host.port(), bare.port(), fields);
    measure("POST update, no subscriber", host.port(), bare.port(), bench.url, KESA_BENCH_UPDATE);
    followers.add(host.port(), bench.url, 100);
    measure("POST update, 100 subscribers", host.port(), bare.port(), bench.url, KESA_BENCH_UPDATE);
    followers.add(host.port(), bench.url, 900);
    measure("POST update, 1,000 subscribers", host.port(), bare.port(), bench.url, KESA_BENCH_UPDATE);
    host.stop();
}

} // namespace

int main()
{
    try
    {
        run();
    }
    catch (const Poco::Exception& e)
    {
        std::fprintf(stderr, "rest: %s\n", e.displayText().c_str());
        return EXIT_FAILURE;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "rest: %s\n", e.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
