#include "Command/RequestBase.h"

#include "QueryText.h"

#include "Command/Query/AnyValueSearch.h"
#include "Command/Query/AttributeValueSearch.h"
#include "Command/Query/ExpandParameter.h"
#include "Command/Query/FilterParameter.h"
#include "Command/Query/Paging.h"
#include "Command/Query/SortParameter.h"

#include <algorithm>

namespace Kesa::Command
{

namespace
{
template <class Map>
bool allValid(const Map& criteria)
{
    return std::all_of(criteria.begin(), criteria.end(),
                       [](const auto& entry)
                       {
                           return std::all_of(entry.second.begin(), entry.second.end(),
                                              [](const auto& criterion) { return criterion->isValid(); });
                       });
}

bool isSystemKey(const std::string& key)
{
    return !key.empty() && key.front() == '$';
}
} // namespace

RequestBase::RequestBase() = default;
RequestBase::RequestBase(const RequestBase& other) = default;
RequestBase::RequestBase(RequestBase&& other) noexcept = default;
RequestBase::RequestBase(const Poco::URI& url): m_urlPath(url)
{
    parseQuery();
}
RequestBase::RequestBase(const UrlPath& urlPath): m_urlPath(urlPath) {}
RequestBase::RequestBase(const std::string& url): m_urlPath(url)
{
    parseQuery();
}
RequestBase::~RequestBase() = default;
RequestBase& RequestBase::operator=(const RequestBase& other) = default;
RequestBase& RequestBase::operator=(RequestBase&& other) noexcept = default;

void RequestBase::initializeFromUri(const Poco::URI& url)
{
    m_urlPath = UrlPath(url);
    renderCriteria.clear();
    searchCriteria.clear();
    parseQuery();
}

bool RequestBase::hasFieldsCriteria() const
{
    return renderCriteria.count(criteriaKey<FilterParameter>()) != 0;
}
bool RequestBase::hasSortbyCriteria() const
{
    return renderCriteria.count(criteriaKey<SortParameter>()) != 0;
}
bool RequestBase::hasPagingCriteria() const
{
    return renderCriteria.count(criteriaKey<Paging>()) != 0;
}
bool RequestBase::hasExpandCriteria() const
{
    return renderCriteria.count(criteriaKey<ExpandParameter>()) != 0;
}
bool RequestBase::hasFreetextCriteria() const
{
    return searchCriteria.count(criteriaKey<AnyValueSearch>()) != 0;
}
bool RequestBase::hasAttributeCriteria() const
{
    return searchCriteria.count(criteriaKey<AttributeValueSearch>()) != 0;
}

bool RequestBase::hasPropertyExpandCriteria() const
{
    std::vector<std::string> properties;
    return getExpansionProperties(properties);
}

bool RequestBase::areCriteriaValid() const
{
    for (const QueryPair& pair: splitQuery(getUri().getRawQuery()))
        if (isSystemKey(pair.key) && m_urlPath.getQueryParameters(pair.key).size() > 1)
            return false;
    return allValid(renderCriteria) && allValid(searchCriteria);
}

unsigned int RequestBase::getExpansionLevel() const
{
    std::vector<Poco::SharedPtr<ExpandParameter>> expansions;
    extractRenderCriteria(expansions);
    unsigned int level = 0;
    for (const auto& expansion: expansions)
        level = std::max(level, expansion->getLevel());
    return level;
}

bool RequestBase::getExpansionProperties(std::vector<std::string>& properties) const
{
    std::vector<Poco::SharedPtr<ExpandParameter>> expansions;
    extractRenderCriteria(expansions);
    bool found = false;
    for (const auto& expansion: expansions)
    {
        const std::vector<std::string>& names = expansion->getProperties();
        properties.insert(properties.end(), names.begin(), names.end());
        found = found || !names.empty();
    }
    return found;
}

template <class T>
void RequestBase::addRenderCriterion(Poco::SharedPtr<T> criterion, bool readable)
{
    if (!readable)
        criterion->setInvalid();
    renderCriteria[criteriaKey<T>()].push_back(criterion);
}

template <class T>
void RequestBase::addSearchCriterion(Poco::SharedPtr<T> criterion, bool readable)
{
    if (!readable)
        criterion->setInvalid();
    searchCriteria[criteriaKey<T>()].push_back(criterion);
}

bool RequestBase::parseRenderCriterion(const std::string& key, const std::string& value, bool readable)
{
    if (key == UrlPath::QUERY_FIELDS)
        addRenderCriterion(Poco::makeShared<FilterParameter>(value), readable);
    else if (key == UrlPath::QUERY_SORTBY)
        addRenderCriterion(Poco::makeShared<SortParameter>(value), readable);
    else if (key == UrlPath::QUERY_EXPAND)
        addRenderCriterion(Poco::makeShared<ExpandParameter>(value), readable);
    else if (isSystemKey(key) && key != UrlPath::QUERY_FREETEXT_SEARCH)
        addRenderCriterion(Poco::makeShared<RenderCriterion>(), false); // unknown, so nobody can tell what it asks for
    else
        return false;
    return true;
}

void RequestBase::parseSearchCriterion(const std::string& key, const std::string& value, bool readable)
{
    if (key == UrlPath::QUERY_FREETEXT_SEARCH)
        addSearchCriterion(Poco::makeShared<AnyValueSearch>(value), readable);
    else
        addSearchCriterion(Poco::makeShared<AttributeValueSearch>(key, value), readable);
}

void RequestBase::parseQuery()
{
    std::string offset;
    std::string limit;
    bool hasPaging = false;
    bool pagingReadable = true;
    for (const QueryPair& pair: splitQuery(getUri().getRawQuery()))
    {
        const std::string value = pair.readable ? pair.value : std::string();
        const bool isOffset = pair.key == UrlPath::QUERY_PAGING_OFFSET;
        if (isOffset || pair.key == UrlPath::QUERY_PAGING_LIMIT)
        {
            std::string& given = isOffset ? offset : limit;
            given = given.empty() ? value : given; // the first counts where one is given twice
            hasPaging = true;
            pagingReadable = pagingReadable && !value.empty();
        }
        else if (!parseRenderCriterion(pair.key, value, pair.readable))
            parseSearchCriterion(pair.key, value, pair.readable);
    }
    if (hasPaging)
        addRenderCriterion(Poco::makeShared<Paging>(offset, limit), pagingReadable);
}

} // namespace Kesa::Command
