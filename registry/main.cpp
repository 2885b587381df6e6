#include "EntryStore.h"
#include "RegistryRequests.h"
#include "RegistryService.h"
#include "StateFile.h"

#include <Data/ServiceRegistryConnection.h>
#include <Log.h>
#include <ServiceHost.h>

#include <CLI/CLI.hpp>
#include <Poco/Exception.h>
#include <Poco/Net/SocketAddress.h>

#include <exception>
#include <iostream>
#include <memory>
#include <string>

namespace
{

using namespace Kesa::Registry;

constexpr int CANNOT_RUN = 1;
constexpr int CANNOT_USE_STATE = 2;

struct CommandLine
{
    Kesa::Host::ServiceHost::Options host;
    std::string state;
    bool verbose = false;
};

void addOptions(CLI::App& app, CommandLine& line)
{
    line.host.port = Kesa::ServiceRegistryConnection::PORT;
    line.host.threads = RegistryRequests::THREADS;
    app.add_option("--port", line.host.port, "Port to listen on; 0 lets the system choose one")->capture_default_str();
    app.add_option("--bind", line.host.address,
                   "Address to listen on; on other than a loopback address services of other machines may register")
        ->capture_default_str();
    app.add_option("--state", line.state, "File that keeps the entries over a restart; none: they are forgotten");
    app.add_flag("--verbose", line.verbose, "Log who comes and goes, not only who died and what went wrong");
}

std::unique_ptr<EntryStore> openStore(const CommandLine& line, bool onlyLoopback)
{
    if (line.state.empty())
        return std::make_unique<EntryStore>();
    return std::make_unique<EntryStore>(std::make_unique<StateFile>(line.state, EntryReader(onlyLoopback)));
}

/// False also for what is no address of this machine, at which the host cannot listen.
bool isLoopback(const std::string& address)
{
    try
    {
        return Poco::Net::SocketAddress(address, 0).host().isLoopback();
    }
    catch (const Poco::Exception&)
    {
        return false;
    }
}

} // namespace

/// Runs the registry until SIGTERM or SIGINT. Status 0 after a clean stop, 1 if it could not start, 2 if that was for
/// its state file.
int main(int argc, char** argv)
{
    CLI::App app("The registry of a system of services: who is there, and where");
    CommandLine line;
    addOptions(app, line);
    CLI11_PARSE(app, argc, argv);
    Logging::Log::SetLogLevel(line.verbose ? Poco::Message::PRIO_INFORMATION : Poco::Message::PRIO_NOTICE, "");

    int failure = CANNOT_USE_STATE;
    try
    {
        const bool onlyLoopback = isLoopback(line.host.address);
        RegistryService service(openStore(line, onlyLoopback));
        failure = CANNOT_RUN;
        RegistryRequests requests(service, onlyLoopback);
        line.host.handleFirst =
            [&requests](Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response)
        { return requests.handle(request, response); };
        return Kesa::Host::ServiceHost(service, line.host).run();
    }
    catch (const Poco::Exception& error)
    {
        std::cerr << "kesa-registry: " << error.message() << std::endl;
    }
    catch (const std::exception& error)
    {
        std::cerr << "kesa-registry: " << error.what() << std::endl;
    }
    return failure;
}
