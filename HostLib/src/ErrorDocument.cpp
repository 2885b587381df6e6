#include "ErrorDocument.h"

#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>
#include <Poco/JSON/Object.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Timestamp.h>

#include <sstream>

namespace Kesa::Host
{

namespace
{

/// The reason phrase, also of the codes that POCO has no name for.
std::string reasonOf(int status)
{
    const std::string& known =
        Poco::Net::HTTPResponse::getReasonForStatus(static_cast<Poco::Net::HTTPResponse::HTTPStatus>(status));
    return known.empty() || known == "???" ? std::string("Error") : known;
}

} // namespace

std::string errorDocument(int status, const std::string& message)
{
    Poco::JSON::Object document;
    document.set("type", "error");
    document.set("status", "error");
    document.set("code", status);
    document.set("message", message.empty() ? reasonOf(status) : message);
    std::ostringstream text;
    document.stringify(text);
    return text.str();
}

void sendError(Poco::Net::HTTPServerResponse& response, int status, const std::string& message)
{
    const std::string body = errorDocument(status, message);
    response.setStatusAndReason(static_cast<Poco::Net::HTTPResponse::HTTPStatus>(status), reasonOf(status));
    response.setContentType("application/json");
    response.sendBuffer(body.data(), body.size());
}

std::string rawErrorAnswer(int status, const std::string& message)
{
    const std::string body = errorDocument(status, message);
    std::ostringstream text;
    text << "HTTP/1.1 " << status << ' ' << reasonOf(status) << "\r\n";
    if (status < 500)
        text << "Date: " << Poco::DateTimeFormatter::format(Poco::Timestamp(), Poco::DateTimeFormat::HTTP_FORMAT)
             << "\r\n";
    text << "Content-Type: application/json\r\nContent-Length: " << body.size() << "\r\nConnection: Close\r\n\r\n"
         << body;
    return text.str();
}

} // namespace Kesa::Host
