#include "DataAccess/ServiceDataAccessPoint.h"

#include "Command/UrlPath.h"

namespace Kesa::Service
{

using namespace Data;

ServiceDataAccessPoint::UpdateResult::UpdateResult(Value value): m_value(value) {}

ServiceDataAccessPoint::UpdateResult::UpdateResult(Value value, const std::string& message)
    : m_value(value), m_message(message)
{
}

ServiceDataAccessPoint::~ServiceDataAccessPoint() = default;

ServiceDataAccessPoint::UpdateResult ServiceDataAccessPoint::updateElement(const Poco::URI& uri,
                                                                           const Poco::JSON::Object::Ptr& object)
{
    const Command::UrlPath path(uri);
    return updateElement(path.getService(), path.getResource(), path.getElement(), object);
}

ServiceDataAccessPoint::UpdateResult ServiceDataAccessPoint::updateElement(const std::string& service,
                                                                           const std::string& resource,
                                                                           const Poco::UUID& id,
                                                                           const Poco::JSON::Object::Ptr& object)
{
    return updateElement(service, resource, id.toString(), object);
}

ServiceDataAccessPoint::UpdateResult ServiceDataAccessPoint::deleteElement(XObjectId id)
{
    return deleteFound(getElement(id));
}

ServiceDataAccessPoint::UpdateResult ServiceDataAccessPoint::deleteElement(const Poco::URI& uri)
{
    return deleteFound(getElement(uri));
}

ServiceDataAccessPoint::UpdateResult
ServiceDataAccessPoint::deleteElement(const std::string& service, const std::string& resource, const Poco::UUID& id)
{
    return deleteFound(getElement(service, resource, id));
}

ServiceDataAccessPoint::UpdateResult ServiceDataAccessPoint::deleteElement(const std::string& service,
                                                                           const std::string& resource,
                                                                           const std::string& element)
{
    Poco::UUID id;
    if (!id.tryParse(element))
        return UpdateResult::PROCESSING_ERROR;
    return deleteFound(getElement(service, resource, id));
}

ServiceDataAccessPoint::UpdateResult ServiceDataAccessPoint::deleteFound(const ElementBase::Ptr& element)
{
    return element.isNull() ? UpdateResult(UpdateResult::NOT_FOUND) : deleteElement(*element);
}

} // namespace Kesa::Service
