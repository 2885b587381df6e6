#include "GetCommand.h"
#include "LineOutput.h"
#include "ServiceUrl.h"
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

struct CommandLine
{
    std::vector<std::string> urls;
    WatchCommand::Options watch;
};

CLI::App* addWatch(CLI::App& app, CommandLine& line)
{
    CLI::App* watch = app.add_subcommand("watch", "Follow URLs and print what changes, as it changes");
    watch->add_option("URL", line.urls, "http://host:port/service[/resource[/element]], any number of them")
        ->required();
    watch->add_flag("--json", line.watch.json, "Print each received message as it came, one a line");
    watch->add_option("--count", line.watch.count, "End after so many notifications")->check(CLI::PositiveNumber);
    watch->add_option("--timeout", line.watch.timeout, "End after so many seconds; status 1 if nothing was received")
        ->check(CLI::Range(0.001, 1e6));
    watch->add_option("--interval", line.watch.interval, "Send the state every so many milliseconds, changed or not")
        ->check(CLI::Range(1L, MAX_MILLISECONDS));
    watch->add_option("--update-limit", line.watch.updateLimit, "Least milliseconds between two notifications")
        ->check(CLI::Range(0L, MAX_MILLISECONDS));
    watch->add_flag("--autosubscribe", line.watch.autosubscribe, "Also follow each element of a resource");
    return watch;
}

CLI::App* addGet(CLI::App& app, CommandLine& line)
{
    CLI::App* get = app.add_subcommand("get", "Read URLs once and print their data");
    get->add_option("URL", line.urls, "http://host:port/service[/resource[/element]], any number of them")->required();
    get->add_flag("--json", line.watch.json, "Print the whole answer on one line");
    return get;
}

int watchUrls(const std::vector<ServiceUrl>& urls, const WatchCommand::Options& options, LineOutput& output)
{
    StopSignal stop;
    return WatchCommand(urls, options, output, std::cerr).run(stop.descriptor());
}

int getUrls(const std::vector<ServiceUrl>& urls, bool json, LineOutput& output)
{
    int status = 0;
    for (const ServiceUrl& url: urls)
        if (!getUrl(url, json, output, std::cerr))
            status = 1;
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Reads and follows the data of services");
    app.require_subcommand(1);
    CommandLine line;
    const CLI::App* watch = addWatch(app, line);
    addGet(app, line);
    CLI11_PARSE(app, argc, argv);

    std::signal(SIGPIPE, SIG_IGN); // a reader of the output that goes away is an end and no crash
    try
    {
        const std::vector<ServiceUrl> urls(line.urls.begin(), line.urls.end());
        LineOutput output(STDOUT_FILENO);
        return watch->parsed() ? watchUrls(urls, line.watch, output) : getUrls(urls, line.watch.json, output);
    }
    catch (const Poco::Exception& error)
    {
        std::cerr << "kesa: " << error.message() << std::endl;
        return 1;
    }
}
