#pragma once

#include "ServiceUrl.h"

#include <Poco/Dynamic/Var.h>

#include <string>
#include <vector>

namespace Kesa::Client
{

/// The services that a registry lists, and the way from a service's name to its address.
///
/// Errors:  Poco::Exception with a text for the user, which names the registry and says what to do.
/// Threads: any; each operation blocks for its exchange, as httpGet() does.
class ServiceDirectory
{
public:
    struct Entry
    {
        std::string name;
        std::string uri;
        std::string address; ///< "host:port"
        std::string id;
    };

    explicit ServiceDirectory(const ServiceUrl& registry): m_registry(registry) {}

    /// The registry's whole answer, as JSON text on one line.
    std::string json() const;
    /// What is registered, ordered by name and then by address.
    std::vector<Entry> list() const;
    /// The URL that a command line means:
    ///     http://host:port/path, ws://host:port/path, host:port/path     an address; nobody is asked
    ///     NAME/path?query#fragment, /NAME/path?query#fragment            the service of that name: of several the
    ///     first
    ///                                                                    that answers
    /// "registry" is the name of the registry itself.
    ServiceUrl resolve(const std::string& text) const;

    /// The entries that are in `data`, an array as the registry sends it, in the order of list(). What is no usable
    /// entry is left out.
    static std::vector<Entry> entriesOf(const Poco::Dynamic::Var& data);

private:
    ServiceUrl chooseEntry(const std::string& name, const std::string& rest) const;
    [[noreturn]] void throwUnknown(const std::string& name, const std::vector<Entry>& known) const;

    const ServiceUrl m_registry;
};

} // namespace Kesa::Client
