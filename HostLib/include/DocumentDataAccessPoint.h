#pragma once

#include "DataAccess/ServiceDataAccessPoint.h"

#include <memory>
#include <string>
#include <vector>

namespace Kesa::Host
{

class StoredElement;
class StoredResource;

/// A data store whose elements are JSON objects, all held in memory. Where they are kept beside it, if anywhere, is a
/// derived class's affair. Services and resources are declared by the program at each start:
///
///     store->addService("notebook", "What I want to remember");
///     store->addResource("notebook", "notes");
///     ServiceDataAccessPoint::UpdateResult result = store->insertElement("notebook", "notes", note);
///
/// An element is what it was given, kept exactly, and the members `id` and `uri`, which the store sets: a UUID in its
/// usual form and the path `/service/resource/id`. An object that gives them must give just these; they never change.
/// Members may come, go and change their types. Elements stand in the order in which they were created. A number
/// (XObjectId) stands for one element as long as it exists, and is not used again while the process runs.
///
/// Ownership: what the read operations give is shared with the store and with other readers, and never changes: a
///            change puts a new element in the place of the old one. A resource shows its present elements. Services
///            are copies.
/// Errors:    every change that was not made says why in the message of its result: NOT_FOUND and DUPLICATE;
///            INVALID_REQUEST for an id that is no UUID and for a full resource or store; INVALID_OBJECT for an object
///            that cannot be kept; PROCESSING_ERROR, logged at Error, if it could not be written. Nothing has changed
///            then.
/// Threads:   any thread. Changes are made one at a time; reading never waits for one that is being written.
class KESA_API DocumentDataAccessPoint: public Kesa::Service::ServiceDataAccessPoint
{
public:
    typedef Poco::SharedPtr<DocumentDataAccessPoint> Ptr;

    /// So that no client fills the memory or the disk.
    struct Limits
    {
        std::size_t elements = 100'000;                   ///< of one resource
        std::size_t documentBytes = std::size_t(1) << 20; ///< of one element as JSON text
        std::size_t totalBytes = std::size_t(1) << 30;    ///< of all elements as JSON text
    };

    ~DocumentDataAccessPoint() override;

    /// Declares a service. `name`: 1 to 64 of `A-Z a-z 0-9 . _ -`, no dot at its beginning. Raises
    /// Poco::InvalidArgumentException for another name, Poco::ExistsException if it is declared already.
    void addService(const std::string& name, const std::string& description = std::string());
    /// Declares a resource, with the elements that are kept of it. `schemaText`: empty, or the text of a JSON Schema
    /// object whose `properties` are the members that elements have; the store itself does not enforce it. Raises as
    /// addService(), also Poco::InvalidArgumentException for a schema that is none, and
    /// Poco::NotFoundException if the service is not declared; and what reading the kept elements raises.
    void addResource(const std::string& service, const std::string& name,
                     const std::string& description = std::string(), const std::string& schemaText = std::string());

    Data::ServiceBase::Ptr getService(const std::string& service) override;
    /// In the order of their declaration, as the resources.
    std::vector<Data::ServiceBase::Ptr> getServices() override;
    Data::ResourceBase::Ptr getResource(const std::string& service, const std::string& resource) override;
    std::vector<Data::ResourceBase::Ptr> getResources(const std::string& service) override;
    Data::ElementBase::Ptr getElement(Data::XObjectId id) override;
    Data::ElementBase::Ptr getElement(const Poco::URI& uri) override;
    Data::ElementBase::Ptr getElement(const std::string& service, const std::string& resource,
                                      const Poco::UUID& id) override;
    Data::ElementBase::Ptr getElement(const std::string& service, const std::string& resource,
                                      const std::string& element) override;
    Data::ElementCollection getElements(const std::string& service, const std::string& resource) override;

    /// Under the element's id, or a new one if it has none.
    UpdateResult insertElement(const Data::ElementBase& element) override;
    /// `uri`: that of the new element, whose id is a UUID in lower case.
    UpdateResult insertElement(const Poco::URI& uri, const Poco::JSON::Object::Ptr& object) override;
    /// Under a new id.
    UpdateResult insertElement(const std::string& service, const std::string& resource,
                               const Poco::JSON::Object::Ptr& object) override;

    using ServiceDataAccessPoint::updateElement;
    /// Replaces the element of that id: members that `element` lacks are gone.
    UpdateResult updateElement(const Data::ElementBase& element) override;
    /// The other forms set the members that `object` has. NO_UPDATE if the element has them all already.
    UpdateResult updateElement(Data::XObjectId id, const Poco::JSON::Object::Ptr& object) override;
    UpdateResult updateElement(const std::string& service, const std::string& resource, const std::string& element,
                               const Poco::JSON::Object::Ptr& object) override;

    using ServiceDataAccessPoint::deleteElement;
    UpdateResult deleteElement(const Data::ElementBase& element) override;
    /// NOT_FOUND also if `element` is no UUID.
    UpdateResult deleteElement(const std::string& service, const std::string& resource,
                               const std::string& element) override;

protected:
    /// Which element a document belongs to.
    struct Address
    {
        std::string service;
        std::string resource;
        std::string id;
    };

    /// An element as it is kept.
    struct Document
    {
        std::string id;
        std::string text; ///< a JSON object, with id and uri
    };

    explicit DocumentDataAccessPoint(const Limits& limits);

    /// What a derived class keeps. One at a time, and before anybody sees the change; a Poco::Exception keeps it from
    /// happening.
    virtual void writeInserted(const Address& address, const std::string& text) = 0;
    virtual void writeUpdated(const Address& address, const std::string& text) = 0;
    virtual void writeDeleted(const Address& address) = 0;
    /// All that is kept of a resource, in the order in which it was inserted. Called once for each resource.
    virtual std::vector<Document> readDocuments(const std::string& service, const std::string& resource) = 0;

private:
    struct Parts;
    enum class Mode
    {
        MERGE,  ///< the members given join those that are there
        REPLACE ///< they take their place
    };

    Poco::SharedPtr<StoredResource> findResource(const std::string& service, const std::string& resource) const;
    std::vector<Poco::SharedPtr<StoredResource>> allResources() const;
    UpdateResult insert(const Address& address, const Poco::JSON::Object& members);
    UpdateResult update(const Address& address, const Poco::JSON::Object& members, Mode mode);
    UpdateResult remove(const Address& address);
    UpdateResult keepLocked(const Address& address, StoredResource& resource, const Poco::SharedPtr<StoredElement>& old,
                            Poco::JSON::Object& members);

    const std::unique_ptr<Parts> m_parts;
};

} // namespace Kesa::Host
