#include "OpenApiDocument.h"

#include "BodyReader.h"
#include "ServiceContract.h"

#include "Command/Query/Paging.h"
#include "Command/ResponseObject.h"
#include "Command/UrlPath.h"

namespace Kesa::Host
{

using Command::Paging;
using Command::ResponseObject;
using Command::UrlPath;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace
{
Object::Ptr json(const std::string& text)
{
    static const ServiceContract::Words words = {
        {"fields", UrlPath::QUERY_FIELDS},
        {"sortby", UrlPath::QUERY_SORTBY},
        {"q", UrlPath::QUERY_FREETEXT_SEARCH},
        {"offset", UrlPath::QUERY_PAGING_OFFSET},
        {"limit", UrlPath::QUERY_PAGING_LIMIT},
        {"expand", UrlPath::QUERY_EXPAND},
        {"wildcard", UrlPath::QUERY_WILDCARD},
        {"limit-default", std::to_string(Paging::PAGING_LIMIT_DEFAULT)},
        {"limit-maximum", std::to_string(Paging::PAGING_LIMIT_MAX)},
        {"largest-body", std::to_string(BodyReader::MAX_BODY)},
    };
    return ServiceContract::json(text, words);
}

const char PARAMETERS[] = R"({
    "id": {"name": "id", "in": "path", "required": true, "description": "The id of an element",
        "schema": {"type": "string"}},
    "fields": {"name": "<fields>", "in": "query", "style": "form", "explode": false,
        "description": "The members wanted; id and uri come with them",
        "schema": {"type": "array", "items": {"type": "string"}}, "example": ["name"]},
    "deletedFields": {"name": "<fields>", "in": "query", "style": "form", "explode": false,
        "description": "The members that go, instead of the whole element",
        "schema": {"type": "array", "items": {"type": "string"}}},
    "sortby": {"name": "<sortby>", "in": "query", "style": "form", "explode": false,
        "description": "Members to sort by, falling with a minus before the name",
        "schema": {"type": "array", "items": {"type": "string"}}},
    "q": {"name": "<q>", "in": "query",
        "description": "Objects that hold this text anywhere, in any case of letters; <wildcard> stands for any text",
        "schema": {"type": "string"}},
    "offset": {"name": "<offset>", "in": "query",
        "description": "Where the page begins: how many objects come before it, or the id of its first one",
        "schema": {"type": ["integer", "string"]}},
    "limit": {"name": "<limit>", "in": "query",
        "description": "How many objects a page has at most, <limit-default> if there is only an offset, never more than <limit-maximum>",
        "schema": {"type": "integer", "minimum": 1}},
    "expand": {"name": "<expand>", "in": "query",
        "description": "How many levels of references are replaced by what they refer to, or the names of the members with such references",
        "schema": {"type": "string"}},
    "ifMatch": {"name": "If-Match", "in": "header", "description": "Only if the element has this tag",
        "schema": {"type": "string"}},
    "ifNoneMatch": {"name": "If-None-Match", "in": "header", "description": "Only if the element has another tag",
        "schema": {"type": "string"}}})";

const char HEADERS[] = R"({
    "etag": {"description": "The tag of the element's state; only with the whole element", "schema": {"type": "string"}},
    "location": {"description": "The path of the new element", "schema": {"type": "string"}},
    "allow": {"description": "The methods that the URL knows", "schema": {"type": "string"}}})";

const char RESPONSES[] = R"({
    "error": {"description": "It failed; the document says why",
        "content": {"application/json": {"schema": {"$ref": "#/components/schemas/error"}}}},
    "unchanged": {"description": "The element has the tag that If-None-Match names"},
    "methods": {"description": "What the URL knows",
        "headers": {"Allow": {"$ref": "#/components/headers/allow"}}}})";

Object::Ptr reference(const std::string& kind, const std::string& name)
{
    Object::Ptr object = new Object;
    object->set("$ref", "#/components/" + kind + "/" + name);
    return object;
}

/// The document `{"status":"ok","data":...}`.
Object::Ptr answerSchema(const Object::Ptr& data, bool isList)
{
    Object::Ptr status = new Object;
    status->set("const", ResponseObject::STATUS_OK);
    Object::Ptr properties = new Object;
    properties->set(ResponseObject::FIELD_STATUS, status).set(ResponseObject::FIELD_DATA, data);
    if (isList)
        properties->set(ResponseObject::FIELD_PAGING, reference("schemas", "paging"));
    Array::Ptr required = new Array;
    required->add(ResponseObject::FIELD_STATUS).add(ResponseObject::FIELD_DATA);
    Object::Ptr schema = new Object;
    schema->set("type", "object").set("required", required).set("properties", properties);
    return schema;
}

