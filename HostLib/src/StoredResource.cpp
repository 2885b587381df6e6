#include "StoredResource.h"

#include <Poco/UUIDGenerator.h>

#include <algorithm>

namespace Kesa::Host
{

using namespace Data;

namespace
{
bool isBefore(const ElementBase::Ptr& element, XObjectId number)
{
    return element->getXObjectId() < number;
}

template <class Elements>
auto lowerBound(Elements& elements, XObjectId number)
{
    return std::lower_bound(elements.begin(), elements.end(), number, isBefore);
}
} // namespace

StoredResource::StoredResource(const std::string& service, const std::string& name, const std::string& description,
                               const std::string& schemaText, XObjectId number)
    : GenericObject<ResourceBase>(number),
      m_name(name),
      m_path("/" + service + "/" + name),
      m_description(description),
      m_specification(schemaText)
{
    const Poco::URI uri(m_path);
    setName(name);
    setUri(uri);
    setId(Poco::UUIDGenerator::defaultGenerator().createFromName(Poco::UUID::uri(), uri.toString()));
    if (!description.empty())
        m_attrContainer.setValue(KEY_DESCRIPTION, AttributeValueStringable<std::string>(description));
}

StoredResource::~StoredResource() = default;

bool StoredResource::hasElement(XObjectId number) const
{
    return !getElement(number).isNull();
}

ElementBase::Ptr StoredResource::getElement(XObjectId number) const
{
    Util::ReadLock guard(m_lock);
    const auto found = lowerBound(m_elements, number);
    return found == m_elements.end() || (*found)->getXObjectId() != number ? ElementBase::Ptr() : *found;
}

ElementCollection StoredResource::getElements() const
{
    Util::ReadLock guard(m_lock);
    return m_elements;
}

StoredElement::Ptr StoredResource::find(const std::string& id) const
{
    Util::ReadLock guard(m_lock);
    const auto found = m_byId.find(id);
    return found == m_byId.end() ? StoredElement::Ptr() : found->second;
}

std::size_t StoredResource::count() const
{
    Util::ReadLock guard(m_lock);
    return m_elements.size();
}

ElementCollection::iterator StoredResource::position(XObjectId number)
{
    return lowerBound(m_elements, number);
}

void StoredResource::put(const StoredElement::Ptr& element)
{
    Util::WriteLock guard(m_lock);
    m_byId[element->id()] = element;
    const auto place = position(element->getXObjectId());
    if (place != m_elements.end() && (*place)->getXObjectId() == element->getXObjectId())
        *place = element;
    else
        m_elements.insert(place, element);
}

void StoredResource::remove(const std::string& id)
{
    Util::WriteLock guard(m_lock);
    const auto found = m_byId.find(id);
    if (found == m_byId.end())
        return;
    m_elements.erase(position(found->second->getXObjectId()));
    m_byId.erase(found);
}

} // namespace Kesa::Host
