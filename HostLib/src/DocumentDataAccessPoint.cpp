#include "DocumentDataAccessPoint.h"

#include "JSONTools.h"
#include "JsonWriter.h"
#include "LogStream.h"
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

bool isNameCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
}

void checkName(const std::string& kind, const std::string& name)
{
    const std::size_t longest = 64;
    if (name.empty() || name.size() > longest || name[0] == '.' ||
        !std::all_of(name.begin(), name.end(), isNameCharacter))
        throw Poco::InvalidArgumentException(
            kind + " cannot be called '" + name +
            "': a name has 1 to 64 of the characters A-Z a-z 0-9 . _ - and does not begin with a dot");
}

/// Whether `specification` is a JSON object, with schemas under `properties` if it has that.
bool isSchema(const std::string& specification)
{
    Object::Ptr schema;
    if (!Util::JSONTools::parseJSONString(specification, schema))
        return false;
    if (!schema->has("properties"))
        return true;
    const Object::Ptr properties = schema->getObject("properties");
    return !properties.isNull() &&
           std::all_of(properties->begin(), properties->end(),
                       [](const auto& property)
                       { return property.second.isBoolean() || Command::asObject(property.second); });
}

void checkSpecification(const std::string& resource, const std::string& specification)
{
    if (!specification.empty() && !isSchema(specification))
        throw Poco::InvalidArgumentException("The specification of the resource '" + resource +
                                             "' is no JSON Schema object: " + specification);
}

/// Whether `text` is a UUID in its usual form, the only one in which an element is known.
bool isId(const std::string& text)
{
    Poco::UUID id;
    return id.tryParse(text) && id.toString() == text;
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
    Object::Ptr members = element.toJSON(0);
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

/// The members of `base`, unless it is null, and those of `members`, which come first where both have one.
Object::Ptr joined(const Object* base, const Object& members)
{
    Object::Ptr whole = base ? new Object(*base) : new Object;
    for (const auto& [name, value]: members)
        whole->set(name, value);
    return whole;
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

/// Whether the name of a member, at any depth, holds the character zero, at which POCO's parser would end it.
bool hasZeroInName(const Poco::Dynamic::Var& value, int depth = 0)
{
    if (depth >= Command::MAX_JSON_DEPTH) // refused for its depth
        return false;
    const auto isBad = [&](const Poco::Dynamic::Var& part) { return hasZeroInName(part, depth + 1); };
    if (const Poco::JSON::Array* array = Command::asArray(value))
        return std::any_of(array->begin(), array->end(), isBad);
    if (const Object* object = Command::asObject(value))
        return std::any_of(object->begin(), object->end(),
                           [&](const auto& member)
                           { return member.first.find('\0') != std::string::npos || isBad(member.second); });
    return false;
}

/// Sets `element` to a new one of these members. Gives what is wrong with them, or an empty text.
std::string build(const std::string& service, const std::string& resource, XObjectId number, const Object::Ptr& members,
                  StoredElement::Ptr& element)
{
    if (hasZeroInName(members))
        return "The name of a member holds the character U+0000, which cannot be kept.";
    try
    {
        std::string text;
        Command::appendJson(text, members);
        element = new StoredElement(service, resource, number, text);
        return std::string();
    }
    catch (const Poco::Exception& e)
    {
        return "The object cannot be kept as JSON: " + e.message();
    }
}
} // namespace

struct DocumentDataAccessPoint::Parts
{
    explicit Parts(const Limits& bounds): limits(bounds) {}

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

UpdateResult DocumentDataAccessPoint::Parts::keep(DocumentDataAccessPoint& store, const Address& address,
                                                  StoredResource& resource, const StoredElement::Ptr& old,
                                                  Object::Ptr members)
{
    const std::string path = resource.path() + "/" + address.id;
    for (const auto& [name, value]: {std::pair(XObjectBase::KEY_ID, address.id), std::pair(XObjectBase::KEY_URI, path)})
        if (!setFixed(*members, name, value))
            return fixedMember(name);
    StoredElement::Ptr element;
    if (const std::string fault = build(address.service, address.resource,
                                        old.isNull() ? nextNumber() : old->getXObjectId(), members, element);
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
    checkName("A service", name);
    Util::WriteLock guard(m_parts->lock);
    if (findService(m_parts->services, name) != m_parts->services.end())
        throw Poco::ExistsException("The service '" + name + "' is declared already");
    m_parts->services.push_back({name, description, nextNumber(), {}});
}

void DocumentDataAccessPoint::addResource(const std::string& service, const std::string& name,
                                          const std::string& description, const std::string& specification)
{
    checkName("A resource", name);
    checkSpecification(name, specification);
    Util::ScopedLock changes(m_parts->changes);
    if (getService(service).isNull())
        throw Poco::NotFoundException("The service '" + service + "' of the resource '" + name + "' is not declared");
    if (!findResource(service, name).isNull())
        throw Poco::ExistsException("The resource '" + name + "' is declared already");
    StoredResource::Ptr resource = new StoredResource(service, name, description, specification, nextNumber());
    for (Document& document: readDocuments(service, name))
    {
        m_parts->totalBytes += document.text.size();
        resource->put(new StoredElement(service, name, nextNumber(), std::move(document.text)));
    }
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
    if (!isId(address.id))
        return noId(address.id);
    Util::ScopedLock guard(m_parts->changes);
    if (!resource->find(address.id).isNull())
        return {UpdateResult::DUPLICATE, "The element " + resource->path() + "/" + address.id + " exists already."};
    if (resource->count() >= m_parts->limits.elements)
        return {UpdateResult::INVALID_REQUEST, "The resource " + resource->path() + " is full with " +
                                                   std::to_string(resource->count()) + " elements. Delete some."};
    return m_parts->keep(*this, address, *resource, StoredElement::Ptr(), joined(nullptr, members));
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
    return m_parts->keep(*this, address, *resource, old, joined(base, members));
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
