#pragma once

#include "ElementBase.h"

namespace Kesa::Data
{

/// A resource of a service: a collection of elements.
///
/// Threads: as the derived class says.
class KESA_API ResourceBase: public XObjectBase
{
public:
    typedef Poco::SharedPtr<ResourceBase> Ptr;

    static const std::string KEY_DESCRIPTION;

    explicit ResourceBase(XObjectId id);
    ~ResourceBase() override;

    virtual std::string getDescription() const = 0;
    /// What the resource's elements hold, for people or machines.
    virtual const std::string& getSpecification() const = 0;
    virtual bool hasElement(XObjectId id) const = 0;
    /// The element with this numeric id, shared; null if there is none.
    virtual ElementBase::Ptr getElement(XObjectId id) const = 0;
    virtual ElementCollection getElements() const = 0;
};

} // namespace Kesa::Data
