#include "ServiceContract.h"

#include "JSONTools.h"
#include "JsonSnapshot.h"
#include "JsonWriter.h"

#include "Command/ResponseObject.h"
#include "Command/WebSocketResponseObject.h"
#include "DataAccess/ServiceDataAccessPoint.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <Poco/String.h>

#include <algorithm>

namespace Kesa::Host
{

using Command::ResponseObject;
using Command::WebSocketRequestObject;
using Data::ResourceBase;
using Data::XObjectBase;
using Poco::JSON::Object;

namespace
{
const ServiceContract::Words FIELDS = {
    {"type", WebSocketRequestObject::FIELD_TYPE},
    {"error", Command::WebSocketResponseObject::TYPE_ERROR},
    {"event", WebSocketRequestObject::FIELD_EVENT},
    {"status", ResponseObject::FIELD_STATUS},
    {"status-error", ResponseObject::STATUS_ERROR},
    {"code", ResponseObject::FIELD_ERROR_CODE},
    {"message", ResponseObject::FIELD_MESSAGE},
    {"offset", ResponseObject::FIELD_PAGING_OFFSET},
    {"offset-id", ResponseObject::FIELD_PAGING_OFFSET_ID},
    {"limit", ResponseObject::FIELD_PAGING_LIMIT},
    {"total", ResponseObject::FIELD_PAGING_TOTAL},
    {"total-pages", ResponseObject::FIELD_PAGING_TOTAL_PAGES},
    {"previous", ResponseObject::FIELD_PAGING_PREVIOUS},
    {"next", ResponseObject::FIELD_PAGING_NEXT},
    {"id", XObjectBase::KEY_ID},
    {"uri", XObjectBase::KEY_URI},
    {"name", XObjectBase::KEY_NAME},
    {"description", ResourceBase::KEY_DESCRIPTION},
};

const char ERROR[] = R"({
    "type": "object",
    "required": ["<type>", "<code>", "<message>"],
    "properties": {
        "<type>": {"const": "<error>"},
        "<status>": {"const": "<status-error>"},
        "<code>": {"type": "integer", "description": "As the status of HTTP"},
        "<message>": {"type": "string", "description": "What was wrong"},
        "<event>": {"type": "string", "description": "On a websocket: the event of the message, if it had one"}}})";

const char PAGING[] = R"({
    "type": "object",
    "description": "Which part of a list this is",
    "properties": {
        "<offset>": {"type": "integer", "minimum": 0},
        "<offset-id>": {"type": "string"},
        "<limit>": {"type": "integer", "minimum": 1},
        "<total>": {"type": "integer", "minimum": 0},
        "<total-pages>": {"type": "integer", "minimum": 0},
        "<previous>": {"type": "string", "description": "The URL of the page before, if there is one"},
        "<next>": {"type": "string", "description": "The URL of the page behind, if there is one"}}})";

const char ENTRY[] = R"({
    "type": "object",
    "description": "A service or a resource",
    "required": ["<id>", "<uri>"],
    "properties": {
        "<id>": {"type": "string"},
        "<uri>": {"type": "string"},
        "<name>": {"type": "string"},
        "<description>": {"type": "string"}}})";

/// Whatever else a schema may be called, it is not called as one of the three above.
const std::string SCHEMA_PREFIX = "element.";

/// The name of a schema: letters that both kinds of document allow.
std::string schemaName(std::string resource)
{
    std::replace_if(
        resource.begin(), resource.end(),
        [](unsigned char c) { return c >= 0x80 || !(std::isalnum(c) || c == '.' || c == '-' || c == '_'); }, '_');
    return SCHEMA_PREFIX + resource;
}

std::string encoded(const std::string& segment)
{
    std::string result;
    Poco::URI::encode(segment, "/?#{}", result);
    return result;
}

/// What a resource declares of its elements' members, by their names.
Object::Ptr declaredProperties(const std::string& schemaText)
{
    Object::Ptr schema;
    if (!Util::JSONTools::parseJSONString(schemaText, schema) || schema->getObject("properties").isNull())
        return new Object;
    return schema->getObject("properties");
}

/// An element's members, without those that the service sets.
Object::Ptr membersSchema(const Object::Ptr& properties)
{
    Object::Ptr members = new Object(*properties);
    members->remove(XObjectBase::KEY_ID);
    members->remove(XObjectBase::KEY_URI);
    Object::Ptr schema = ServiceContract::json(R"({"type": "object"})");
    schema->set("properties", members);
    return schema;
}

Object::Ptr elementSchema(const std::string& description, const Object::Ptr& properties)
{
    Object::Ptr schema = ServiceContract::json(R"({
        "type": "object",
        "required": ["<id>", "<uri>"],
        "properties": {
            "<id>": {"type": "string", "readOnly": true, "description": "Never changes"},
            "<uri>": {"type": "string", "readOnly": true, "description": "The path of the element"}}})",
                                               FIELDS);
    Object::Ptr all = schema->getObject("properties");
    for (const auto& [name, property]: *properties)
        if (!all->has(name))
            all->set(name, property);
    if (!description.empty())
        schema->set("description", description);
    return schema;
}
} // namespace

Object::Ptr ServiceContract::json(std::string text, const Words& words)
{
    for (const auto& [word, value]: words)
    {
        std::string escaped;
        Command::appendJsonString(escaped, value);
        Poco::replaceInPlace(text, "<" + word + ">", escaped.substr(1, escaped.size() - 2));
    }
    return Poco::JSON::Parser().parse(text).extract<Object::Ptr>();
}

ServiceContract::ServiceContract(Service::ServiceDataAccessPoint& data, const std::string& service,
                                 const std::string& version)
    : m_name(service),
      m_path("/" + encoded(service)),
      m_version(version),
      m_answerSchemas(new Object),
      m_requestSchemas(new Object)
{
    const Data::ServiceBase::Ptr found = data.getService(service);
    if (found.isNull())
        throw Poco::NotFoundException("There is no service \"" + service + "\"");
    m_description = found->getDescription();
    m_answerSchemas->set("error", json(ERROR, FIELDS))
        .set("paging", json(PAGING, FIELDS))
        .set("entry", json(ENTRY, FIELDS));
    for (const ResourceBase::Ptr& resource: data.getResources(service))
        addResource(*resource);
}

ServiceContract::~ServiceContract() = default;

void ServiceContract::addResource(const ResourceBase& resource)
{
    const std::string name = resource.getName();
    const Object::Ptr properties = declaredProperties(resource.getSpecification());
    const std::string schema = schemaName(name);
    m_resources.push_back({name, schema, schema + ".members", m_path + "/" + encoded(name), properties->getNames()});
    m_answerSchemas->set(schema, elementSchema(resource.getDescription(), properties));
    m_requestSchemas->set(schema + ".members", membersSchema(properties));
}

Object::Ptr ServiceContract::info() const
{
    Object::Ptr info = new Object;
    info->set("title", m_name).set("version", m_version);
    if (!m_description.empty())
        info->set("description", m_description);
    return info;
}

} // namespace Kesa::Host