Object::Ptr listOf(const std::string& schema)
{
    Object::Ptr list = new Object;
    list->set("type", "array").set("items", reference("schemas", schema));
    return answerSchema(list, true);
}

Object::Ptr elementOf(const std::string& schema)
{
    return answerSchema(reference("schemas", schema), false);
}

Object::Ptr content(const Object::Ptr& schema)
{
    Object::Ptr media = new Object;
    media->set("schema", schema);
    Object::Ptr byType = new Object;
    byType->set("application/json", media);
    return byType;
}

/// One operation of a URL, put together in words.
class Operation
{
public:
    Operation(const std::string& id, const std::string& summary): m_responses(new Object), m_parameters(new Array)
    {
        m_operation->set("operationId", id).set("summary", summary);
    }

    Operation& takes(const std::vector<std::string>& parameters)
    {
        for (const std::string& parameter: parameters)
            m_parameters->add(reference("parameters", parameter));
        return *this;
    }
    Operation& takes(const Object::Ptr& parameter)
    {
        m_parameters->add(parameter);
        return *this;
    }
    Operation& takesBody(const std::string& schema)
    {
        Object::Ptr body = json(R"({"required": true, "description": "At most <largest-body> bytes"})");
        body->set("content", content(reference("schemas", schema)));
        m_operation->set("requestBody", body);
        return *this;
    }
    /// `headers`: names of the components; an answer without a schema has no body.
    Operation& gives(int status, const std::string& description, const Object::Ptr& schema,
                     const std::map<std::string, std::string>& headers = {})
    {
        Object::Ptr response = new Object;
        response->set("description", description);
        if (!schema.isNull())
            response->set("content", content(schema));
        Object::Ptr named = new Object;
        for (const auto& [name, component]: headers)
            named->set(name, reference("headers", component));
        if (named->size() > 0)
            response->set("headers", named);
        m_responses->set(std::to_string(status), response);
        return *this;
    }
    Operation& gives(int status, const std::string& response)
    {
        m_responses->set(std::to_string(status), reference("responses", response));
        return *this;
    }
    Operation& fails(const std::vector<int>& statuses)
    {
        for (const int status: statuses)
            gives(status, "error");
        return *this;
    }

    Object::Ptr written() const
    {
        Object::Ptr operation = m_operation;
        m_responses->set("default", reference("responses", "error"));
        operation->set("responses", m_responses);
        if (m_parameters->size() > 0)
            operation->set("parameters", m_parameters);
        return operation;
    }

private:
    Object::Ptr m_operation{new Object};
    mutable Object::Ptr m_responses;
    Array::Ptr m_parameters;
};

const std::vector<std::string> LIST_PARAMETERS = {"fields", "sortby", "q", "offset", "limit", "expand"};

/// `key=value` of a query, for the members that are declared, or for any.
Object::Ptr memberFilter(const std::vector<std::string>& members)
{
    Object::Ptr filter = json(R"({"name": "members", "in": "query", "style": "form", "explode": true,
        "description": "Objects whose member of that name has this whole text; <wildcard> stands for any text",
        "schema": {"type": "object", "additionalProperties": {"type": "string"}}})");
    if (members.empty())
        return filter;
    Object::Ptr properties = ServiceContract::json(R"({"id": {"type": "string"}, "uri": {"type": "string"}})");
    for (const std::string& member: members)
        properties->set(member, json(R"({"type": "string"})"));
    filter->getObject("schema")->set("additionalProperties", false).set("properties", properties);
    return filter;
}

Object::Ptr readList(const std::string& id, const std::string& summary, const std::string& schema,
                     const std::vector<std::string>& members)
{
    return Operation(id, summary)
        .takes(LIST_PARAMETERS)
        .takes(memberFilter(members))
        .gives(200, "The objects asked for", listOf(schema))
        .fails({400, 404, 406})
        .written();
}

/// What every URL knows beside reading.
void addCommon(Object& path, const std::string& name)
{
    path.set("head", Operation("head_" + name, "As GET, without a body")
                         .gives(200, "There is something at this URL", nullptr)
                         .written());
    path.set("options", Operation("options_" + name, "Tells the methods of this URL").gives(204, "methods").written());
}

Object::Ptr listPath(const std::string& name, const std::string& summary)
{
    Object::Ptr path = new Object;
    path->set("get", readList("list_" + name, summary, "entry", {}));
    addCommon(*path, name);
    return path;
}

