#pragma once

#include "Attribute.h"

#include <Poco/JSON/Object.h>

#include <type_traits>
#include <vector>

namespace Kesa::Data
{

/// The attributes of one data object.
///
/// Ownership: shares the attributes with all copies of the container and of its map; deepCopy() separates them.
/// Errors:    what is absent or of another type raises Poco::InvalidAccessException.
/// Threads:   no locks.
class KESA_API AttributeContainer
{
public:
    typedef AttributeMap::iterator iterator;
    typedef AttributeMap::const_iterator const_iterator;

    /// `parent`: the object that owns the attributes.
    explicit AttributeContainer(XObjectId parent);
    AttributeContainer(XObjectId parent, AttributeMap&& attributes);
    AttributeContainer(const AttributeContainer& other);
    AttributeContainer(AttributeContainer&& other) noexcept;
    AttributeContainer& operator=(const AttributeContainer& other);
    AttributeContainer& operator=(AttributeContainer&& other) noexcept;
    ~AttributeContainer();

    /// A container of the same parent with copies of the attributes.
    static AttributeContainer deepCopy(const AttributeContainer& other);
    /// A container for `parent` with copies of the attributes.
    static AttributeContainer deepCopy(XObjectId parent, const AttributeMap& attributes);

    XObjectId parent() const { return m_parentId; }
    bool contains(const std::string& name) const;
    std::size_t size() const { return m_attrMap.size(); }
    void clear() { m_attrMap.clear(); }
    iterator begin() { return m_attrMap.begin(); }
    iterator end() { return m_attrMap.end(); }
    const_iterator begin() const { return m_attrMap.begin(); }
    const_iterator end() const { return m_attrMap.end(); }
    const AttributeMap& getAttributes() const { return m_attrMap; }

    /// The attribute of this name, shared; null if there is none.
    AttributeBase::Ptr getAttribute(const std::string& name) const;
    /// Shares `attribute` under its own name, in place of the one that was there, whatever its type. Raises
    /// Poco::NullPointerException for null.
    void setAttribute(const AttributeBase::Ptr& attribute);
    void setAttribute(AttributeBase::Ptr&& attribute);
    /// The value of the attribute of this name, owned by the attribute; null if it is absent or empty.
    AttributeValueBase* getValue(const std::string& name) const;
    /// True if there was an attribute of this name.
    bool removeValue(const std::string& name);

    /// The attributes as members of a new object. References are followed to `expandLevel`; an empty attribute is null.
    Poco::JSON::Object::Ptr toJSON(int expandLevel) const;
    /// As toJSON(0), with only those attributes that `fields` names.
    Poco::JSON::Object::Ptr toJSON(const std::vector<std::string>& fields) const;

    /// The value of an attribute whose value is a `T`. Valid until that attribute gets another value or goes.
    template <class T>
    const T& getValue(const std::string& name) const
    {
        const AttributeValueBase* value = getValue(name);
        if (!value)
            throw Poco::InvalidAccessException("Attribute " + name + " is not set");
        const T* typed = value->template convert<T>();
        if (!typed)
            throwInvalidType(name);
        return *typed;
    }

    /// Gives the attribute a value; one that is absent is created. One whose value is no `T` stays as it is, and the
    /// call raises.
    template <class T>
    void setValue(const std::string& name, T&& value)
    {
        typedef Attribute<std::remove_cvref_t<T>> Typed;
        const auto found = m_attrMap.find(name);
        if (found == m_attrMap.end())
        {
            m_attrMap.emplace(name, new Typed(m_parentId, name, std::forward<T>(value)));
            return;
        }
        Poco::SharedPtr<Typed> typed = found->second.template cast<Typed>();
        if (!typed)
            throwInvalidType(name);
        typed->setValue(std::forward<T>(value));
    }

private:
    [[noreturn]] static void throwInvalidType(const std::string& name);

    AttributeMap m_attrMap;
    XObjectId m_parentId;
};

} // namespace Kesa::Data
