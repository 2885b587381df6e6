#include "Command/UrlPath.h"

#include "QueryText.h"

#include <Poco/Exception.h>

namespace Kesa::Command
{

const std::string UrlPath::URI_ROOT = "/";
const std::string UrlPath::URI_ROOT_API = "/";
const std::string UrlPath::RESERVED_KEY_ID = "$id";
const std::string UrlPath::RESERVED_KEY_SPEC = "$spec";
const std::string UrlPath::RESERVED_KEY_RIGHTS = "$rights";
const std::string UrlPath::QUERY_WILDCARD = "*";
const std::string UrlPath::QUERY_WILDCARD_HTML = "%2A";
const std::string UrlPath::QUERY_FREETEXT_SEARCH = "$q";
const std::string UrlPath::QUERY_FIELDS = "$fields";
const std::string UrlPath::QUERY_SORTBY = "$sortby";
const std::string UrlPath::QUERY_PAGING_OFFSET = "$offset";
const std::string UrlPath::QUERY_PAGING_LIMIT = "$limit";
const std::string UrlPath::QUERY_EXPAND = "$expand";

namespace
{
/// What a URL addresses whose last segment is the one given, by the depth at which that stands.
struct Level
{
    UrlPath::Characteristic name;
    UrlPath::Characteristic id;
    UrlPath::Characteristic spec;
    UrlPath::Characteristic rights;
};

const Level LEVELS[] = {
    {UrlPath::SERVICE, UrlPath::ROOT_ID, UrlPath::INVALID, UrlPath::INVALID},
    {UrlPath::SERVICE_RESOURCE, UrlPath::SERVICE_ID, UrlPath::SERVICE_SPEC, UrlPath::SERVICE_RIGHTS},
    {UrlPath::SERVICE_RESOURCE_ELEMENT, UrlPath::SERVICE_RESOURCE_ID, UrlPath::SERVICE_RESOURCE_SPEC,
     UrlPath::INVALID}};

UrlPath::Characteristic classifyLast(const Level& level, const std::string& segment)
{
    if (segment == UrlPath::RESERVED_KEY_ID)
        return level.id;
    if (segment == UrlPath::RESERVED_KEY_SPEC)
        return level.spec;
    return segment == UrlPath::RESERVED_KEY_RIGHTS ? level.rights : level.name;
}

std::vector<std::string> pathSegments(const Poco::URI& url)
{
    std::vector<std::string> segments;
    url.getPathSegments(segments);
    return segments;
}
} // namespace

UrlPath::UrlPath(): characteristic(INVALID) {}

UrlPath::UrlPath(const Poco::URI& url): uri(url), characteristic(INVALID)
{
    classify();
}

UrlPath::UrlPath(const std::string& url): characteristic(INVALID)
{
    try
    {
        uri = url;
        classify();
    }
    catch (const Poco::Exception&) // no URL
    {
        uri.clear();
    }
}

void UrlPath::classify()
{
    if (uri.empty())
        return;
    for (const QueryPair& pair: splitQuery(uri.getRawQuery()))
        queryParameter.emplace(pair.key, pair.value);
    const std::vector<std::string> segments = pathSegments(uri);
    std::string* const names[] = {&service, &resource, &element};
    characteristic = ROOT;
    for (std::size_t i = 0; i < segments.size() && i < std::size(names); ++i)
    {
        *names[i] = segments[i];
        // A keyword ends a URL, so whatever follows one is invalid.
        const bool afterName = i == 0 || characteristic == LEVELS[i - 1].name;
        characteristic = afterName ? classifyLast(LEVELS[i], segments[i]) : INVALID;
    }
    if (segments.size() > std::size(names))
        characteristic = INVALID;
}

bool UrlPath::isReservedKeyword(Characteristic characteristic)
{
    switch (characteristic)
    {
    case ROOT_ID:
    case SERVICE_ID:
    case SERVICE_SPEC:
    case SERVICE_RIGHTS:
    case SERVICE_RESOURCE_ID:
    case SERVICE_RESOURCE_SPEC:
        return true;
    default:
        return false;
    }
}

std::vector<std::string> UrlPath::getQueryParameters(const std::string& key) const
{
    std::vector<std::string> values;
    const auto range = queryParameter.equal_range(key);
    for (auto it = range.first; it != range.second; ++it)
        values.push_back(it->second);
    return values;
}

UrlPath::QueryParameters UrlPath::getQueryParameters() const
{
    QueryParameters pairs;
    for (const QueryPair& pair: splitQuery(uri.getRawQuery()))
        pairs.emplace_back(pair.key, pair.value);
    return pairs;
}

int UrlPath::compare(const UrlPath& other) const
{
    if (isValid() != other.isValid())
        return isValid() ? 1 : -1;
    if (const int order = service.compare(other.service))
        return order;
    if (const int order = resource.compare(other.resource))
        return order;
    if (const int order = element.compare(other.element))
        return order;
    if (isValid())
        return 0;
    // Only an invalid URL has segments beyond these three.
    const std::vector<std::string> mine = pathSegments(uri);
    const std::vector<std::string> others = pathSegments(other.uri);
    return mine == others ? 0 : mine < others ? -1 : 1;
}

int UrlPath::getCharacteristicLevel(Characteristic characteristic)
{
    switch (characteristic)
    {
    case ROOT:
        return 1;
    case SERVICE:
        return 2;
    case SERVICE_RESOURCE:
        return 3;
    case SERVICE_RESOURCE_ELEMENT:
        return 4;
    default:
        return 0;
    }
}

int UrlPath::compareCharacteristic(Characteristic a, Characteristic b)
{
    const int levelA = getCharacteristicLevel(a);
    const int levelB = getCharacteristicLevel(b);
    return levelA == 0 || levelB == 0 ? NO_DISTANCE : levelB - levelA;
}

} // namespace Kesa::Command
