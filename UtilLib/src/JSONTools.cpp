#include "JSONTools.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>

namespace Kesa::Util
{

bool JSONTools::parseJSONString(const std::string& text, Poco::JSON::Object::Ptr& out)
{
    out = nullptr;
    try
    {
        Poco::JSON::Parser parser;
        const Poco::Dynamic::Var parsed = parser.parse(text);
        if (parsed.type() == typeid(Poco::JSON::Object::Ptr))
            out = parsed.extract<Poco::JSON::Object::Ptr>();
    }
    catch (const std::exception&) // JSONException, SyntaxException for numbers out of range, and their like
    {
    }
    return !out.isNull();
}

} // namespace Kesa::Util
