#include "Data/ServiceBase.h"

#include <algorithm>

namespace Kesa::Data
{

ServiceBase::ServiceBase(XObjectId id): XObjectBase(id) {}
ServiceBase::ServiceBase(const ServiceBase& other) = default;
ServiceBase::ServiceBase(ServiceBase&& other) noexcept = default;
ServiceBase& ServiceBase::operator=(const ServiceBase& other) = default;
ServiceBase& ServiceBase::operator=(ServiceBase&& other) noexcept = default;
ServiceBase::~ServiceBase() = default;

std::vector<Poco::UInt16> ServiceBase::getAllPorts() const
{
    std::vector<Poco::UInt16> all{getPort()};
    for (const auto& named: getPorts())
        if (std::find(all.begin(), all.end(), named.second) == all.end())
            all.push_back(named.second);
    return all;
}

} // namespace Kesa::Data
