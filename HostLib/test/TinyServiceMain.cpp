// A process for tests: the tiny service on a port that the system chooses. With a number as its argument it has to do
// with so many descriptors; with "fail-start" its start fails; with "slow-stop" its stop does not end by itself;
// with "name=shop" it registers under that name.

#include "TinyService.h"

#include <Log.h>
#include <ServiceHost.h>

#include <chrono>
#include <string>
#include <sys/resource.h>
#include <thread>

namespace
{

class SlowService: public TinyService
{
protected:
    bool shutdownImpl() override
    {
        while (true)
            std::this_thread::sleep_for(std::chrono::seconds(1));
    }
};

} // namespace

int main(int argc, char** argv)
{
    const std::string argument = argc > 1 ? argv[1] : "";
    if (!argument.empty() && argument.find_first_not_of("0123456789") == std::string::npos)
    {
        const rlimit limit{std::stoul(argument), std::stoul(argument)};
        ::setrlimit(RLIMIT_NOFILE, &limit);
        // No warnings then: when a sanitizer checks the types of a log statement, it needs a descriptor itself.
        Logging::Log::SetLogLevel(Poco::Message::PRIO_ERROR, "");
    }
    if (argument == "slow-stop")
    {
        SlowService service;
        return Kesa::Host::ServiceHost(service, {}).run();
    }
    TinyService service;
    service.startSucceeds = argument != "fail-start";
    Kesa::Host::ServiceHost::Options options;
    if (argument.compare(0, 5, "name=") == 0)
        options.name = argument.substr(5);
    Kesa::Host::ServiceHost host(service, options);
    return host.run();
}
