#include "Data/MicroServiceInfo.h"

#include "JsonValue.h"
#include "JsonWriter.h"

#include <Poco/Exception.h>

#include <limits>
#include <memory>
#include <set>

namespace Kesa
{

using namespace Data;
using Poco::Dynamic::Var;

namespace
{
template <class T>
AttributeBase::Ptr makeAttribute(const MicroServiceInfo& entry, const std::string& name, T&& value)
{
    return new Attribute<std::remove_cvref_t<T>>(entry.getXObjectId(), name, std::forward<T>(value));
}

AttributeBase::Ptr textAttribute(const MicroServiceInfo& entry, const std::string& name, const std::string& text)
{
    return makeAttribute(entry, name, AttributeValueStringable<std::string>(text));
}

bool isPort(const Var& value)
{
    const unsigned long largest = std::numeric_limits<Poco::UInt16>::max();
    if (!value.isInteger() || value.isBoolean() || (value.isSigned() && value.convert<Poco::Int64>() < 0))
        return false;
    const Poco::UInt64 number = value.convert<Poco::UInt64>();
    return number > 0 && number <= largest;
}

bool isTextList(const Var& value)
{
    const Poco::JSON::Array* list = Command::asArray(value);
    if (!list)
        return false;
    for (const Var& element: *list)
        if (!element.isString())
            return false;
    return true;
}

bool isPortMap(const Var& value)
{
    const Poco::JSON::Object* ports = Command::asObject(value);
    if (!ports)
        return false;
    for (const auto& named: *ports)
        if (!isPort(named.second))
            return false;
    return true;
}

/// False if the entry has a meaning for this member, and the value does not fit it.
bool fits(const std::string& name, const Var& value)
{
    if (name == MicroServiceInfo::KEY_PORT)
        return isPort(value);
    if (name == MicroServiceInfo::KEY_PORTS)
        return isPortMap(value);
    if (name == MicroServiceInfo::KEY_API_VERSIONS)
        return isTextList(value);
    static const std::set<std::string> texts = {XObjectBase::KEY_ID, XObjectBase::KEY_NAME, XObjectBase::KEY_URI,
                                                MicroServiceInfo::KEY_HOST, MicroServiceInfo::KEY_DESCRIPTION};
    return texts.count(name) == 0 || value.isString();
}

bool hasRequiredMembers(const Poco::JSON::Object& object)
{
    return object.has(XObjectBase::KEY_NAME) && object.has(XObjectBase::KEY_URI) &&
           object.has(MicroServiceInfo::KEY_HOST) && object.has(MicroServiceInfo::KEY_PORT);
}

void setMember(MicroServiceInfo& entry, const std::string& name, const Var& value)
{
    if (name == XObjectBase::KEY_ID)
        entry.setId(value.convert<std::string>());
    else if (name == XObjectBase::KEY_URI)
        entry.setUri(value.convert<std::string>());
    else
        entry.setAttribute(attributeOf(entry.getXObjectId(), name, value));
}

/// The JSON of an attribute, empty if there is none.
Var jsonOf(const MicroServiceInfo& entry, const std::string& name)
{
    const AttributeValueBase* value = entry.getValue(name);
    return value ? value->toJSON(0) : Var();
}

[[noreturn]] void throwInvalidType(const std::string& name)
{
    throw Poco::InvalidAccessException("Invalid type for attribute " + name + " in MicroServiceInfo");
}
} // namespace

const std::string MicroServiceInfo::KEY_HOST = "host";
const std::string MicroServiceInfo::KEY_PORT = "port";
const std::string MicroServiceInfo::KEY_PORTS = "ports";
const std::string MicroServiceInfo::KEY_API_VERSIONS = "apiVersions";
const std::string MicroServiceInfo::KEY_DESCRIPTION = "description";

MicroServiceInfo::MicroServiceInfo(XObjectId id): GenericObject<ServiceBase>(id) {}

MicroServiceInfo::MicroServiceInfo(const ServiceBase& service): GenericObject<ServiceBase>(service)
{
    setAttribute(textAttribute(*this, KEY_NAME, service.getName()));
    setAttribute(makeAttribute(*this, KEY_URI, AttributeValueStringable<Poco::URI>(service.getUri())));
    setAttribute(textAttribute(*this, KEY_HOST, service.getHost()));
    setAttribute(makeAttribute(*this, KEY_PORT, AttributeValuePlain<long>(service.getPort())));

    Poco::JSON::Object::Ptr ports = new Poco::JSON::Object;
    for (const auto& [name, port]: service.getPorts())
        ports->set(name, port);
    if (ports->size() > 0)
        setAttribute(makeAttribute(*this, KEY_PORTS, JsonValue(ports)));

    Poco::JSON::Array::Ptr versions = new Poco::JSON::Array;
    for (const std::string& version: service.getApiVersions())
        versions->add(version);
    if (versions->size() > 0)
        setAttribute(makeAttribute(*this, KEY_API_VERSIONS, JsonValue(versions)));

    if (const std::string description = service.getDescription(); !description.empty())
        setAttribute(textAttribute(*this, KEY_DESCRIPTION, description));
}

MicroServiceInfo::MicroServiceInfo(const MicroServiceInfo& other) = default;
MicroServiceInfo::MicroServiceInfo(MicroServiceInfo&& other) noexcept = default;
MicroServiceInfo& MicroServiceInfo::operator=(const MicroServiceInfo& other) = default;
MicroServiceInfo& MicroServiceInfo::operator=(MicroServiceInfo&& other) noexcept = default;
MicroServiceInfo::~MicroServiceInfo() = default;

std::string MicroServiceInfo::getHost() const
{
    return m_attrContainer.getValue<AttributeValueStringable<std::string>>(KEY_HOST).get();
}

std::string MicroServiceInfo::getDescription() const
{
    if (!getValue(KEY_DESCRIPTION))
        return std::string();
    return m_attrContainer.getValue<AttributeValueStringable<std::string>>(KEY_DESCRIPTION).get();
}

std::vector<std::string> MicroServiceInfo::getApiVersions() const
{
    std::vector<std::string> versions;
    const Var json = jsonOf(*this, KEY_API_VERSIONS);
    if (json.isEmpty())
        return versions;
    if (!isTextList(json))
        throwInvalidType(KEY_API_VERSIONS);
    for (const Var& version: *Command::asArray(json))
        versions.push_back(version.convert<std::string>());
    return versions;
}

Poco::UUID MicroServiceInfo::getRegistryId() const
{
    return getId();
}

Poco::UInt16 MicroServiceInfo::getPort() const
{
    const AttributeValueBase* value = getValue(KEY_PORT);
    if (!value)
        throw Poco::InvalidAccessException("Attribute " + KEY_PORT + " is not set");
    const Var number = value->asGeneric();
    if (!isPort(number))
        throwInvalidType(KEY_PORT);
    return number.convert<Poco::UInt16>();
}

std::map<std::string, Poco::UInt16> MicroServiceInfo::getPorts() const
{
    std::map<std::string, Poco::UInt16> ports;
    const Var json = jsonOf(*this, KEY_PORTS);
    if (json.isEmpty())
        return ports;
    if (!isPortMap(json))
        throwInvalidType(KEY_PORTS);
    for (const auto& [name, port]: *Command::asObject(json))
        ports.emplace(name, port.convert<Poco::UInt16>());
    return ports;
}

void MicroServiceInfo::setRegistryId(const Poco::UUID& id)
{
    setId(id);
}

std::vector<ResourceBase::Ptr> MicroServiceInfo::getResources() const
{
    return {};
}

std::string MicroServiceInfo::getIdString() const
{
    return m_attrContainer.getValue<AttributeValueStringable<Poco::UUID>>(KEY_ID).toString();
}

MicroServiceInfo* MicroServiceInfo::FromJson(const Poco::JSON::Object::Ptr& object)
{
    try
    {
        if (object.isNull() || !hasRequiredMembers(*object))
            return nullptr;
        auto entry = std::make_unique<MicroServiceInfo>();
        for (const auto& [name, value]: *object)
        {
            if (!fits(name, value))
                return nullptr;
            setMember(*entry, name, value);
        }
        return entry.release();
    }
    catch (const std::exception&) // an id or URI that is none
    {
        return nullptr;
    }
}

} // namespace Kesa
