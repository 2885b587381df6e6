#pragma once

#include <Poco/JSON/Object.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace Kesa::Client
{

class LineOutput;
class ServiceUrl;

/// Writes what is registered at `registry` to `output`: a table of names, addresses and ids, or with `json` the
/// registry's whole answer on one line. False, with the reason in `errors`, if the registry did not tell. Raises what
/// LineOutput::write raises. Any thread.
bool listServices(const ServiceUrl& registry, bool json, LineOutput& output, std::ostream& errors);

/// Turns the successive states of a registry's list into lines for people: "+ name  address  id" for each service that
/// came, "- ..." for each that went.
///
/// Threads: one at a time.
class ServiceChanges
{
public:
    /// The lines for the next state, a notification of the list; none where nothing came or went. A registry sends no
    /// more than a page of a very long list; a line then says so.
    std::vector<std::string> next(const Poco::JSON::Object& message);

private:
    std::map<std::string, std::string> m_rows; ///< the last state: what stands in a line, by id
};

} // namespace Kesa::Client
