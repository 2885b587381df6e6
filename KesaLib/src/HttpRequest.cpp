#include "Command/HttpRequest.h"

#include <ostream>

namespace Kesa::Command
{

HttpRequest::HttpRequest(RequestType type, const Poco::URI& url, const Poco::JSON::Object::Ptr& body)
    : RequestBase(url), m_type(type), m_body(body)
{
}

HttpRequest::HttpRequest(const HttpRequest& other) = default;
HttpRequest::~HttpRequest() = default;
HttpRequest& HttpRequest::operator=(const HttpRequest& other) = default;

std::ostream& operator<<(std::ostream& out, HttpRequest::RequestType type)
{
    switch (type)
    {
    case HttpRequest::UNSUPPORTED:
        return out << "UNSUPPORTED";
    case HttpRequest::GET:
        return out << "GET";
    case HttpRequest::HEAD:
        return out << "HEAD";
    case HttpRequest::POST:
        return out << "POST";
    case HttpRequest::PUT:
        return out << "PUT";
    case HttpRequest::DELETE:
        return out << "DELETE";
    }
    return out << "UNKNOWN type";
}

} // namespace Kesa::Command
