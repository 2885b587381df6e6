#pragma once

#include "AttributeContainer.h"
#include "AttributeValueStringable.h"
#include "XObjectBase.h"

namespace Kesa::Data
{

/// A data object of the kind `Base` (XObjectBase, ServiceBase or ElementBase) that keeps its attributes in a container.
///
/// Ownership: copies share their attributes; one built from a `Base` has copies of its own.
/// Errors:    Poco::InvalidAccessException where an attribute is absent or of another type, and for a text that stands
///            for no id or URI.
/// Threads:   no locks.
template <class Base>
class KESA_API GenericObject: public Base
{
public:
    typedef GenericObject<Base> this_type;
    typedef Poco::SharedPtr<GenericObject<Base>> Ptr;

    explicit GenericObject(XObjectId id): Base(id), m_attrContainer(id) {}
    GenericObject(const std::string& name, const Poco::UUID& id, const Poco::URI& uri, XObjectId objectId)
        : Base(objectId), m_attrContainer(objectId)
    {
        setName(name);
        setId(id);
        setUri(uri);
    }
    /// Raises Poco::InvalidAccessException if `id` is no UUID or `uri` no URI.
    GenericObject(const std::string& name, const std::string& id, const std::string& uri, XObjectId objectId)
        : GenericObject(name, Base::parseId(id), Base::parseUri(uri), objectId)
    {
    }
    GenericObject(const GenericObject&) = default;
    GenericObject(GenericObject&&) noexcept = default;
    explicit GenericObject(const Base& other)
        : Base(other), m_attrContainer(AttributeContainer::deepCopy(other.getXObjectId(), other.getAttributes()))
    {
    }
    GenericObject& operator=(const GenericObject&) = default;
    GenericObject& operator=(GenericObject&&) noexcept = default;
    ~GenericObject() override = default;

    AttributeMap getAttributes() const override { return m_attrContainer.getAttributes(); }
    AttributeBase::Ptr getAttribute(const std::string& name) const override
    {
        return m_attrContainer.getAttribute(name);
    }
    bool hasValue(const std::string& attrName) const override { return m_attrContainer.contains(attrName); }
    std::size_t size() const override { return m_attrContainer.size(); }
    AttributeValueBase* getValue(const std::string& name) const override { return m_attrContainer.getValue(name); }
    std::string getName() const override { return stringable<std::string>(Base::KEY_NAME); }
    Poco::UUID getId() const override { return stringable<Poco::UUID>(Base::KEY_ID); }
    Poco::URI getUri() const override { return stringable<Poco::URI>(Base::KEY_URI); }
    Poco::JSON::Object::Ptr toJSON(int expandLevel) const override { return m_attrContainer.toJSON(expandLevel); }
    Poco::JSON::Object::Ptr toJSON(const std::vector<std::string>& fields) const override
    {
        return m_attrContainer.toJSON(fields);
    }

    const AttributeMap& getAttributesRef() const { return m_attrContainer.getAttributes(); }
    void setName(const std::string& name) { setStringable(Base::KEY_NAME, name); }
    void setId(const Poco::UUID& id) { setStringable(Base::KEY_ID, id); }
    void setId(const std::string& id) { setId(Base::parseId(id)); }
    void setUri(const Poco::URI& uri) { setStringable(Base::KEY_URI, uri); }
    void setUri(const std::string& uri) { setUri(Base::parseUri(uri)); }
    /// Shares `attribute` under its own name. Raises Poco::NullPointerException for null.
    void setAttribute(const AttributeBase::Ptr& attribute) { m_attrContainer.setAttribute(attribute); }
    void setAttribute(AttributeBase::Ptr&& attribute) { m_attrContainer.setAttribute(std::move(attribute)); }
    /// Gives the attributes away and keeps none.
    AttributeMap releaseAttributes()
    {
        AttributeMap attributes = m_attrContainer.getAttributes();
        m_attrContainer.clear();
        return attributes;
    }
    /// True if there was an attribute of this name.
    bool removeValue(const std::string& name) { return m_attrContainer.removeValue(name); }

protected:
    /// For a `Base` that is built from another kind of object, with attributes of its own.
    template <class Origin>
    GenericObject(const Origin& origin, AttributeContainer&& attributes)
        : Base(origin), m_attrContainer(std::move(attributes))
    {
    }

    AttributeContainer m_attrContainer;

private:
    template <class V>
    V stringable(const std::string& key) const
    {
        return m_attrContainer.template getValue<AttributeValueStringable<V>>(key).get();
    }
    template <class V>
    void setStringable(const std::string& key, const V& value)
    {
        m_attrContainer.setValue(key, AttributeValueStringable<V>(value));
    }
};

/// A data object of no special kind.
typedef GenericObject<XObjectBase> XObjectGeneric;

} // namespace Kesa::Data
