#include "DataAccess/QueryResponse.h"

namespace Kesa::Command
{

using Poco::Net::HTTPResponse;

namespace
{
std::string defaultText(QueryResult result)
{
    switch (result)
    {
    case QueryResult::OK:
        return "ok";
    case QueryResult::NOT_FOUND:
        return "not_found";
    case QueryResult::INVALID_REQUEST:
        return "invalid_request";
    case QueryResult::PROCESSING_ERROR:
        return "processing_error";
    case QueryResult::FORBIDDEN:
        return "forbidden";
    }
    return std::string();
}
} // namespace

QueryResponse::QueryResponse(): m_type(TEXT), m_result(QueryResult::OK) {}

QueryResponse::QueryResponse(Type type, Poco::Dynamic::Var payload, const QueryResult& result)
    : m_type(type), m_result(result)
{
    m_payload.swap(payload);
}

QueryResponse::QueryResponse(const QueryResult& result, const std::string& message)
    : m_type(RESPONSE_OBJ), m_result(result)
{
    ResponseObject::Ptr response = new ResponseObject;
    if (result != QueryResult::OK)
        response->setErrorStatus(convertResultToHttpStatus(result), message.empty() ? defaultText(result) : message);
    m_payload = response;
}

void QueryResponse::setValue(Type type, Poco::Dynamic::Var payload)
{
    m_type = type;
    m_payload.swap(payload);
}

std::string QueryResponse::getText() const
{
    return m_type == TEXT ? m_payload.convert<std::string>() : std::string();
}

Poco::JSON::Object::Ptr QueryResponse::getJsonObj() const
{
    return m_type == JSON_OBJ ? m_payload.extract<Poco::JSON::Object::Ptr>() : Poco::JSON::Object::Ptr();
}

Poco::JSON::Array::Ptr QueryResponse::getJsonArray() const
{
    return m_type == JSON_ARRAY ? m_payload.extract<Poco::JSON::Array::Ptr>() : Poco::JSON::Array::Ptr();
}

ResponseObject::Ptr QueryResponse::getResponseObject() const
{
    return m_type == RESPONSE_OBJ ? m_payload.extract<ResponseObject::Ptr>() : ResponseObject::Ptr();
}

HTTPResponse::HTTPStatus QueryResponse::convertResultToHttpStatus(QueryResult result)
{
    switch (result)
    {
    case QueryResult::OK:
        return HTTPResponse::HTTP_OK;
    case QueryResult::NOT_FOUND:
        return HTTPResponse::HTTP_NOT_FOUND;
    case QueryResult::INVALID_REQUEST:
        return HTTPResponse::HTTP_BAD_REQUEST;
    case QueryResult::PROCESSING_ERROR:
        return HTTPResponse::HTTP_INTERNAL_SERVER_ERROR;
    case QueryResult::FORBIDDEN:
        return HTTPResponse::HTTP_FORBIDDEN;
    }
    return HTTPResponse::HTTP_INTERNAL_SERVER_ERROR;
}

} // namespace Kesa::Command
