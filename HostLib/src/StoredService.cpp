#include "StoredService.h"

#include "Data/ResourceBase.h"

#include <Poco/UUIDGenerator.h>

namespace Kesa::Host
{

using namespace Data;

StoredService::StoredService(const std::string& name, const std::string& description, XObjectId number)
    : GenericObject<ServiceBase>(number), m_description(description)
{
    const Poco::URI uri("/" + name);
    setName(name);
    setUri(uri);
    setId(Poco::UUIDGenerator::defaultGenerator().createFromName(Poco::UUID::uri(), uri.toString()));
    if (!description.empty())
        m_attrContainer.setValue(ResourceBase::KEY_DESCRIPTION, AttributeValueStringable<std::string>(description));
}

StoredService::~StoredService() = default;

std::string StoredService::getHost() const
{
    return std::string();
}

std::string StoredService::getDescription() const
{
    return m_description;
}

std::vector<std::string> StoredService::getApiVersions() const
{
    return {};
}

Poco::UUID StoredService::getRegistryId() const
{
    return getId();
}

Poco::UInt16 StoredService::getPort() const
{
    return 0;
}

std::map<std::string, Poco::UInt16> StoredService::getPorts() const
{
    return {};
}

void StoredService::setRegistryId(const Poco::UUID& id)
{
    setId(id);
}

} // namespace Kesa::Host
