#include "AsyncApiDocument.h"

#include "ServiceContract.h"

#include "Command/WebSocketResponseObject.h"

namespace Kesa::Host
{

using Command::ResponseObject;
using Command::WebSocketRequestObject;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace
{
Object::Ptr json(const std::string& text)
{
    static const ServiceContract::Words words = {
        {"type", WebSocketRequestObject::FIELD_TYPE},
        {"event", WebSocketRequestObject::FIELD_EVENT},
        {"interval", WebSocketRequestObject::FIELD_SUBSCRIPTION_INTERVAL},
        {"updateLimit", WebSocketRequestObject::FIELD_SUBSCRIPTION_UPDATE_LIMIT},
        {"authorization", WebSocketRequestObject::FIELD_AUTHORIZATION},
        {"autosubscribe", WebSocketRequestObject::FIELD_AUTOSUBSCRIBE},
        {"subscribe", WebSocketRequestObject::TYPE_SUBSCRIBE},
        {"unsubscribe", WebSocketRequestObject::TYPE_UNSUBSCRIBE},
        {"data-type", WebSocketRequestObject::TYPE_DATA},
        {"status", ResponseObject::FIELD_STATUS},
        {"ok", ResponseObject::STATUS_OK},
        {"data", ResponseObject::FIELD_DATA},
        {"paging", ResponseObject::FIELD_PAGING},
        {"timestamp", ResponseObject::FIELD_TIMESTAMP},
        {"longest-event", std::to_string(WebSocketRequestObject::MAX_EVENT_LENGTH)},
        {"longest-time", std::to_string(WebSocketRequestObject::MAX_MILLISECONDS)},
        {"default-limit", std::to_string(WebSocketRequestObject::DEFAULT_UPDATE_LIMIT)},
    };
    return ServiceContract::json(text, words);
}

const char SUBSCRIBE[] = R"({
    "title": "Follow a URL", "contentType": "application/json",
    "payload": {"type": "object", "required": ["<type>", "<event>"], "properties": {
        "<type>": {"const": "<subscribe>"},
        "<event>": {"type": "string", "minLength": 1, "maxLength": <longest-event>,
            "description": "The URL, with its query; a fragment tells two subscriptions to one path apart"},
        "<updateLimit>": {"type": "integer", "minimum": 0, "maximum": <longest-time>, "default": <default-limit>,
            "description": "At most one notification in this time, in milliseconds"},
        "<interval>": {"type": "integer", "minimum": 1, "maximum": <longest-time>,
            "description": "The state once in this time, in milliseconds, changed or not, instead of on change"},
        "<authorization>": {"type": "string"},
        "<autosubscribe>": {"type": "boolean", "description": "On a resource: also follow each element"}}}})";

const char UNSUBSCRIBE[] = R"({
    "title": "No longer follow a URL", "contentType": "application/json",
    "payload": {"type": "object", "required": ["<type>", "<event>"], "properties": {
        "<type>": {"const": "<unsubscribe>"},
        "<event>": {"type": "string", "minLength": 1, "maxLength": <longest-event>,
            "description": "The URL; its path and fragment count, its query does not"}}}})";

const char ACKNOWLEDGEMENT[] = R"({
    "title": "A message was understood and carried out", "contentType": "application/json",
    "payload": {"type": "object", "required": ["<type>", "<event>", "<status>"], "properties": {
        "<type>": {"enum": ["<subscribe>", "<unsubscribe>"]},
        "<event>": {"type": "string"},
        "<status>": {"const": "<ok>"}}}})";

const char NOTIFICATION[] = R"({
    "contentType": "application/json",
    "payload": {"type": "object", "required": ["<type>", "<event>", "<data>"], "properties": {
        "<type>": {"const": "<data-type>"},
        "<event>": {"type": "string", "description": "The URL as it was subscribed"},
        "<timestamp>": {"type": "integer",
            "description": "Periodic subscriptions: milliseconds since the start of the service"}}}})";

const char ERROR[] = R"({
    "title": "A message failed, or what is followed went", "contentType": "application/json",
    "payload": {"$ref": "#/components/schemas/error"}})";

Object::Ptr reference(const std::string& kind, const std::string& name)
{
    Object::Ptr object = new Object;
    object->set("$ref", "#/components/" + kind + "/" + name);
    return object;
}

Object::Ptr notification(const std::string& title, const Object::Ptr& data, bool isList)
{
    Object::Ptr message = json(NOTIFICATION);
    message->set("title", title);
    Object::Ptr properties = message->getObject("payload")->getObject("properties");
    properties->set(ResponseObject::FIELD_DATA, data);
    if (isList)
        properties->set(ResponseObject::FIELD_PAGING, reference("schemas", "paging"));
    return message;
}

Object::Ptr listOf(const std::string& schema)
{
    Object::Ptr list = new Object;
    list->set("type", "array").set("items", reference("schemas", schema));
    return list;
}

Object::Ptr messages(const ServiceContract& contract)
{
    Object::Ptr messages = new Object;
    messages->set("subscribe", json(SUBSCRIBE)).set("unsubscribe", json(UNSUBSCRIBE));
    messages->set("acknowledgement", json(ACKNOWLEDGEMENT)).set("error", json(ERROR));
    messages->set("entries", notification("The services at /, or the resources of a service", listOf("entry"), true));
    for (const ServiceContract::Resource& resource: contract.resources())
    {
        messages->set("list." + resource.schema,
                      notification("The elements at " + resource.path, listOf(resource.schema), true));
        messages->set(resource.schema,
                      notification("One element of " + resource.path, reference("schemas", resource.schema), false));
    }
    for (const std::string& name: messages->getNames())
        messages->getObject(name)->set("messageId", name);
    return messages;
}

/// One direction of the websocket: all of `messages` that a client sends, or all that it gets.
Object::Ptr direction(const std::string& summary, const Object& messages, bool isSent)
{
    Array::Ptr choices = new Array;
    for (const auto& message: messages)
        if (isSent == (message.first == "subscribe" || message.first == "unsubscribe"))
            choices->add(reference("messages", message.first));
    Object::Ptr message = new Object;
    message->set("oneOf", choices);
    Object::Ptr operation = new Object;
    operation->set("operationId", isSent ? "send" : "receive").set("summary", summary).set("message", message);
    return operation;
}

Object::Ptr server(const std::string& authority)
{
    Object::Ptr server = ServiceContract::json(R"({"protocol": "ws"})");
    server->set("url", "ws://" + authority);
    Object::Ptr servers = new Object;
    servers->set("service", server);
    return servers;
}
} // namespace

Object::Ptr AsyncApiDocument::write(const ServiceContract& contract, const std::string& authority)
{
    const Object::Ptr all = messages(contract);
    Object::Ptr channel = ServiceContract::json(
        R"({"description": "A websocket can be opened on every URL of the service; the messages tell what is followed"})");
    channel->set("publish", direction("What a client sends", *all, true));
    channel->set("subscribe", direction("What a client gets", *all, false));
    Object::Ptr channels = new Object;
    channels->set(contract.path(), channel);
    Object::Ptr components = new Object;
    components->set("messages", all).set("schemas", contract.answerSchemas());
    Object::Ptr document = ServiceContract::json(R"({"asyncapi": "2.6.0", "defaultContentType": "application/json"})");
    document->set("id", "urn:kesa:service:" + contract.name())
        .set("info", contract.info())
        .set("servers", server(authority))
        .set("channels", channels)
        .set("components", components);
    return document;
}

} // namespace Kesa::Host
