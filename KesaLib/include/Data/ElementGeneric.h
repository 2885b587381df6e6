#pragma once

#include "AttributeValuePlain.h"
#include "ElementBase.h"
#include "GenericObject.h"

namespace Kesa::Data
{

/// An element that keeps its attributes in a container.
///
/// Ownership: copy construction and assignment share the attributes; copy(), and building one from another kind of
///            object, separate them.
/// Errors:    Poco::InvalidAccessException for a text that is no id.
/// Threads:   no locks.
class KESA_API ElementGeneric: public GenericObject<ElementBase>
{
public:
    typedef Poco::SharedPtr<ElementGeneric> Ptr;

    /// The URI of the element is `/service/resource/id`.
    ElementGeneric(const std::string& service, const std::string& resource, const std::string& name,
                   const Poco::UUID& id, XObjectId objectId);
    ElementGeneric(const std::string& service, const std::string& resource, const std::string& name,
                   const std::string& id, XObjectId objectId);
    /// Takes the names of service and resource and, if it is a UUID, the id from the path of the URI.
    ElementGeneric(const Poco::URI& uri, const std::string& name, XObjectId objectId);
    explicit ElementGeneric(const ElementBase& other);
    explicit ElementGeneric(const XObjectGeneric& other);
    /// Takes over the attributes.
    explicit ElementGeneric(XObjectGeneric&& other);
    explicit ElementGeneric(const XObjectBase& other);
    ElementGeneric(const ElementGeneric& other);
    ElementGeneric(ElementGeneric&& other) noexcept;
    ElementGeneric& operator=(const ElementGeneric& other);
    ElementGeneric& operator=(ElementGeneric&& other) noexcept;
    ~ElementGeneric() override;

    /// A new element with attributes of its own; the caller owns it.
    ElementGeneric* copy() const;
};

} // namespace Kesa::Data
