#include "DocumentDataAccessPoint.h"

#include "LogStream.h"
#include "StoreRules.h"
#include "StoredResource.h"
#include "StoredService.h"

#include "Command/UrlPath.h"

#include <Poco/Exception.h>
#include <Poco/UUIDGenerator.h>

#include <algorithm>
#include <atomic>

namespace Kesa::Host
{

using namespace Data;
using Command::UrlPath;
using Poco::JSON::Object;

typedef Kesa::Service::ServiceDataAccessPoint::UpdateResult UpdateResult;

namespace
{
struct ServiceEntry
{
    std::string name;
    std::string description;
    XObjectId number;
    std::vector<StoredResource::Ptr> resources;
};

/// Numbers that no two objects of this process share.
XObjectId nextNumber()
{
    static std::atomic<XObjectId> last{0};
    return ++last;
}

template <class Entries>
auto findService(Entries& services, const std::string& name)
{
    return std::find_if(services.begin(), services.end(),
                        [&](const ServiceEntry& entry) { return entry.name == name; });
}

/// The id of an element as text, empty if it has none.
std::string idOf(const ElementBase& element)
{
    const AttributeValueBase* id = element.getValue(XObjectBase::KEY_ID);
    return id ? id->asGeneric().toString() : std::string();
}

/// The members of an element that a program built; where it stands is told apart.
Object::Ptr membersOf(const ElementBase& element)
{
    Object::Ptr members = new Object(*element.toJSON(0)); // others may hold what that gives
    members->remove(XObjectBase::KEY_ID);
    members->remove(XObjectBase::KEY_URI);
    return members;
}

UpdateResult noObject()
{
    return {UpdateResult::INVALID_OBJECT, "There is no JSON object with the members of the element."};
}

UpdateResult noResource(const std::string& service, const std::string& resource)
{
    return {UpdateResult::NOT_FOUND, "There is no resource /" + service + "/" + resource + "."};
}

/// An element as it was kept under `id`. Raises Poco::DataFormatException, which names it, for what no store has kept.
StoredElement::Ptr restored(const std::string& service, const std::string& resource, const std::string& id,
                            const std::string& text)
{
    const std::string path = "/" + service + "/" + resource + "/" + id;
    try
    {
        StoredElement::Ptr element = new StoredElement(service, resource, nextNumber(), text);
        if (StoreRules::isId(id) && element->id() == id && element->getUri().getPath() == path)
            return element;
    }
    catch (const Poco::Exception& e)
    {
        throw Poco::DataFormatException("The element " + path + " that was kept cannot be read: " + e.displayText());
    }
    throw Poco::DataFormatException("The element " + path + " that was kept has another id or URI");
}

UpdateResult noElement(const std::string& path)
{
    return {UpdateResult::NOT_FOUND, "There is no element " + path + "."};
}

UpdateResult noId(const std::string& id)
{
    return {UpdateResult::INVALID_REQUEST,
            "The id '" + id + "' is no UUID in lower case with dashes, such as 6ba7b810-9dad-11d1-80b4-00c04fd430c8."};
}

/// Sets `name` to `value`. False if it is there with another one.
bool setFixed(Object& members, const std::string& name, const std::string& value)
{
    if (members.has(name) && members.get(name) != value)
        return false;
    members.set(name, value);
    return true;
}

UpdateResult notWritten(const std::string& path, const Poco::Exception& e)
{
    KESA_LOG_ERROR("The change of " << path << " was not made, it could not be written: " << e.displayText());
    return {UpdateResult::PROCESSING_ERROR, "The change could not be stored: " + e.displayText()};
}

UpdateResult fixedMember(const std::string& name)
{
    return {UpdateResult::INVALID_OBJECT,
            "The member '" + name + "' is set by the service and never changes: leave it out of the object."};
}

UpdateResult judgeSize(const DocumentDataAccessPoint::Limits& limits, std::size_t bytes, std::size_t otherBytes)
{
    if (bytes > limits.documentBytes)
        return {UpdateResult::INVALID_OBJECT, "The element has " + std::to_string(bytes) +
                                                  " bytes as JSON, more than the " +
                                                  std::to_string(limits.documentBytes) + " that are kept."};
    if (bytes + otherBytes > limits.totalBytes)
        return {UpdateResult::INVALID_REQUEST, "The store is full: it keeps at most " +
                                                   std::to_string(limits.totalBytes) + " bytes. Delete some elements."};
    return UpdateResult::OK;
}

} // namespace

struct DocumentDataAccessPoint::Parts
{
    explicit Parts(const Limits& bounds): limits(bounds) {}

