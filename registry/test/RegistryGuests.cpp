#include <Data/MicroServiceInfo.h>
#include <Log.h>
#include <ServiceRegistry.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <vector>

using Kesa::MicroServiceInfo;
using Kesa::Service::ServiceRegistryAbstraction;

namespace
{

MicroServiceInfo guest(const std::string& name, const std::string& port)
{
    Poco::JSON::Object::Ptr entry = new Poco::JSON::Object;
    entry->set("name", name).set("uri", "/" + name).set("host", "127.0.0.1").set("port", std::stoi(port));
    const std::unique_ptr<MicroServiceInfo> info(MicroServiceInfo::FromJson(entry));
    return *info;
}

/// True if the registry knows the entry, once.
bool isListed(const MicroServiceInfo& entry)
{
    std::vector<MicroServiceInfo> found;
    return ServiceRegistryAbstraction::findRegisteredService(entry.getName(), found) &&
           std::count_if(found.begin(), found.end(),
                         [&](const MicroServiceInfo& other)
                         { return other.getIdString() == entry.getIdString(); }) == 1;
}

} // namespace

/// kesa-registry-guests NAME COUNT PORT: registers COUNT services, looks each up, lets every second one leave again,
/// and prints the ids of those that stay. Status 1 as soon as something is not as it should be.
int main(int, char** argv)
{
    Logging::Log::SetLogLevel(Poco::Message::PRIO_ERROR, "");
    const int count = std::stoi(argv[2]);
    std::set<std::string> ids;
    for (int i = 0; i < count; ++i)
    {
        MicroServiceInfo entry = guest(argv[1], argv[3]);
        if (!ServiceRegistryAbstraction::registerService(entry) || !ids.insert(entry.getIdString()).second ||
            !isListed(entry))
            return 1;
        if (i % 2 == 0)
            std::cout << entry.getIdString() << std::endl;
        else if (!ServiceRegistryAbstraction::unregisterService(entry) || isListed(entry))
            return 1;
    }
    return 0;
}
