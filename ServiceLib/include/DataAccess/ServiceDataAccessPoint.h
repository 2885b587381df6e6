#pragma once

#include "Data/ResourceBase.h"
#include "Data/ServiceBase.h"

#include <Poco/JSON/Object.h>
#include <Poco/URI.h>
#include <Poco/UUID.h>

#include <string>
#include <vector>

namespace Kesa::Service
{

/// The data store of a service: reads its services, resources and elements, and inserts, updates and deletes elements.
/// What is not abstract comes down to what is: every delete to `deleteElement(const ElementBase&)`, every update to the
/// form with a text id. A derived class says `using ServiceDataAccessPoint::updateElement` and `deleteElement` to keep
/// those forms visible.
///
/// `service` and `resource` are names, `element` is an element's id as text. Null stands for what does not exist.
///
/// Errors:  a change that was not made is told by its result. The forms defined here catch nothing.
/// Threads: as the derived class says.
class KESA_API ServiceDataAccessPoint
{
public:
    typedef Poco::SharedPtr<ServiceDataAccessPoint> Ptr;

    /// The result of a change.
    class KESA_API UpdateResult
    {
    public:
        enum Value : int
        {
            OK = 0,
            NO_UPDATE = 1, ///< everything was already as asked for
            NOT_FOUND = 2,
            DUPLICATE = 3,
            INVALID_REQUEST = 4,
            INVALID_OBJECT = 5,
            PROCESSING_ERROR = 6
        };

        /// `message`: what the client is told. Not explicit: an operation may just return its outcome.
        UpdateResult(Value value);
        UpdateResult(Value value, const std::string& message);

        Value value() const { return m_value; }
        const std::string& message() const { return m_message; }
        /// True if the store is now as asked for: OK or NO_UPDATE.
        bool success() const { return m_value == OK || m_value == NO_UPDATE; }

        Data::XObjectBase::Ptr created; ///< the object that an insert created, else null

    private:
        Value m_value;
        std::string m_message;
    };

    virtual ~ServiceDataAccessPoint();

    virtual Data::ServiceBase::Ptr getService(const std::string& service) = 0;
    virtual std::vector<Data::ServiceBase::Ptr> getServices() = 0;
    virtual Data::ResourceBase::Ptr getResource(const std::string& service, const std::string& resource) = 0;
    virtual std::vector<Data::ResourceBase::Ptr> getResources(const std::string& service) = 0;
    virtual Data::ElementBase::Ptr getElement(Data::XObjectId id) = 0;
    virtual Data::ElementBase::Ptr getElement(const Poco::URI& uri) = 0;
    virtual Data::ElementBase::Ptr getElement(const std::string& service, const std::string& resource,
                                              const Poco::UUID& id) = 0;
    virtual Data::ElementBase::Ptr getElement(const std::string& service, const std::string& resource,
                                              const std::string& element) = 0;
    virtual Data::ElementCollection getElements(const std::string& service, const std::string& resource) = 0;

    virtual UpdateResult insertElement(const Data::ElementBase& element) = 0;
    virtual UpdateResult insertElement(const Poco::URI& uri, const Poco::JSON::Object::Ptr& object) = 0;
    virtual UpdateResult insertElement(const std::string& service, const std::string& resource,
                                       const Poco::JSON::Object::Ptr& object) = 0;

    virtual UpdateResult updateElement(const Data::ElementBase& element) = 0;
    virtual UpdateResult updateElement(Data::XObjectId id, const Poco::JSON::Object::Ptr& object) = 0;
    /// Takes service, resource and element from the path of `uri`.
    virtual UpdateResult updateElement(const Poco::URI& uri, const Poco::JSON::Object::Ptr& object);
    virtual UpdateResult updateElement(const std::string& service, const std::string& resource, const Poco::UUID& id,
                                       const Poco::JSON::Object::Ptr& object);
    virtual UpdateResult updateElement(const std::string& service, const std::string& resource,
                                       const std::string& element, const Poco::JSON::Object::Ptr& object) = 0;

    virtual UpdateResult deleteElement(const Data::ElementBase& element) = 0;
    /// NOT_FOUND where there is no such element.
    virtual UpdateResult deleteElement(Data::XObjectId id);
    virtual UpdateResult deleteElement(const Poco::URI& uri);
    virtual UpdateResult deleteElement(const std::string& service, const std::string& resource, const Poco::UUID& id);
    /// PROCESSING_ERROR if `element` is no UUID.
    virtual UpdateResult deleteElement(const std::string& service, const std::string& resource,
                                       const std::string& element);

private:
    UpdateResult deleteFound(const Data::ElementBase::Ptr& element);
};

} // namespace Kesa::Service
