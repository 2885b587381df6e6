#include "Data/AttributeContainer.h"

namespace Kesa::Data
{

namespace
{
Poco::Dynamic::Var jsonOf(const AttributeBase& attribute, int expandLevel)
{
    const AttributeValueBase* value = attribute.getValueBase();
    return value ? value->toJSON(expandLevel) : Poco::Dynamic::Var();
}
} // namespace

AttributeContainer::AttributeContainer(XObjectId parent): m_parentId(parent) {}

AttributeContainer::AttributeContainer(XObjectId parent, AttributeMap&& attributes)
    : m_attrMap(std::move(attributes)), m_parentId(parent)
{
}

AttributeContainer::AttributeContainer(const AttributeContainer& other) = default;
AttributeContainer::AttributeContainer(AttributeContainer&& other) noexcept = default;
AttributeContainer& AttributeContainer::operator=(const AttributeContainer& other) = default;
AttributeContainer& AttributeContainer::operator=(AttributeContainer&& other) noexcept = default;
AttributeContainer::~AttributeContainer() = default;

AttributeContainer AttributeContainer::deepCopy(const AttributeContainer& other)
{
    return deepCopy(other.m_parentId, other.m_attrMap);
}

AttributeContainer AttributeContainer::deepCopy(XObjectId parent, const AttributeMap& attributes)
{
    AttributeMap copies;
    for (const auto& [name, attribute]: attributes)
        copies.emplace(name, attribute->copy(parent));
    return AttributeContainer(parent, std::move(copies));
}

bool AttributeContainer::contains(const std::string& name) const
{
    return m_attrMap.find(name) != m_attrMap.end();
}

AttributeBase::Ptr AttributeContainer::getAttribute(const std::string& name) const
{
    const auto found = m_attrMap.find(name);
    return found == m_attrMap.end() ? AttributeBase::Ptr() : found->second;
}

void AttributeContainer::setAttribute(const AttributeBase::Ptr& attribute)
{
    m_attrMap[attribute->getName()] = attribute;
}

void AttributeContainer::setAttribute(AttributeBase::Ptr&& attribute)
{
    const std::string name = attribute->getName();
    m_attrMap[name] = std::move(attribute);
}

AttributeValueBase* AttributeContainer::getValue(const std::string& name) const
{
    const auto found = m_attrMap.find(name);
    return found == m_attrMap.end() ? nullptr : found->second->getValueBase();
}

bool AttributeContainer::removeValue(const std::string& name)
{
    return m_attrMap.erase(name) > 0;
}

Poco::JSON::Object::Ptr AttributeContainer::toJSON(int expandLevel) const
{
    Poco::JSON::Object::Ptr object = new Poco::JSON::Object;
    for (const auto& [name, attribute]: m_attrMap)
        object->set(name, jsonOf(*attribute, expandLevel));
    return object;
}

Poco::JSON::Object::Ptr AttributeContainer::toJSON(const std::vector<std::string>& fields) const
{
    Poco::JSON::Object::Ptr object = new Poco::JSON::Object;
    for (const std::string& field: fields)
        if (const AttributeBase::Ptr attribute = getAttribute(field))
            object->set(field, jsonOf(*attribute, 0));
    return object;
}

void AttributeContainer::throwInvalidType(const std::string& name)
{
    throw Poco::InvalidAccessException("Invalid type for attribute " + name + " in AttributeContainer");
}

} // namespace Kesa::Data
