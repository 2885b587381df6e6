#pragma once

#include <Export.h>

#include <Poco/Dynamic/Var.h>

#include <typeinfo>

namespace Kesa::Data
{

/// A value of any type, as others read it.
typedef Poco::Dynamic::Var GenericValue;

/// The value of an attribute: knows its type, compares itself, and can be read as a generic value and as JSON.
///
/// Threads: a value; different objects are independent.
class KESA_API AttributeValueBase
{
public:
    virtual ~AttributeValueBase();

    /// The type of the value inside.
    virtual const std::type_info& type() const = 0;
    virtual GenericValue asGeneric() const = 0;
    /// The value as it stands in JSON. References are followed to `expandLevel`.
    virtual Poco::Dynamic::Var toJSON(int expandLevel) const = 0;
    virtual bool isXObjReference() const = 0;
    virtual bool isArray() const = 0;
    /// Takes over the value of `other`. False, with nothing changed, if `other` is of another type.
    virtual bool setValue(const AttributeValueBase& other) = 0;
    /// -1 if this value is smaller than `other`, 1 if it is greater, else 0.
    virtual int compare(const AttributeValueBase& other) const = 0;

    bool isXObjReferenceType() const { return isXObjReference(); }
    bool isArrayType() const { return isArray(); }
    /// This object as a `T`, null if it is of another type.
    template <class T>
    const T* convert() const
    {
        return dynamic_cast<const T*>(this);
    }
};

} // namespace Kesa::Data
