#pragma once

#include <ostream>

namespace Kesa::Client
{

class LineOutput;
class ServiceUrl;

/// Reads `url` once over HTTP and writes the data of the answer to `output`, indented for people, or with `json` the
/// whole answer on one line. Waits at most 10 s for each piece of it. Returns true if the service answered with data;
/// otherwise `errors` has a line that says which URL, code and message. Raises what LineOutput::write raises. Any
/// thread.
bool getUrl(const ServiceUrl& url, bool json, LineOutput& output, std::ostream& errors);

} // namespace Kesa::Client
