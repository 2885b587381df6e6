#include "ServiceEntry.h"

#include "ServiceName.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/Net/IPAddress.h>
#include <Poco/Net/SocketAddress.h>

#include <memory>

namespace Kesa::Host
{

namespace
{

/// An address that clients can connect to. As a number, since the registry does not look names up.
std::string advertisedHost(const ServiceHost::Options& options)
{
    if (!options.advertisedHost.empty())
        return options.advertisedHost;
    const Poco::Net::IPAddress address = Poco::Net::SocketAddress(options.address, 0).host();
    return address.isWildcard() ? "127.0.0.1" : address.toString();
}

} // namespace

void checkEntry(const ServiceHost::Options& options)
{
    checkServiceName(options.name);
    Poco::Net::IPAddress address;
    if (const std::string& host = options.advertisedHost;
        !host.empty() && host != "localhost" && !Poco::Net::IPAddress::tryParse(host, address))
        throw Poco::InvalidArgumentException("The service \"" + options.name + "\" cannot be advertised at \"" + host +
                                             "\": the registry takes IP addresses and \"localhost\", since it looks no "
                                             "names up");
    for (const auto& [name, port]: options.ports)
        if (port == 0)
            throw Poco::InvalidArgumentException("The further port \"" + name + "\" of the service \"" + options.name +
                                                 "\" is 0; clients need the number that is listened on");
}

MicroServiceInfo entryOf(const ServiceHost::Options& options, Poco::UInt16 port)
{
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object;
    json->set(Data::XObjectBase::KEY_NAME, options.name);
    json->set(Data::XObjectBase::KEY_URI, "/" + options.name);
    json->set(MicroServiceInfo::KEY_HOST, advertisedHost(options));
    json->set(MicroServiceInfo::KEY_PORT, port);
    Poco::JSON::Object::Ptr ports = new Poco::JSON::Object;
    for (const auto& [name, further]: options.ports)
        ports->set(name, further);
    json->set(MicroServiceInfo::KEY_PORTS, ports);
    Poco::JSON::Array::Ptr versions = new Poco::JSON::Array;
    for (const std::string& version: options.apiVersions)
        versions->add(version);
    json->set(MicroServiceInfo::KEY_API_VERSIONS, versions);
    json->set(MicroServiceInfo::KEY_DESCRIPTION, options.description);

    const std::unique_ptr<MicroServiceInfo> entry(MicroServiceInfo::FromJson(json));
    return std::move(*entry);
}

} // namespace Kesa::Host
