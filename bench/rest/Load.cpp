#include "Load.h"

#include <cstdio>
#include <ctime>
#include <stdexcept>

namespace RestBench
{

namespace
{

double cpuSeconds()
{
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// What the command prints.
std::string outputOf(const std::string& command)
{
    FILE* const pipe = ::popen(command.c_str(), "r");
    if (!pipe)
        throw std::runtime_error("cannot run " + command);
    std::string output;
    char buffer[4096];
    while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, pipe))
        output.append(buffer, count);
    if (::pclose(pipe) != 0)
        throw std::runtime_error(command + " failed: " + output);
    return output;
}

/// The number that stands before a text of wrk's report.
double numberBefore(const std::string& output, const std::string& text)
{
    const std::size_t end = output.find(text);
    if (end == std::string::npos)
        throw std::runtime_error("wrk does not say how many requests it made: " + output);
    return std::stod(output.substr(output.find_last_of('\n', end) + 1));
}

} // namespace

Load Load::measure(Poco::UInt16 port, const std::string& url, const std::string& script)
{
    const std::string command = "wrk -t1 -c" + std::to_string(CONNECTIONS) + " -d" + std::to_string(SECONDS) + "s " +
                                (script.empty() ? "" : "-s '" + script + "' ") +
                                "'http://127.0.0.1:" + std::to_string(port) + url + "' 2>&1";
    const double before = cpuSeconds();
    const std::string output = outputOf(command);
    const double cpu = cpuSeconds() - before;
    if (output.find("Non-2xx") != std::string::npos || output.find("Socket errors") != std::string::npos)
        throw std::runtime_error(url + " was not answered: " + output);
    const double requests = numberBefore(output, " requests in ");
    return {requests / SECONDS, cpu / requests * 1e6};
}

} // namespace RestBench
