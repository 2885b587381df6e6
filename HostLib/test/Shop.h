#pragma once

#include <Data/ElementGeneric.h>
#include <DataAccess/ServiceDataAccessPoint.h>
#include <Mutex.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

/// A data access point as a service's author would write it, on the library's plain data objects: the service "shop"
/// with the resources "orders", which declares no members, and "customers", which declares some.
///
/// Threads: any, at once.
class Shop: public Kesa::Service::ServiceDataAccessPoint
{
public:
    typedef Poco::SharedPtr<Shop> Ptr;
    typedef Kesa::Data::ElementBase::Ptr Element;

    Kesa::Data::ServiceBase::Ptr getService(const std::string& service) override;
    std::vector<Kesa::Data::ServiceBase::Ptr> getServices() override;
    Kesa::Data::ResourceBase::Ptr getResource(const std::string& service, const std::string& resource) override;
    std::vector<Kesa::Data::ResourceBase::Ptr> getResources(const std::string& service) override;
    Element getElement(Kesa::Data::XObjectId id) override;
    Element getElement(const Poco::URI& uri) override;
    Element getElement(const std::string& service, const std::string& resource, const Poco::UUID& id) override;
    Element getElement(const std::string& service, const std::string& resource, const std::string& element) override;
    Kesa::Data::ElementCollection getElements(const std::string& service, const std::string& resource) override;

    UpdateResult insertElement(const Kesa::Data::ElementBase& element) override;
    UpdateResult insertElement(const Poco::URI& uri, const Poco::JSON::Object::Ptr& object) override;
    UpdateResult insertElement(const std::string& service, const std::string& resource,
                               const Poco::JSON::Object::Ptr& object) override;
    UpdateResult updateElement(const Kesa::Data::ElementBase& element) override;
    UpdateResult updateElement(Kesa::Data::XObjectId id, const Poco::JSON::Object::Ptr& object) override;
    UpdateResult updateElement(const std::string& service, const std::string& resource, const std::string& element,
                               const Poco::JSON::Object::Ptr& object) override;
    UpdateResult deleteElement(const Kesa::Data::ElementBase& element) override;

    /// The id of the n-th element that a test puts in by hand.
    static std::string id(int number);
    /// Puts an element in as "/shop/<resource>/<id(number)>"; `members` is JSON.
    void put(const std::string& resource, int number, const std::string& members);

    /// Called before each change is made; what it gives is the result then, unless it is OK.
    std::function<UpdateResult()> beforeChange = [] { return UpdateResult(UpdateResult::OK); };
    /// Called by each read of a list.
    std::function<void()> onList = [] {};

private:
    typedef std::vector<std::pair<std::string, Element>> Elements; ///< in the order of creation

    UpdateResult insert(const std::string& service, const std::string& resource, const std::string& id,
                        const Poco::JSON::Object& members);
    Elements* elementsLocked(const std::string& service, const std::string& resource) KESA_REQUIRES(m_mutex);
    static Element* find(Elements& elements, const std::string& id);

    Kesa::Util::FastMutex m_mutex; ///< guards the elements; taken alone
    std::map<std::string, Elements> m_elements KESA_GUARDED_BY(m_mutex){{"orders", {}}, {"customers", {}}};
};
