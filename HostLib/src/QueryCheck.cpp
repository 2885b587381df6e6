#include "QueryCheck.h"

#include "QueryText.h"
#include "Utf8.h"

#include "Command/RequestBase.h"
#include "Command/WebSocketResponseObject.h"

#include <set>

namespace Kesa::Host
{

using Command::QueryPair;
using Command::RequestBase;
using Command::UrlPath;

namespace
{

constexpr unsigned int MAX_EXPANSION = 3; ///< levels, of an element; lists are not expanded by level

bool isSystemKey(const std::string& key)
{
    return !key.empty() && key.front() == '$';
}

/// What is wrong with one parameter by itself, empty if nothing is.
std::string problemOf(const QueryPair& pair)
{
    static const std::set<std::string> known = {UrlPath::QUERY_FIELDS,        UrlPath::QUERY_SORTBY,
                                                UrlPath::QUERY_EXPAND,        UrlPath::QUERY_FREETEXT_SEARCH,
                                                UrlPath::QUERY_PAGING_OFFSET, UrlPath::QUERY_PAGING_LIMIT};
    const std::string key = "\"" + Command::excerpt(pair.key) + "\"";
    if (pair.key == "$" && pair.raw.empty())
        return "The query has more than " + std::to_string(Command::MAX_PARAMETERS) + " parameters.";
    if (!pair.readable)
        return "The parameter " + key + " is no percent-encoded UTF-8.";
    if (isSystemKey(pair.key) && known.count(pair.key) == 0)
        return "There is no parameter " + key + "; there are $fields, $sortby, $q, $offset, $limit and $expand.";
    if (RequestBase(Poco::URI("/?" + pair.raw)).areCriteriaValid())
        return {};
    return "The parameter " + key + " cannot have the value \"" + Command::excerpt(pair.value) + "\".";
}

std::string describeProblem(const RequestBase& request)
{
    std::set<std::string> seen;
    for (const QueryPair& pair: Command::splitQuery(request.getUri().getRawQuery()))
    {
        const std::string problem = problemOf(pair);
        if (!problem.empty())
            return problem;
        if (!seen.insert(pair.key).second && isSystemKey(pair.key))
            return "The parameter \"" + pair.key + "\" stands twice in the query.";
    }
    return "A parameter of the query cannot be read.";
}

bool isExpansionTooDeep(const RequestBase& request)
{
    const unsigned int level = request.getExpansionLevel();
    const bool isElement = request.getUrlPath().getCharacteristic() == UrlPath::SERVICE_RESOURCE_ELEMENT;
    return level > 0 && (!isElement || level > MAX_EXPANSION);
}

} // namespace

QueryVerdict checkQuery(const RequestBase& request)
{
    using Command::WebSocketResponseObject;
    if (!request.hasAnyCriteria())
        return {};
    if (!request.areCriteriaValid())
        return {400, describeProblem(request)};
    if (!isExpansionTooDeep(request))
        return {};
    WebSocketResponseObject standard; // the words of the refusal on a websocket
    standard.setError(WebSocketResponseObject::invalideSubscriptionExpansionLevel, "");
    return {standard.getObject()->getValue<int>(WebSocketResponseObject::FIELD_ERROR_CODE), standard.getMessage()};
}

} // namespace Kesa::Host
