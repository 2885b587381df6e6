#pragma once

#include "RequestBase.h"

#include <Poco/JSON/Object.h>

#include <iosfwd>

namespace Kesa::Command
{

/// A request with its method and its body.
///
/// Ownership: shares the body.
/// Threads:   as RequestBase.
class KESA_API HttpRequest: public RequestBase
{
public:
    enum RequestType : int
    {
        UNSUPPORTED = 0,
        GET = 1,
        HEAD = 2,
        POST = 3,
        PUT = 4,
        DELETE = 5
    };

    /// `body` may be null: a request without a body.
    HttpRequest(RequestType type, const Poco::URI& url, const Poco::JSON::Object::Ptr& body = nullptr);
    HttpRequest(const HttpRequest& other);
    ~HttpRequest() override;
    HttpRequest& operator=(const HttpRequest& other);

    RequestType getType() const { return m_type; }
    /// The body, null if there is none.
    Poco::JSON::Object::Ptr asJson() const { return m_body; }

private:
    RequestType m_type;
    Poco::JSON::Object::Ptr m_body;
};

/// Writes the method's name, "UNKNOWN type" for a value that is none.
KESA_API std::ostream& operator<<(std::ostream& out, HttpRequest::RequestType type);

} // namespace Kesa::Command
