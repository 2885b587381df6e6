#pragma once

#include "AttributeBase.h"

#include <Poco/Exception.h>

#include <memory>
#include <utility>

namespace Kesa::Data
{

/// A named value of the class `T`, such as AttributeValueStringable<Poco::UUID>; empty until it is given one.
///
/// Errors:  reading an empty attribute raises Poco::InvalidAccessException.
/// Threads: no locks.
template <class T>
class KESA_API Attribute: public AttributeBase
{
public:
    typedef T attr_value_type;
    typedef typename T::value_type value_type;

    Attribute(XObjectId parent, const std::string& name): AttributeBase(parent), m_name(name) {}
    Attribute(XObjectId parent, const std::string& name, const attr_value_type& value)
        : AttributeBase(parent), m_name(name), m_value(new T(value))
    {
    }
    Attribute(XObjectId parent, const std::string& name, attr_value_type&& value)
        : AttributeBase(parent), m_name(name), m_value(new T(std::move(value)))
    {
    }
    Attribute(Attribute&& other) noexcept = default;

    const std::type_info& type() const override { return typeid(value_type); }
    const std::string& getName() const override { return m_name; }
    AttributeValueBase* getValueBase() const override { return m_value.get(); }
    bool isXObjReference() const override { return m_value && m_value->isXObjReference(); }
    bool isArray() const override { return m_value && m_value->isArray(); }
    using AttributeBase::copy;
    AttributeBase* copy(XObjectId parent) const override { return new Attribute(parent, m_name, getAttributeValue()); }

    const value_type& getValue() const { return getAttributeValue().get(); }
    const attr_value_type& getAttributeValue() const
    {
        if (!m_value)
            throw Poco::InvalidAccessException("attribute " + m_name + " is not set");
        return *m_value;
    }

    /// Each replaces the value inside by a new one; pointers to the previous one are void then.
    void setValue(const attr_value_type& value) { m_value.reset(new T(value)); }
    void setValue(attr_value_type&& value) { m_value.reset(new T(std::move(value))); }
    void setValue(const value_type& value) { m_value.reset(new T(value)); }
    void setValue(value_type&& value) { m_value.reset(new T(std::move(value))); }

private:
    std::string m_name;
    std::unique_ptr<T> m_value; ///< null while the attribute is empty
};

} // namespace Kesa::Data
