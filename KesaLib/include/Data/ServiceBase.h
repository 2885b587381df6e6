#pragma once

#include "XObjectBase.h"

#include <Poco/Types.h>

namespace Kesa::Data
{

/// A service, as others see it: its name, and where it is reached.
///
/// Threads: as the derived class says.
class KESA_API ServiceBase: public XObjectBase
{
public:
    typedef Poco::SharedPtr<ServiceBase> Ptr;

    ~ServiceBase() override;

    /// The address or name of the machine.
    virtual std::string getHost() const = 0;
    virtual std::string getDescription() const = 0;
    /// The versions of its API that the service speaks.
    virtual std::vector<std::string> getApiVersions() const = 0;
    /// The id that the registry gave to the service's entry.
    virtual Poco::UUID getRegistryId() const = 0;
    virtual Poco::UInt16 getPort() const = 0;
    /// Further ports, by name.
    virtual std::map<std::string, Poco::UInt16> getPorts() const = 0;
    virtual void setRegistryId(const Poco::UUID& id) = 0;
    /// The port of the service, and behind it the further ones in the order of their names, each port once.
    virtual std::vector<Poco::UInt16> getAllPorts() const;

protected:
    explicit ServiceBase(XObjectId id);
    ServiceBase(const ServiceBase& other);
    ServiceBase(ServiceBase&& other) noexcept;
    ServiceBase& operator=(const ServiceBase& other);
    ServiceBase& operator=(ServiceBase&& other) noexcept;
};

} // namespace Kesa::Data
