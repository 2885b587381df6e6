#include "SystemService.h"

#include <Log.h>
#include <ServiceHost.h>

#include <CLI/CLI.hpp>
#include <Poco/Exception.h>

#include <exception>
#include <iostream>

/// Serves this machine's figures until SIGTERM or SIGINT. Status 0 after a clean stop, 1 if it could not start.
int main(int argc, char** argv)
{
    Kesa::Host::ServiceHost::Options options;
    options.port = 8920;
    options.name = "system"; // as its URLs begin; so clients find it through the registry
    options.description = "This machine: its processors, memory, disks, interfaces and processes";

    CLI::App app("This machine as a service: its processors, memory, disks, interfaces and processes");
    app.add_option("--port", options.port, "Port to listen on; 0 lets the system choose one")->capture_default_str();
    app.add_option("--bind", options.address, "Address to listen on")->capture_default_str();
    bool isUnlisted = false;
    app.add_flag("--unlisted", isUnlisted, "Do not register at the service registry");
    bool verbose = false;
    app.add_flag("--verbose", verbose, "Log what clients do, not only what goes wrong");
    CLI11_PARSE(app, argc, argv);
    if (isUnlisted)
        options.name.clear();
    Logging::Log::SetLogLevel(verbose ? Poco::Message::PRIO_INFORMATION : Poco::Message::PRIO_WARNING, "");

    try
    {
        SystemMonitor::SystemService service;
        Kesa::Host::ServiceHost host(service, options);
        return host.run();
    }
    catch (const Poco::Exception& error)
    {
        std::cerr << "system-monitor: " << error.displayText() << std::endl;
    }
    catch (const std::exception& error)
    {
        std::cerr << "system-monitor: " << error.what() << std::endl;
    }
    return 1;
}
