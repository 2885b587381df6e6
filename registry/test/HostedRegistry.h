#pragma once

#include "EntryStore.h"
#include "RegistryRequests.h"
#include "RegistryService.h"

#include <ServiceHost.h>

#include <memory>

namespace Kesa::Registry::Test
{

/// A registry in this process, on a port that the system chose.
class HostedRegistry
{
public:
    explicit HostedRegistry(const LivenessChecker::Options& checks = {}, std::unique_ptr<EntryStore> store = {})
        : service(store ? std::move(store) : std::make_unique<EntryStore>(), checks), requests(service, true)
    {
        Kesa::Host::ServiceHost::Options options;
        options.threads = RegistryRequests::THREADS;
        options.handleFirst = [this](Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response)
        { return requests.handle(request, response); };
        host = std::make_unique<Kesa::Host::ServiceHost>(service, options);
        host->start();
    }

    RegistryService service;
    RegistryRequests requests;
    std::unique_ptr<Kesa::Host::ServiceHost> host;
};

} // namespace Kesa::Registry::Test
