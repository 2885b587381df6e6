#include "ErrorDocument.h"

#include "JsonWriter.h"

#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>
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
    // The message may repeat what a client sent, in bytes that are no UTF-8 too.
    std::string text = "{\"code\":" + std::to_string(status) + ",\"message\":";
    Command::appendJsonString(text, message.empty() ? reasonOf(status) : message);
    return text += ",\"status\":\"error\",\"type\":\"error\"}";
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
