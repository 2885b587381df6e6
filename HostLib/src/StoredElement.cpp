#include "StoredElement.h"

#include "JsonSnapshot.h"
#include "JsonValue.h"
#include "JsonWriter.h"

#include <Poco/JSON/Parser.h>

namespace Kesa::Host
{

using namespace Data;
using Poco::JSON::Object;

namespace
{
Object::Ptr parse(const std::string& text)
{
    return Poco::JSON::Parser().parse(text).extract<Object::Ptr>();
}

std::string write(const Object::Ptr& document)
{
    std::string text;
    Command::appendJson(text, document);
    return text;
}

std::unique_ptr<const ElementGeneric> makeAttributes(const StoredElement& element)
{
    const Object& document = *element.sharedJson();
    const Poco::URI uri(document.getValue<std::string>(XObjectBase::KEY_URI));
    auto attributes = std::make_unique<ElementGeneric>(uri, std::string(), element.getXObjectId());
    attributes->removeValue(XObjectBase::KEY_NAME);
    for (const auto& [name, value]: document)
        if (name != XObjectBase::KEY_ID && name != XObjectBase::KEY_URI)
            attributes->setAttribute(attributeOf(element.getXObjectId(), name, value));
    return attributes;
}
} // namespace

StoredElement::StoredElement(const std::string& service, const std::string& resource, XObjectId number,
                             const std::string& text)
    : ElementBase(service, resource, number),
      m_document(parse(text)),
      m_text(write(m_document)),
      m_id(m_document->getValue<std::string>(KEY_ID))
{
}

StoredElement::~StoredElement() = default;

const ElementGeneric& StoredElement::attributes() const
{
    std::call_once(m_once, [this] { m_attributes = makeAttributes(*this); });
    return *m_attributes;
}

AttributeMap StoredElement::getAttributes() const
{
    // Copies, since an attribute can be changed by whoever holds it.
    return AttributeContainer::deepCopy(getXObjectId(), attributes().getAttributesRef()).getAttributes();
}

AttributeBase::Ptr StoredElement::getAttribute(const std::string& name) const
{
    const AttributeBase::Ptr attribute = attributes().getAttribute(name);
    return attribute.isNull() ? attribute : AttributeBase::Ptr(attribute->copy());
}

bool StoredElement::hasValue(const std::string& attrName) const
{
    return m_document->has(attrName);
}

std::size_t StoredElement::size() const
{
    return m_document->size();
}

AttributeValueBase* StoredElement::getValue(const std::string& name) const
{
    return attributes().getValue(name);
}

std::string StoredElement::getName() const
{
    return attributes().getName();
}

Poco::UUID StoredElement::getId() const
{
    return Poco::UUID(m_id);
}

Poco::URI StoredElement::getUri() const
{
    return Poco::URI(m_document->getValue<std::string>(KEY_URI));
}

Object::Ptr StoredElement::toJSON(int /*expandLevel*/) const
{
    return Command::deepCopy(*m_document);
}

Object::Ptr StoredElement::toJSON(const std::vector<std::string>& fields) const
{
    Object selected;
    for (const std::string& field: fields)
        if (m_document->has(field))
            selected.set(field, m_document->get(field));
    return Command::deepCopy(selected);
}

} // namespace Kesa::Host
