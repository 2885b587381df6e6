#pragma once

#include "Data/GenericObject.h"
#include "Data/ServiceBase.h"

namespace Kesa::Host
{

/// A service of a store. Where it is reached is not the store's to know: no host, port 0, no versions.
///
/// Threads: one thread at a time; every reader gets a service of its own.
class StoredService: public Data::GenericObject<Data::ServiceBase>
{
public:
    StoredService(const std::string& name, const std::string& description, Data::XObjectId number);
    ~StoredService() override;

    std::string getHost() const override;
    std::string getDescription() const override;
    std::vector<std::string> getApiVersions() const override;
    /// At first an id that is made from the name.
    Poco::UUID getRegistryId() const override;
    Poco::UInt16 getPort() const override;
    std::map<std::string, Poco::UInt16> getPorts() const override;
    void setRegistryId(const Poco::UUID& id) override;

private:
    const std::string m_description;
};

} // namespace Kesa::Host
