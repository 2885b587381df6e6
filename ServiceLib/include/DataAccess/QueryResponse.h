#pragma once

#include "Command/ResponseObject.h"

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/Net/HTTPResponse.h>

#include <string>

namespace Kesa::Command
{

/// The outcome of a query.
enum class QueryResult
{
    OK = 0,
    NOT_FOUND = 1,
    INVALID_REQUEST = 2,
    PROCESSING_ERROR = 3,
    FORBIDDEN = 4
};

/// What a service's data access hands to its transport: the outcome of a query, which stands for an HTTP status, and a
/// payload of one of four kinds.
///
/// Ownership: a value; copies share the payload.
/// Errors:    a getter of another kind than the payload's gives an empty text or a null pointer. With the right kind,
///            an empty payload raises Poco::InvalidAccessException, one of another type Poco::BadCastException.
/// Threads:   one object is changed by one thread at a time; many may read it while nobody changes it.
class KESA_API QueryResponse
{
public:
    /// The kind of the payload.
    enum Type
    {
        TEXT = 0,        ///< whatever converts to a text
        JSON_OBJ = 1,    ///< Poco::JSON::Object::Ptr
        JSON_ARRAY = 2,  ///< Poco::JSON::Array::Ptr
        RESPONSE_OBJ = 3 ///< ResponseObject::Ptr
    };

    /// OK, of the kind TEXT, without a payload.
    QueryResponse();
    /// Takes over `payload`, which has to be what `type` says.
    QueryResponse(Type type, Poco::Dynamic::Var payload, const QueryResult& result);
    /// A response object that is the error document of `result`; an empty `message` is replaced by a text of the
    /// result. With OK it is a response object with nothing in it.
    QueryResponse(const QueryResult& result, const std::string& message);

    /// Replaces kind and payload; the outcome stays.
    void setValue(Type type, Poco::Dynamic::Var payload);
    Type getType() const { return m_type; }
    const Poco::Dynamic::Var& getValue() const { return m_payload; }
    /// The payload as a text; empty if it is of another kind than TEXT.
    std::string getText() const;
    /// The payload, shared; each null if it is of another kind.
    Poco::JSON::Object::Ptr getJsonObj() const;
    Poco::JSON::Array::Ptr getJsonArray() const;
    ResponseObject::Ptr getResponseObject() const;

    /// Replaces the outcome; the payload stays as it is, and with it a status that was written into it.
    void setOperationResult(const QueryResult& result) { m_result = result; }
    QueryResult getOperationResult() const { return m_result; }
    Poco::Net::HTTPResponse::HTTPStatus getHttpStatus() const { return convertResultToHttpStatus(m_result); }
    /// 500 for what is no outcome.
    static Poco::Net::HTTPResponse::HTTPStatus convertResultToHttpStatus(QueryResult result);

private:
    Type m_type;
    QueryResult m_result;
    Poco::Dynamic::Var m_payload;
};

} // namespace Kesa::Command
