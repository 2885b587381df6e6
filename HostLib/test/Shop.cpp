#include "Shop.h"

#include <Command/UrlPath.h>
#include <Data/AttributeValuePlain.h>
#include <Data/MicroServiceInfo.h>

#include <JsonValue.h>

#include <Poco/JSON/Parser.h>
#include <Poco/UUIDGenerator.h>

#include <algorithm>

using namespace Kesa::Data;
using Kesa::Util::ScopedLock;
using Poco::JSON::Object;

namespace
{

/// "orders" or "customers", whose elements are asked for elsewhere.
class Resource: public ResourceBase
{
public:
    explicit Resource(const std::string& name)
        : ResourceBase(INVALID_XOBJ_ID), m_object(name, Poco::UUID(), Poco::URI("/shop/" + name), INVALID_XOBJ_ID)
    {
        m_object.removeValue(KEY_ID);
        if (name == "customers")
            m_specification = R"({"type":"object","properties":{"age":{"type":"integer"},"city":{}}})";
    }

    AttributeMap getAttributes() const override { return m_object.getAttributes(); }
    AttributeBase::Ptr getAttribute(const std::string& name) const override { return m_object.getAttribute(name); }
    bool hasValue(const std::string& name) const override { return m_object.hasValue(name); }
    std::size_t size() const override { return m_object.size(); }
    AttributeValueBase* getValue(const std::string& name) const override { return m_object.getValue(name); }
    std::string getName() const override { return m_object.getName(); }
    Poco::UUID getId() const override { return Poco::UUID(); }
    Poco::URI getUri() const override { return m_object.getUri(); }
    Object::Ptr toJSON(int level) const override
    {
        Object::Ptr object = m_object.toJSON(level);
        object->set("id", getName());
        return object;
    }
    Object::Ptr toJSON(const std::vector<std::string>& fields) const override { return m_object.toJSON(fields); }
    std::string getDescription() const override { return std::string(); }
    const std::string& getSpecification() const override { return m_specification; }
    bool hasElement(XObjectId) const override { return false; }
    ElementBase::Ptr getElement(XObjectId) const override { return ElementBase::Ptr(); }
    ElementCollection getElements() const override { return {}; }

private:
    XObjectGeneric m_object;
    std::string m_specification;
};

template <class Value, class Plain>
AttributeBase::Ptr plain(const std::string& name, const Plain& value)
{
    return AttributeBase::Ptr(new Attribute<Value>(INVALID_XOBJ_ID, name, Value(value)));
}

AttributeBase::Ptr attribute(const std::string& name, const Poco::Dynamic::Var& value)
{
    if (value.isString())
        return plain<AttributeValueStringable<std::string>>(name, value.convert<std::string>());
    if (value.isBoolean())
        return plain<AttributeValuePlain<bool>>(name, value.convert<bool>());
    if (value.isInteger() && value.isSigned())
        return plain<AttributeValuePlain<long>>(name, value.convert<long>());
    if (value.isInteger())
        return plain<AttributeValuePlain<unsigned long>>(name, value.convert<unsigned long>());
    if (value.isNumeric())
        return plain<AttributeValuePlain<double>>(name, value.convert<double>());
    return AttributeBase::Ptr(new Attribute<JsonValue>(INVALID_XOBJ_ID, name, JsonValue(value)));
}

} // namespace

ServiceBase::Ptr Shop::getService(const std::string& service)
{
    if (service != "shop")
        return ServiceBase::Ptr();
    Object::Ptr entry = new Object;
    entry->set("id", "00000000-0000-4000-8000-0000000000ff");
    entry->set("name", service);
    entry->set("uri", "/shop");
    entry->set("host", "127.0.0.1");
    entry->set("port", 1);
    return ServiceBase::Ptr(Kesa::MicroServiceInfo::FromJson(entry));
}

std::vector<ServiceBase::Ptr> Shop::getServices()
{
    return {getService("shop")};
}

ResourceBase::Ptr Shop::getResource(const std::string& service, const std::string& resource)
{
    ScopedLock lock(m_mutex);
    return elementsLocked(service, resource) ? ResourceBase::Ptr(new Resource(resource)) : ResourceBase::Ptr();
}

std::vector<ResourceBase::Ptr> Shop::getResources(const std::string& service)
{
    if (service != "shop")
        return {};
    return {getResource(service, "customers"), getResource(service, "orders")};
}

Shop::Element Shop::getElement(XObjectId)
{
    return Element();
}

Shop::Element Shop::getElement(const Poco::URI& uri)
{
    const Kesa::Command::UrlPath url(uri);
    return getElement(url.getService(), url.getResource(), url.getElement());
}

Shop::Element Shop::getElement(const std::string& service, const std::string& resource, const Poco::UUID& id)
{
    return getElement(service, resource, id.toString());
}

