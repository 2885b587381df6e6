#pragma once

#include "XObjectBase.h"

namespace Kesa::Data
{

/// An element of a resource of a service.
///
/// Threads: no locks.
class KESA_API ElementBase: public XObjectBase
{
public:
    typedef Poco::SharedPtr<ElementBase> Ptr;

    /// The names of the service and of the resource that the element belongs to; empty where they are not known.
    const std::string& service() const { return m_serviceName; }
    const std::string& resource() const { return m_resourceName; }

    ~ElementBase() override;

protected:
    explicit ElementBase(XObjectId id);
    ElementBase(const std::string& serviceName, const std::string& resourceName, XObjectId id);
    /// Takes the names from the first two segments of the URI's path.
    ElementBase(const Poco::URI& uri, XObjectId id);
    /// Takes the names from the URI of `other`, if it has one.
    explicit ElementBase(const XObjectBase& other);
    explicit ElementBase(XObjectBase&& other);
    ElementBase(const ElementBase& other);
    ElementBase(ElementBase&& other) noexcept;
    ElementBase& operator=(const ElementBase& other);
    ElementBase& operator=(ElementBase&& other) noexcept;

    void initialize(const std::string& serviceName, const std::string& resourceName);
    /// Fills the names from the first two segments of the path, and `element`, unless it is null, from the third.
    /// Segments that are missing give empty texts.
    void initialize(const Poco::URI& uri, std::string* element);

private:
    void initializeFrom(const XObjectBase& other);

    std::string m_serviceName;
    std::string m_resourceName;
};

/// Elements, shared.
typedef std::vector<ElementBase::Ptr> ElementCollection;

} // namespace Kesa::Data
