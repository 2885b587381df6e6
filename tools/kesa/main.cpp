#include "GetCommand.h"
#include "LineOutput.h"
#include "ServiceDirectory.h"
#include "ServiceUrl.h"
#include "ServicesCommand.h"
#include "StopSignal.h"
#include "WatchCommand.h"

#include <CLI/CLI.hpp>
#include <Poco/Exception.h>

#include <csignal>
#include <iostream>
#include <limits>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

using namespace Kesa::Client;

/// Milliseconds on the wire have 31 bits.
constexpr long MAX_MILLISECONDS = std::numeric_limits<int>::max();

constexpr char URL_FORMS[] = "host:port/service[/resource[/element]], or the name of a registered service in place of "
                             "its address: service[/resource[/element]]; any number of them";

struct CommandLine
{
    std::vector<std::string> urls;
    std::string registry = "127.0.0.1:8910";
    bool followServices = false;
    WatchCommand::Options watch;
};

void addRegistry(CLI::App* command, CommandLine& line)
{
    command->add_option("--registry", line.registry, "Where the service registry listens, as HOST:PORT")
        ->capture_default_str();
}

void addEnds(CLI::App* command, CommandLine& line)
{
    command->add_option("--count", line.watch.count, "End after so many notifications")->check(CLI::PositiveNumber);
    command->add_option("--timeout", line.watch.timeout, "End after so many seconds; status 1 if nothing was received")
        ->check(CLI::Range(0.001, 1e6));
}

void addWatch(CLI::App& app, CommandLine& line)
{
    CLI::App* watch = app.add_subcommand("watch", "Follow URLs and print what changes, as it changes");
    watch->add_option("URL", line.urls, URL_FORMS)->required();
    watch->add_flag("--json", line.watch.json, "Print each received message as it came, one a line");
    addEnds(watch, line);
    watch->add_option("--interval", line.watch.interval, "Send the state every so many milliseconds, changed or not")
        ->check(CLI::Range(1L, MAX_MILLISECONDS));
    watch->add_option("--update-limit", line.watch.updateLimit, "Least milliseconds between two notifications")
        ->check(CLI::Range(0L, MAX_MILLISECONDS));
    watch->add_flag("--autosubscribe", line.watch.autosubscribe, "Also follow each element of a resource");
    addRegistry(watch, line);
}

void addGet(CLI::App& app, CommandLine& line)
{
    CLI::App* get = app.add_subcommand("get", "Read URLs once and print their data");
    get->add_option("URL", line.urls, URL_FORMS)->required();
    get->add_flag("--json", line.watch.json, "Print the whole answer on one line");
    addRegistry(get, line);
}

void addServices(CLI::App& app, CommandLine& line)
{
    CLI::App* services = app.add_subcommand("services", "List the registered services: name, address and id");
    services->add_flag("--json", line.watch.json, "Print the whole answer on one line; with --watch each message");
    services->add_flag("--watch", line.followServices, "Follow them: print which come (+) and go (-), as it happens");
    addEnds(services, line);
    services->get_option("--count")->needs("--watch");
    services->get_option("--timeout")->needs("--watch");
    addRegistry(services, line);
}

int watchUrls(const std::vector<ServiceUrl>& urls, const WatchCommand::Options& options, LineOutput& output,
              const WatchCommand::Describe& describe = nullptr)
{
    StopSignal stop;
    return WatchCommand(urls, options, output, std::cerr, describe).run(stop.descriptor());
}

int watchServices(const CommandLine& line, LineOutput& output)
{
    ServiceChanges changes;
    // Only what is printed: whole entries may have megabytes together, and the registry gives up a client that is
    // slower than that.
    const std::string fields = line.watch.json ? "" : "?$fields=name,host,port";
    return watchUrls({ServiceDirectory(ServiceUrl(line.registry)).resolve("registry/services" + fields)}, line.watch,
                     output, [&](const Poco::JSON::Object& message) { return changes.next(message); });
}

std::vector<ServiceUrl> resolve(const CommandLine& line)
{
    const ServiceDirectory directory{ServiceUrl(line.registry)};
    std::vector<ServiceUrl> urls;
    for (const std::string& text: line.urls)
        urls.push_back(directory.resolve(text));
    return urls;
}

int getUrls(const std::vector<ServiceUrl>& urls, bool json, LineOutput& output)
{
    int status = 0;
    for (const ServiceUrl& url: urls)
        if (!getUrl(url, json, output, std::cerr))
            status = 1;
    return status;
}

/// Does what the command line says. Returns the exit status.
int run(const CommandLine& line, const std::string& command)
{
    LineOutput output(STDOUT_FILENO);
    if (command == "watch")
        return watchUrls(resolve(line), line.watch, output);
    if (command == "get")
        return getUrls(resolve(line), line.watch.json, output);
    if (line.followServices)
        return watchServices(line, output);
    return listServices(ServiceUrl(line.registry), line.watch.json, output, std::cerr) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Reads and follows the data of services");
    app.require_subcommand(1);
    CommandLine line;
    addWatch(app, line);
    addGet(app, line);
    addServices(app, line);
    CLI11_PARSE(app, argc, argv);

    std::signal(SIGPIPE, SIG_IGN); // a reader of the output that goes away is an end and no crash
    try
    {
        return run(line, app.get_subcommands().front()->get_name());
    }
    catch (const Poco::Exception& error)
    {
        std::cerr << "kesa: " << error.message() << std::endl;
        return 1;
    }
}
