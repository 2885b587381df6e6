#include "Data/ElementGeneric.h"

namespace Kesa::Data
{

namespace
{
Poco::URI elementUri(const std::string& service, const std::string& resource, const Poco::UUID& id)
{
    std::string path; // encoded, since the names are no part of a URI yet: a percent sign is one
    for (const std::string& segment: {service, resource, id.toString()})
    {
        path += '/';
        Poco::URI::encode(segment, "?#", path);
    }
    Poco::URI uri;
    uri.setPath(path);
    return uri;
}
} // namespace

ElementGeneric::ElementGeneric(const std::string& service, const std::string& resource, const std::string& name,
                               const Poco::UUID& id, XObjectId objectId)
    : GenericObject<ElementBase>(name, id, elementUri(service, resource, id), objectId)
{
    initialize(service, resource);
}

ElementGeneric::ElementGeneric(const std::string& service, const std::string& resource, const std::string& name,
                               const std::string& id, XObjectId objectId)
    : ElementGeneric(service, resource, name, parseId(id), objectId)
{
}

ElementGeneric::ElementGeneric(const Poco::URI& uri, const std::string& name, XObjectId objectId)
    : GenericObject<ElementBase>(objectId)
{
    std::string element;
    initialize(uri, &element);
    setName(name);
    setUri(uri);
    Poco::UUID id;
    if (tryParseId(element, id))
        setId(id);
}

ElementGeneric::ElementGeneric(const ElementBase& other): GenericObject<ElementBase>(other) {}

ElementGeneric::ElementGeneric(const XObjectGeneric& other): ElementGeneric(static_cast<const XObjectBase&>(other)) {}

ElementGeneric::ElementGeneric(XObjectGeneric&& other): GenericObject<ElementBase>(other.getXObjectId())
{
    m_attrContainer = AttributeContainer(other.getXObjectId(), other.releaseAttributes());
    if (getValue(KEY_URI))
        initialize(getUri(), nullptr);
}

ElementGeneric::ElementGeneric(const XObjectBase& other)
    : GenericObject<ElementBase>(other, AttributeContainer::deepCopy(other.getXObjectId(), other.getAttributes()))
{
}

ElementGeneric::ElementGeneric(const ElementGeneric& other) = default;
ElementGeneric::ElementGeneric(ElementGeneric&& other) noexcept = default;
ElementGeneric& ElementGeneric::operator=(const ElementGeneric& other) = default;
ElementGeneric& ElementGeneric::operator=(ElementGeneric&& other) noexcept = default;
ElementGeneric::~ElementGeneric() = default;

ElementGeneric* ElementGeneric::copy() const
{
    return new ElementGeneric(static_cast<const ElementBase&>(*this));
}

} // namespace Kesa::Data
