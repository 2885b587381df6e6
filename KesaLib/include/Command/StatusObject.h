#pragma once

#include "ResponseText.h"

#include <Export.h>

#include <Poco/JSON/Object.h>
#include <Poco/Net/HTTPResponse.h>

#include <string>

namespace Kesa::Command
{

/// A JSON document with a status: the root of all responses.
///
/// Ownership: every object has a document of its own; a copy shares the data inside it.
/// Threads:   one object is changed by one thread at a time; many may read it while nobody changes it.
class KESA_API StatusObject
{
public:
    typedef std::string JsonFieldName;
    typedef std::string StatusCode;

    static const JsonFieldName FIELD_STATUS;
    static const JsonFieldName FIELD_MESSAGE;
    static const JsonFieldName FIELD_ERROR_CODE;
    static const StatusCode STATUS_OK;
    static const StatusCode STATUS_ERROR;
    static const StatusCode STATUS_NONE;

    /// Error codes that stand beside those of HTTP.
    enum AdditionalJsonErrorCodes
    {
        syntax_error = 400,
        access_denied = 403,
        subscription_uri_invalid = 404,
        gone = 410,
        maximum_number_of_event_subscriptions_reached = 503
    };

    /// An empty document.
    StatusObject();
    StatusObject(const StatusObject& other);
    virtual ~StatusObject();
    StatusObject& operator=(const StatusObject& other);

    /// Sets the status; an empty one removes it from the document.
    void setStatus(const StatusCode& status);
    /// Makes this an error document: type and status "error", the code as a number and a message, without data and
    /// paging. An empty message is replaced by one that explains the code.
    void setErrorStatus(Poco::Net::HTTPResponse::HTTPStatus code, const std::string& message);
    void setErrorStatus(AdditionalJsonErrorCodes code, const std::string& message);
    void setErrorStatus(int code, const std::string& message);
    /// The status, empty if there is none.
    StatusCode getStatus() const;
    /// The document itself, never null. Whoever changes it does so before the text is taken.
    Poco::JSON::Object::Ptr getObject() const { return JSONObject; }

protected:
    /// Puts `value` under `key`, an empty one removes the key.
    void setMember(const std::string& key, const Poco::Dynamic::Var& value);
    /// Puts `text` under `key`, an empty one removes the key.
    void setTextMember(const std::string& key, const std::string& text);
    /// The text under `key`, empty if there is none.
    std::string getText(const std::string& key) const;

    Poco::JSON::Object::Ptr JSONObject;
    /// The text of the document, made once it stands.
    ResponseText m_text;
};

} // namespace Kesa::Command
