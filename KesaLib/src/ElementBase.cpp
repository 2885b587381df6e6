#include "Data/ElementBase.h"

#include "Data/AttributeValueBase.h"

#include <algorithm>

namespace Kesa::Data
{

ElementBase::ElementBase(XObjectId id): XObjectBase(id) {}

ElementBase::ElementBase(const std::string& serviceName, const std::string& resourceName, XObjectId id)
    : XObjectBase(id), m_serviceName(serviceName), m_resourceName(resourceName)
{
}

ElementBase::ElementBase(const Poco::URI& uri, XObjectId id): XObjectBase(id)
{
    initialize(uri, nullptr);
}

ElementBase::ElementBase(const XObjectBase& other): XObjectBase(other)
{
    initializeFrom(other);
}

ElementBase::ElementBase(XObjectBase&& other): XObjectBase(other) // nothing but a number
{
    initializeFrom(other);
}

ElementBase::ElementBase(const ElementBase& other) = default;
ElementBase::ElementBase(ElementBase&& other) noexcept = default;
ElementBase& ElementBase::operator=(const ElementBase& other) = default;
ElementBase& ElementBase::operator=(ElementBase&& other) noexcept = default;
ElementBase::~ElementBase() = default;

void ElementBase::initialize(const std::string& serviceName, const std::string& resourceName)
{
    m_serviceName = serviceName;
    m_resourceName = resourceName;
}

void ElementBase::initialize(const Poco::URI& uri, std::string* element)
{
    std::vector<std::string> segments;
    uri.getPathSegments(segments);
    segments.resize(std::max<std::size_t>(segments.size(), 3));
    initialize(segments[0], segments[1]);
    if (element)
        *element = segments[2];
}

void ElementBase::initializeFrom(const XObjectBase& other)
{
    if (other.getValue(KEY_URI))
        initialize(other.getUri(), nullptr);
}

} // namespace Kesa::Data
