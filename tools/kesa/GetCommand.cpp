#include "GetCommand.h"

#include "LineOutput.h"
#include "ServiceUrl.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Timespan.h>

#include <sstream>
#include <string>

namespace Kesa::Client
{
namespace
{

/// Largest answer, in bytes.
constexpr std::size_t MAX_BODY = 16 * 1024 * 1024;

struct Answer
{
    int status;
    std::string reason;
    std::string body;
};

Answer fetch(const ServiceUrl& url)
{
    Poco::Net::HTTPClientSession session(url.host(), url.port());
    session.setTimeout(Poco::Timespan(10, 0));
    Poco::Net::HTTPRequest request(Poco::Net::HTTPRequest::HTTP_GET, url.pathAndQuery(),
                                   Poco::Net::HTTPRequest::HTTP_1_1);
    request.set("Accept", "application/json");
    session.sendRequest(request);
    Poco::Net::HTTPResponse response;
    std::istream& stream = session.receiveResponse(response);
    std::string body(MAX_BODY + 1, '\0');
    stream.read(body.data(), static_cast<std::streamsize>(body.size()));
    body.resize(static_cast<std::size_t>(stream.gcount()));
    if (body.size() > MAX_BODY)
        throw Poco::DataException("the answer has more than " + std::to_string(MAX_BODY) + " bytes");
    return {response.getStatus(), response.getReason(), body};
}

Poco::JSON::Object::Ptr parse(const std::string& body)
{
    const Poco::Dynamic::Var value = Poco::JSON::Parser().parse(body);
    if (value.type() != typeid(Poco::JSON::Object::Ptr))
        throw Poco::DataFormatException("the answer is no JSON object");
    return value.extract<Poco::JSON::Object::Ptr>();
}

/// What an error answer says of itself, or else its status line.
std::string describeError(const Answer& answer)
{
    try
    {
        const std::string message = parse(answer.body)->optValue<std::string>("message", "");
        if (!message.empty())
            return std::to_string(answer.status) + " " + message;
    }
    catch (const Poco::Exception&)
    {
        // Not every answer is one of a service; the status line says enough.
    }
    return std::to_string(answer.status) + " " + answer.reason;
}

void print(const Poco::JSON::Object& document, bool json, LineOutput& output)
{
    std::ostringstream text;
    if (json || !document.has("data"))
        Poco::JSON::Stringifier::stringify(document, text);
    else
        Poco::JSON::Stringifier::stringify(document.get("data"), text, 2);
    output.write(text.str());
}

} // namespace

bool getUrl(const ServiceUrl& url, bool json, LineOutput& output, std::ostream& errors)
{
    Poco::JSON::Object::Ptr document;
    try
    {
        const Answer answer = fetch(url);
        if (answer.status < 200 || answer.status > 299)
        {
            errors << "kesa: " << url.toString() << ": " << describeError(answer) << std::endl;
            return false;
        }
        document = parse(answer.body);
    }
    catch (const Poco::Exception& error)
    {
        errors << "kesa: " << url.toString() << ": " << error.displayText() << std::endl;
        return false;
    }
    print(*document, json, output);
    return true;
}

} // namespace Kesa::Client
