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

std::size_t JSONTools::countParts(const std::string& text)
{
    std::size_t parts = 0;
    bool isInString = false;
    for (std::size_t at = 0; at < text.size(); ++at)
    {
        if (text[at] == '"')
            isInString = !isInString;
        else if (isInString)
            at += text[at] == '\\' ? 1 : 0;
        else if (text[at] == ',' || text[at] == '{' || text[at] == '[')
            ++parts;
    }
    return parts;
}

} // namespace Kesa::Util
