#include "ServiceDirectory.h"

#include "HttpGet.h"
#include "MessagePrinter.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Stringifier.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <tuple>

namespace Kesa::Client
{
namespace
{

using Entry = ServiceDirectory::Entry;

/// Milliseconds that each of several services of one name has to answer in.
constexpr int ANSWER_TIMEOUT = 2000;
/// Names that an error message tells.
constexpr std::size_t MAX_TOLD = 20;

/// Where the name of a service, or the server of an address, ends.
std::size_t endOfServer(const std::string& text)
{
    return std::min(text.find_first_of("/?#"), text.size());
}

bool isAddress(const std::string& text)
{
    return text.find("://") != std::string::npos || text.substr(0, endOfServer(text)).find(':') != std::string::npos;
}

bool isName(const std::string& text)
{
    const std::string allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    return !text.empty() && text.size() <= 64 && text.find_first_not_of(allowed) == std::string::npos;
}

std::string hostAndPort(const std::string& host, const std::string& port)
{
    return (host.find(':') == std::string::npos ? host : "[" + host + "]") + ":" + port;
}

/// Raises a Poco::Exception where a member is missing.
Entry entryOf(const Poco::JSON::Object& object)
{
    return {object.getValue<std::string>("name"), object.getValue<std::string>("uri"),
            hostAndPort(object.getValue<std::string>("host"), object.getValue<std::string>("port")),
            object.getValue<std::string>("id")};
}

HttpAnswer ask(const ServiceUrl& registry)
{
    const std::string start = "cannot read the list of the registry at " + registry.authority() + ": ";
    HttpAnswer answer{};
    try
    {
        answer = httpGet(registry);
    }
    catch (const Poco::Exception& error)
    {
        throw Poco::IOException(start + error.displayText() +
                                "; start kesa-registry, or say where it is with --registry HOST:PORT, or give the "
                                "service's address: host:port/path");
    }
    if (!answer.isSuccess())
        throw Poco::DataException(start + answer.describeError());
    return answer;
}

/// The first names in `entries`, each once, for a message.
std::string namesOf(const std::vector<Entry>& entries)
{
    std::set<std::string> names;
    for (const Entry& entry: entries)
        names.insert(MessagePrinter::compact(entry.name));
    std::string text;
    std::size_t told = 0;
    for (const std::string& name: names)
        if (told++ < MAX_TOLD)
            text += " " + name;
    return text + (names.size() > MAX_TOLD ? " ..." : "");
}

} // namespace

std::string ServiceDirectory::json() const
{
    std::ostringstream text;
    Poco::JSON::Stringifier::stringify(ask(m_registry).document(), text);
    return text.str();
}

std::vector<Entry> ServiceDirectory::list() const
{
    const HttpAnswer answer = ask(m_registry);
    try
    {
        return entriesOf(answer.document()->get("data"));
    }
    catch (const Poco::Exception& error)
    {
        throw Poco::DataException("cannot understand the list of the registry at " + m_registry.authority() + ": " +
                                  error.displayText() + "; is that a registry?");
    }
}

std::vector<Entry> ServiceDirectory::entriesOf(const Poco::Dynamic::Var& data)
{
    std::vector<Entry> entries;
    if (data.type() != typeid(Poco::JSON::Array::Ptr))
        return entries;
    for (const Poco::Dynamic::Var& element: *data.extract<Poco::JSON::Array::Ptr>())
    {
        try
        {
            entries.push_back(entryOf(*element.extract<Poco::JSON::Object::Ptr>()));
        }
        catch (const Poco::Exception&)
        {
            // One entry that cannot be used hides no others.
        }
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b)
              { return std::tie(a.name, a.address, a.id) < std::tie(b.name, b.address, b.id); });
    return entries;
}

ServiceUrl ServiceDirectory::resolve(const std::string& text) const
{
    if (isAddress(text))
        return ServiceUrl(text);
    const std::string path = text.substr(text.compare(0, 1, "/") == 0 ? 1 : 0);
    const std::string name = path.substr(0, endOfServer(path));
    if (!isName(name))
        throw Poco::SyntaxException("\"" + text + "\" is neither a URL, as http://host:port/path, nor does it begin " +
                                    "with the name of a service, as NAME/path");
    const std::string rest = path.substr(name.size());
    if (name == "registry")
        return ServiceUrl(m_registry.authority() + "/registry" + rest);
    return chooseEntry(name, rest);
}

ServiceUrl ServiceDirectory::chooseEntry(const std::string& name, const std::string& rest) const
{
    const std::vector<Entry> known = list();
    std::vector<ServiceUrl> candidates;
    std::string addresses;
    for (const Entry& entry: known)
    {
        if (entry.name != name)
            continue;
        candidates.push_back(ServiceUrl(entry.address + entry.uri + rest));
        addresses += " " + candidates.back().authority();
    }
    if (candidates.empty())
        throwUnknown(name, known);
    if (candidates.size() == 1)
        return candidates.front(); // whoever connects to it will see whether it answers
    for (const ServiceUrl& candidate: candidates)
        if (answersHttp(candidate, ANSWER_TIMEOUT))
            return candidate;
    throw Poco::NotFoundException("none of the services named \"" + name + "\" answers; the registry at " +
                                  m_registry.authority() + " lists" + addresses);
}

void ServiceDirectory::throwUnknown(const std::string& name, const std::vector<Entry>& known) const
{
    const std::string others = known.empty() ? "nothing is" : "these are:" + namesOf(known);
    throw Poco::NotFoundException("no service named \"" + name + "\" is registered at " + m_registry.authority() +
                                  ", " + others + "; start it, or give its address: host:port/path");
}

} // namespace Kesa::Client