Object::Ptr specificationPath(const ServiceContract& contract)
{
    Object::Ptr path = new Object;
    path->set("get", Operation("describe_" + contract.name(), "This document, or that of the websocket")
                         .takes(json(R"({"name": "format", "in": "query",
                             "schema": {"type": "string", "enum": ["openapi", "asyncapi"], "default": "openapi"}})"))
                         .gives(200, "The document", json(R"({"type": "object"})"))
                         .fails({400, 406})
                         .written());
    addCommon(*path, "specification_of_" + contract.name());
    return path;
}

Object::Ptr resourcePath(const ServiceContract::Resource& resource)
{
    Object::Ptr path = new Object;
    path->set("get",
              readList("list_" + resource.name, "The elements of " + resource.name, resource.schema, resource.members));
    path->set("post", Operation("create_" + resource.name, "A new element, whose id the service chooses")
                          .takesBody(resource.membersSchema)
                          .gives(201, "The new element", elementOf(resource.schema),
                                 {{"Location", "location"}, {"ETag", "etag"}})
                          .fails({400, 404, 406, 411, 412, 413, 415})
                          .written());
    addCommon(*path, resource.name);
    return path;
}

Object::Ptr updateOperation(const ServiceContract::Resource& resource)
{
    return Operation("update_" + resource.name, "Sets the members given")
        .takes({"ifMatch", "ifNoneMatch"})
        .takesBody(resource.membersSchema)
        .gives(200, "The element as it is now", elementOf(resource.schema), {{"ETag", "etag"}})
        .fails({400, 404, 406, 411, 412, 413, 415})
        .written();
}

Object::Ptr insertOperation(const ServiceContract::Resource& resource)
{
    return Operation("insert_" + resource.name, "A new element under this id, which is a UUID in lower case")
        .takes({"ifMatch", "ifNoneMatch"})
        .takesBody(resource.membersSchema)
        .gives(201, "The new element", elementOf(resource.schema), {{"Location", "location"}, {"ETag", "etag"}})
        .fails({400, 404, 406, 409, 411, 412, 413, 415})
        .written();
}

Object::Ptr elementPath(const ServiceContract::Resource& resource)
{
    Object::Ptr path = new Object;
    Array::Ptr parameters = new Array;
    parameters->add(reference("parameters", "id"));
    path->set("parameters", parameters);
    path->set("get", Operation("get_" + resource.name, "An element")
                         .takes({"fields", "expand", "ifMatch", "ifNoneMatch"})
                         .gives(200, "The element", elementOf(resource.schema), {{"ETag", "etag"}})
                         .gives(304, "unchanged")
                         .fails({400, 404, 406, 412})
                         .written());
    path->set("post", updateOperation(resource));
    path->set("put", insertOperation(resource));
    path->set("delete", Operation("delete_" + resource.name, "Deletes the element, or some of its members")
                            .takes({"deletedFields", "ifMatch", "ifNoneMatch"})
                            .gives(200, "What went, or what is left", elementOf(resource.schema))
                            .fails({400, 404, 406, 412})
                            .written());
    addCommon(*path, "element_of_" + resource.name);
    return path;
}

Object::Ptr paths(const ServiceContract& contract)
{
    Object::Ptr paths = new Object;
    paths->set(UrlPath::URI_ROOT, listPath("services", "The services of the process"));
    paths->set(contract.path(), listPath("resources", "The resources of " + contract.name()));
    paths->set(contract.path() + "/" + UrlPath::RESERVED_KEY_SPEC, specificationPath(contract));
    for (const ServiceContract::Resource& resource: contract.resources())
    {
        paths->set(resource.path, resourcePath(resource));
        paths->set(resource.path + "/{id}", elementPath(resource));
    }
    return paths;
}
} // namespace

Object::Ptr OpenApiDocument::write(const ServiceContract& contract)
{
    Object::Ptr schemas = new Object(*contract.answerSchemas());
    for (const auto& [name, schema]: *contract.requestSchemas())
        schemas->set(name, schema);
    Object::Ptr components = new Object;
    components->set("schemas", schemas)
        .set("parameters", json(PARAMETERS))
        .set("headers", json(HEADERS))
        .set("responses", json(RESPONSES));
    Object::Ptr document = json(R"({"openapi": "3.1.0", "servers": [{"url": "/"}]})");
    document->set("info", contract.info()).set("paths", paths(contract)).set("components", components);
    return document;
}

} // namespace Kesa::Host