    /// Sets `element` to a new one of these members. Gives what is wrong with them, or an empty text.
    static std::string build(const Address& address, XObjectId number, const Object::Ptr& members,
                             StoredElement::Ptr& element);
    /// Makes `members` the element at `address`, in the place of `old` unless that is null.
    UpdateResult keep(DocumentDataAccessPoint& store, const Address& address, StoredResource& resource,
                      const StoredElement::Ptr& old, Object::Ptr members) KESA_REQUIRES(changes);

    const Limits limits;
    /// Held for the whole of a change, writing included, so that they happen one at a time. Taken before `lock` and
    /// before a resource's own lock.
    Util::Mutex changes;
    std::size_t totalBytes KESA_GUARDED_BY(changes) = 0;
    /// Guards what is declared. The resources guard their elements themselves.
    Util::RWLock lock;
    std::vector<ServiceEntry> services KESA_GUARDED_BY(lock);
};

std::string DocumentDataAccessPoint::Parts::build(const Address& address, XObjectId number, const Object::Ptr& members,
                                                  StoredElement::Ptr& element)
{
    std::string text;
    std::string fault = StoreRules::write(members, text);
    if (!fault.empty())
        return fault;
    try
    {
        element = new StoredElement(address.service, address.resource, number, text);
    }
    catch (const Poco::Exception& e)
    {
        fault = "The object cannot be kept as JSON: " + e.message();
    }
    return fault;
}

UpdateResult DocumentDataAccessPoint::Parts::keep(DocumentDataAccessPoint& store, const Address& address,
                                                  StoredResource& resource, const StoredElement::Ptr& old,
                                                  Object::Ptr members)
{
    const std::string path = resource.path() + "/" + address.id;
    for (const auto& [name, value]: {std::pair(XObjectBase::KEY_ID, address.id), std::pair(XObjectBase::KEY_URI, path)})
        if (!setFixed(*members, name, value))
            return fixedMember(name);
    StoredElement::Ptr element;
    if (const std::string fault = build(address, old.isNull() ? nextNumber() : old->getXObjectId(), members, element);
        !fault.empty())
        return {UpdateResult::INVALID_OBJECT, fault};
    const std::size_t before = old.isNull() ? 0 : old->jsonText().size();
    if (!old.isNull() && old->jsonText() == element->jsonText())
        return UpdateResult::NO_UPDATE;
    if (const UpdateResult fits = judgeSize(limits, element->jsonText().size(), totalBytes - before); !fits.success())
        return fits;
    try
    {
        old.isNull() ? store.writeInserted(address, element->jsonText())
                     : store.writeUpdated(address, element->jsonText());
    }
    catch (const Poco::Exception& e)
    {
        return notWritten(path, e);
    }
    totalBytes += element->jsonText().size() - before;
    resource.put(element);
    UpdateResult result(UpdateResult::OK);
    if (old.isNull())
        result.created = element;
    return result;
}

DocumentDataAccessPoint::DocumentDataAccessPoint(const Limits& limits): m_parts(std::make_unique<Parts>(limits)) {}
DocumentDataAccessPoint::~DocumentDataAccessPoint() = default;

void DocumentDataAccessPoint::addService(const std::string& name, const std::string& description)
{
    StoreRules::checkName("A service", name);
    Util::WriteLock guard(m_parts->lock);
    if (findService(m_parts->services, name) != m_parts->services.end())
        throw Poco::ExistsException("The service '" + name + "' is declared already");
    m_parts->services.push_back({name, description, nextNumber(), {}});
}

void DocumentDataAccessPoint::addResource(const std::string& service, const std::string& name,
                                          const std::string& description, const std::string& schemaText)
{
    StoreRules::checkName("A resource", name);
    StoreRules::checkSpecification(name, schemaText);
    Util::ScopedLock changes(m_parts->changes);
    if (getService(service).isNull())
        throw Poco::NotFoundException("The service '" + service + "' of the resource '" + name + "' is not declared");
    if (!findResource(service, name).isNull())
        throw Poco::ExistsException("The resource '" + name + "' is declared already");
    StoredResource::Ptr resource = new StoredResource(service, name, description, schemaText, nextNumber());
    std::size_t bytes = 0;
    for (const Document& document: readDocuments(service, name))
    {
        bytes += document.text.size();
        resource->put(restored(service, name, document.id, document.text));
    }
    m_parts->totalBytes += bytes;
    Util::WriteLock guard(m_parts->lock);
    findService(m_parts->services, service)->resources.push_back(resource);
}

ServiceBase::Ptr DocumentDataAccessPoint::getService(const std::string& service)
{
    Util::ReadLock guard(m_parts->lock);
    const auto found = findService(m_parts->services, service);
    if (found == m_parts->services.end())
        return ServiceBase::Ptr();
    return new StoredService(found->name, found->description, found->number);
}

std::vector<ServiceBase::Ptr> DocumentDataAccessPoint::getServices()
{
    std::vector<ServiceBase::Ptr> services;
    Util::ReadLock guard(m_parts->lock);
    for (const ServiceEntry& entry: m_parts->services)
        services.emplace_back(new StoredService(entry.name, entry.description, entry.number));
    return services;
}

ResourceBase::Ptr DocumentDataAccessPoint::getResource(const std::string& service, const std::string& resource)
{
    return findResource(service, resource);
}

std::vector<ResourceBase::Ptr> DocumentDataAccessPoint::getResources(const std::string& service)
{
    Util::ReadLock guard(m_parts->lock);
    const auto found = findService(m_parts->services, service);
    if (found == m_parts->services.end())
        return {};
    return {found->resources.begin(), found->resources.end()};
}

StoredResource::Ptr DocumentDataAccessPoint::findResource(const std::string& service, const std::string& resource) const
{
    Util::ReadLock guard(m_parts->lock);
    const auto found = findService(m_parts->services, service);
    if (found != m_parts->services.end())
        for (const StoredResource::Ptr& candidate: found->resources)
            if (candidate->name() == resource)
                return candidate;
    return StoredResource::Ptr();
}

std::vector<StoredResource::Ptr> DocumentDataAccessPoint::allResources() const
{
    std::vector<StoredResource::Ptr> resources;
    Util::ReadLock guard(m_parts->lock);
    for (const ServiceEntry& entry: m_parts->services)
        resources.insert(resources.end(), entry.resources.begin(), entry.resources.end());
    return resources;
}

ElementBase::Ptr DocumentDataAccessPoint::getElement(XObjectId id)
{
    for (const StoredResource::Ptr& resource: allResources())
        if (ElementBase::Ptr element = resource->getElement(id); !element.isNull())
            return element;
    return ElementBase::Ptr();
}

ElementBase::Ptr DocumentDataAccessPoint::getElement(const Poco::URI& uri)
{
    const UrlPath path(uri);
    if (path.getCharacteristic() != UrlPath::SERVICE_RESOURCE_ELEMENT)
        return ElementBase::Ptr();
    return getElement(path.getService(), path.getResource(), path.getElement());
}

ElementBase::Ptr DocumentDataAccessPoint::getElement(const std::string& service, const std::string& resource,
                                                     const Poco::UUID& id)
{
    return getElement(service, resource, id.toString());
}

ElementBase::Ptr DocumentDataAccessPoint::getElement(const std::string& service, const std::string& resource,
                                                     const std::string& element)
{
    const StoredResource::Ptr found = findResource(service, resource);
    return found.isNull() ? StoredElement::Ptr() : found->find(element);
}

ElementCollection DocumentDataAccessPoint::getElements(const std::string& service, const std::string& resource)
{
    const StoredResource::Ptr found = findResource(service, resource);
    return found.isNull() ? ElementCollection() : found->getElements();
}

UpdateResult DocumentDataAccessPoint::insertElement(const ElementBase& element)
{
    const std::string id = idOf(element);
    if (id.empty())
        return insertElement(element.service(), element.resource(), membersOf(element));
    return insert({element.service(), element.resource(), id}, *membersOf(element));
}

UpdateResult DocumentDataAccessPoint::insertElement(const Poco::URI& uri, const Object::Ptr& object)
{
    if (object.isNull())
        return noObject();
    const UrlPath path(uri);
    if (path.getCharacteristic() != UrlPath::SERVICE_RESOURCE_ELEMENT)
        return {UpdateResult::INVALID_REQUEST, "The URL '" + uri.toString() + "' is not that of an element."};
    return insert({path.getService(), path.getResource(), path.getElement()}, *object);
}

UpdateResult DocumentDataAccessPoint::insertElement(const std::string& service, const std::string& resource,
                                                    const Object::Ptr& object)
{
    if (object.isNull())
        return noObject();
    return insert({service, resource, Poco::UUIDGenerator::defaultGenerator().createRandom().toString()}, *object);
}

UpdateResult DocumentDataAccessPoint::updateElement(const ElementBase& element)
{
    return update({element.service(), element.resource(), idOf(element)}, *membersOf(element), Mode::REPLACE);
}

UpdateResult DocumentDataAccessPoint::updateElement(XObjectId id, const Object::Ptr& object)
{
    const ElementBase::Ptr element = getElement(id);
    if (element.isNull())
        return {UpdateResult::NOT_FOUND, "There is no element with the number " + std::to_string(id) + "."};
    return updateElement(element->service(), element->resource(), idOf(*element), object);
}

UpdateResult DocumentDataAccessPoint::updateElement(const std::string& service, const std::string& resource,
                                                    const std::string& element, const Object::Ptr& object)
{
    return object.isNull() ? noObject() : update({service, resource, element}, *object, Mode::MERGE);
}

UpdateResult DocumentDataAccessPoint::deleteElement(const ElementBase& element)
{
    return remove({element.service(), element.resource(), idOf(element)});
}

UpdateResult DocumentDataAccessPoint::deleteElement(const std::string& service, const std::string& resource,
                                                    const std::string& element)
{
    return remove({service, resource, element});
}

UpdateResult DocumentDataAccessPoint::insert(const Address& address, const Object& members)
{
    StoredResource::Ptr resource = findResource(address.service, address.resource);
    if (resource.isNull())
        return noResource(address.service, address.resource);
    if (!StoreRules::isId(address.id))
        return noId(address.id);
    Util::ScopedLock guard(m_parts->changes);
    if (!resource->find(address.id).isNull())
        return {UpdateResult::DUPLICATE, "The element " + resource->path() + "/" + address.id + " exists already."};
    if (resource->count() >= m_parts->limits.elements)
        return {UpdateResult::INVALID_REQUEST, "The resource " + resource->path() + " is full with " +
                                                   std::to_string(resource->count()) + " elements. Delete some."};
    return m_parts->keep(*this, address, *resource, StoredElement::Ptr(), StoreRules::joined(nullptr, members));
}

UpdateResult DocumentDataAccessPoint::update(const Address& address, const Object& members, Mode mode)
{
    StoredResource::Ptr resource = findResource(address.service, address.resource);
    if (resource.isNull())
        return noResource(address.service, address.resource);
    Util::ScopedLock guard(m_parts->changes);
    const StoredElement::Ptr old = resource->find(address.id);
    if (old.isNull())
        return noElement(resource->path() + "/" + address.id);
    const Object* base = mode == Mode::MERGE ? old->sharedJson().get() : nullptr;
    return m_parts->keep(*this, address, *resource, old, StoreRules::joined(base, members));
}

UpdateResult DocumentDataAccessPoint::remove(const Address& address)
{
    StoredResource::Ptr resource = findResource(address.service, address.resource);
    if (resource.isNull())
        return noResource(address.service, address.resource);
    Util::ScopedLock guard(m_parts->changes);
    const StoredElement::Ptr old = resource->find(address.id);
    if (old.isNull())
        return noElement(resource->path() + "/" + address.id);
    try
    {
        writeDeleted(address);
    }
    catch (const Poco::Exception& e)
    {
        return notWritten(resource->path() + "/" + address.id, e);
    }
    m_parts->totalBytes -= old->jsonText().size();
    resource->remove(address.id);
    return UpdateResult::OK;
}

} // namespace Kesa::Host