Shop::Element Shop::getElement(const std::string& service, const std::string& resource, const std::string& element)
{
    ScopedLock lock(m_mutex);
    Elements* const elements = elementsLocked(service, resource);
    Element* const found = elements ? find(*elements, element) : nullptr;
    return found ? *found : Element();
}

ElementCollection Shop::getElements(const std::string& service, const std::string& resource)
{
    onList();
    ScopedLock lock(m_mutex);
    ElementCollection collection;
    if (Elements* const elements = elementsLocked(service, resource))
        for (const auto& entry: *elements)
            collection.push_back(entry.second);
    return collection;
}

Shop::Elements* Shop::elementsLocked(const std::string& service, const std::string& resource)
{
    const auto found = m_elements.find(resource);
    return service == "shop" && found != m_elements.end() ? &found->second : nullptr;
}

Shop::Element* Shop::find(Elements& elements, const std::string& id)
{
    const auto found =
        std::find_if(elements.begin(), elements.end(), [&id](const auto& entry) { return entry.first == id; });
    return found == elements.end() ? nullptr : &found->second;
}

Shop::UpdateResult Shop::insert(const std::string& service, const std::string& resource, const std::string& id,
                                const Object& members)
{
    const UpdateResult verdict = beforeChange();
    if (verdict.value() != UpdateResult::OK)
        return verdict;
    if (Poco::UUID uuid; !uuid.tryParse(id))
        return {UpdateResult::INVALID_REQUEST, "\"" + id + "\" is no UUID."};
    ScopedLock lock(m_mutex);
    Elements* const elements = elementsLocked(service, resource);
    if (!elements)
        return UpdateResult::NOT_FOUND;
    if (find(*elements, id))
        return UpdateResult::DUPLICATE;
    Poco::SharedPtr<ElementGeneric> element = new ElementGeneric(service, resource, "", id, INVALID_XOBJ_ID);
    element->removeValue("name");
    for (const auto& [name, value]: members)
        if (name != "id" && name != "uri")
            element->setAttribute(attribute(name, value));
    elements->emplace_back(id, element);
    UpdateResult result(UpdateResult::OK);
    result.created = element;
    return result;
}

Shop::UpdateResult Shop::insertElement(const ElementBase& element)
{
    return insert(element.service(), element.resource(), element.getId().toString(), *element.toJSON(0));
}

Shop::UpdateResult Shop::insertElement(const Poco::URI& uri, const Object::Ptr& object)
{
    const Kesa::Command::UrlPath url(uri);
    return insert(url.getService(), url.getResource(), url.getElement(), *object);
}

Shop::UpdateResult Shop::insertElement(const std::string& service, const std::string& resource,
                                       const Object::Ptr& object)
{
    return insert(service, resource, Poco::UUIDGenerator::defaultGenerator().createRandom().toString(), *object);
}

Shop::UpdateResult Shop::updateElement(const ElementBase& element)
{
    ScopedLock lock(m_mutex);
    Elements* const elements = elementsLocked(element.service(), element.resource());
    Element* const found = elements ? find(*elements, element.getId().toString()) : nullptr;
    if (!found)
        return UpdateResult::NOT_FOUND;
    *found = new ElementGeneric(element);
    return UpdateResult::OK;
}

Shop::UpdateResult Shop::updateElement(XObjectId, const Object::Ptr&)
{
    return UpdateResult::NOT_FOUND;
}

Shop::UpdateResult Shop::updateElement(const std::string& service, const std::string& resource,
                                       const std::string& element, const Object::Ptr& object)
{
    const UpdateResult verdict = beforeChange();
    if (verdict.value() != UpdateResult::OK)
        return verdict;
    ScopedLock lock(m_mutex);
    Elements* const elements = elementsLocked(service, resource);
    Element* const found = elements ? find(*elements, element) : nullptr;
    if (!found)
        return UpdateResult::NOT_FOUND;
    Poco::SharedPtr<ElementGeneric> changed = new ElementGeneric(**found);
    for (const auto& [name, value]: *object)
        if (name != "id" && name != "uri")
            changed->setAttribute(attribute(name, value));
    *found = changed;
    return UpdateResult::OK;
}

Shop::UpdateResult Shop::deleteElement(const ElementBase& element)
{
    const UpdateResult verdict = beforeChange();
    if (verdict.value() != UpdateResult::OK)
        return verdict;
    ScopedLock lock(m_mutex);
    Elements* const elements = elementsLocked(element.service(), element.resource());
    if (!elements || !find(*elements, element.getId().toString()))
        return UpdateResult::NOT_FOUND;
    std::erase_if(*elements, [&](const auto& entry) { return entry.first == element.getId().toString(); });
    return UpdateResult::OK;
}

std::string Shop::id(int number)
{
    const std::string digits = std::to_string(number);
    return "00000000-0000-4000-8000-" + std::string(12 - digits.size(), '0') + digits;
}

void Shop::put(const std::string& resource, int number, const std::string& members)
{
    insert("shop", resource, id(number), *Poco::JSON::Parser().parse(members).extract<Object::Ptr>());
}
