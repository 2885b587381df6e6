#include "ConditionalRequest.h"

#include "HttpText.h"

#include <Poco/Net/HTTPMessage.h>
#include <Poco/SHA1Engine.h>

#include <algorithm>

namespace Kesa::Host
{

namespace
{

bool holds(const std::vector<std::string>& tags, const std::string& tag)
{
    return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

} // namespace

ConditionalRequest::ConditionalRequest(const Poco::Net::HTTPMessage& request)
{
    m_match.read(request, "If-Match");
    m_noneMatch.read(request, "If-None-Match");
}

void ConditionalRequest::Tags::read(const Poco::Net::HTTPMessage& request, const std::string& field)
{
    for (auto found = request.find(field); found != request.end() && equalsIgnoringCase(found->first, field); ++found)
    {
        isGiven = true;
        readList(found->second);
    }
}

void ConditionalRequest::Tags::readList(const std::string& list)
{
    isAny = isAny || trimmed(list) == "*";
    for (std::size_t begin = list.find('"'); begin != std::string::npos; begin = list.find('"', begin))
    {
        const std::size_t end = list.find('"', begin + 1); // a tag may hold commas, but no quotes
        if (end == std::string::npos)
            break;
        const bool isWeak = begin >= 2 && list.compare(begin - 2, 2, "W/") == 0;
        (isWeak ? weak : strong).push_back(list.substr(begin, end - begin + 1));
        begin = end + 1;
    }
}

bool ConditionalRequest::matchFails(bool exists, const std::string& etag) const
{
    if (!m_match.isGiven)
        return false;
    return !exists || !(m_match.isAny || holds(m_match.strong, etag));
}

bool ConditionalRequest::noneMatchFails(bool exists, const std::string& etag) const
{
    return exists && (m_noneMatch.isAny || holds(m_noneMatch.strong, etag) || holds(m_noneMatch.weak, etag));
}

ConditionalRequest::Verdict ConditionalRequest::judgeRead(bool exists, const std::string& etag) const
{
    if (matchFails(exists, etag))
        return Verdict::FAILED;
    return noneMatchFails(exists, etag) ? Verdict::NOT_MODIFIED : Verdict::PROCEED;
}

ConditionalRequest::Verdict ConditionalRequest::judgeWrite(bool exists, const std::string& etag) const
{
    return matchFails(exists, etag) || noneMatchFails(exists, etag) ? Verdict::FAILED : Verdict::PROCEED;
}

std::string ConditionalRequest::tagOf(const std::string& text)
{
    Poco::SHA1Engine engine;
    engine.update(text);
    return '"' + Poco::DigestEngine::digestToHex(engine.digest()) + '"';
}

} // namespace Kesa::Host
