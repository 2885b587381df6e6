#pragma once

#include <Poco/Types.h>

#include <string>

namespace RestBench
{

/// What a run of wrk against this process found.
struct Load
{
    double perSecond = 0; ///< requests
    double cpu = 0;       ///< microseconds of this whole process for each request

    static constexpr int CONNECTIONS = 4; ///< kept alive; enough to keep two cores busy
    static constexpr int SECONDS = 2;

    /// Lets wrk ask for the URL; `script` is a file of wrk's or empty. Raises std::runtime_error when wrk cannot run,
    /// or an answer was no success.
    static Load measure(Poco::UInt16 port, const std::string& url, const std::string& script);
};

} // namespace RestBench
