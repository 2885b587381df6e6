#include "GetCommand.h"

#include "HttpGet.h"
#include "LineOutput.h"
#include "ServiceUrl.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Stringifier.h>

#include <sstream>
#include <string>

namespace Kesa::Client
{
namespace
{

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
        const HttpAnswer answer = httpGet(url);
        if (!answer.isSuccess())
        {
            errors << "kesa: " << url.toString() << ": " << answer.describeError() << std::endl;
            return false;
        }
        document = answer.document();
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
