#pragma once

#include "AttributeValueBase.h"
#include "XObjectId.h"

#include <Poco/SharedPtr.h>

#include <map>
#include <string>

namespace Kesa::Data
{

/// A named value of a data object, of any type.
///
/// Threads: no locks. Copies of a map of attributes share the attributes; copy() separates them.
class KESA_API AttributeBase
{
public:
    typedef Poco::SharedPtr<AttributeBase> Ptr;

    virtual ~AttributeBase();
    AttributeBase(const AttributeBase&) = delete;
    AttributeBase& operator=(const AttributeBase&) = delete;
    AttributeBase& operator=(AttributeBase&&) = delete;

    /// The type of the plain value inside, for example `Poco::UUID`.
    virtual const std::type_info& type() const = 0;
    virtual const std::string& getName() const = 0;
    /// The value, null if the attribute is empty. Owned by the attribute.
    virtual AttributeValueBase* getValueBase() const = 0;
    virtual bool isXObjReference() const = 0;
    virtual bool isArray() const = 0;
    /// A new attribute of the same name for `parent`, with a copy of the value; the caller owns it. Raises
    /// Poco::InvalidAccessException if this one is empty.
    virtual AttributeBase* copy(XObjectId parent) const = 0;

    /// The object that owns the attribute.
    XObjectId parent() const { return m_parentId; }
    bool isEmpty() const { return getValueBase() == nullptr; }
    /// As copy(XObjectId), with the same parent.
    AttributeBase* copy() const { return copy(m_parentId); }

protected:
    explicit AttributeBase(XObjectId parent);
    AttributeBase(AttributeBase&& other) noexcept;

private:
    const XObjectId m_parentId;
};

/// The attributes of an object, by name.
typedef std::map<std::string, AttributeBase::Ptr> AttributeMap;

} // namespace Kesa::Data
