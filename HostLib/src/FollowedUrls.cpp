#include "FollowedUrls.h"

#include "Command/RequestBase.h"

namespace Kesa::Host
{

using Command::RequestBase;
using Command::UrlPath;
using Util::ScopedLock;

namespace
{

std::string listOf(const UrlPath& url)
{
    return url.getService() + "/" + url.getResource();
}

std::string elementOf(const UrlPath& url)
{
    return listOf(url) + "/" + url.getElement();
}

} // namespace

void FollowedUrls::add(Urls& urls, const std::string& url)
{
    if (urls.size() < MAX_URLS)
        urls.insert(url);
}

bool FollowedUrls::holds(const Urls& urls, const std::string& url)
{
    return urls.size() >= MAX_URLS || urls.count(url) != 0;
}

void FollowedUrls::subscribing(const RequestBase& request)
{
    const bool isList = request.getUrlPath().getCharacteristic() == UrlPath::SERVICE_RESOURCE;
    const bool isSelective = request.hasSortbyCriteria() || request.hasSearchCriteria();
    if (!isList || !(request.hasFreetextCriteria() || (request.hasFieldsCriteria() && isSelective)))
        return;
    ScopedLock lock(m_mutex);
    add(m_lists, listOf(request.getUrlPath()));
}

bool FollowedUrls::hasDependentList(const UrlPath& element) const
{
    ScopedLock lock(m_mutex);
    return holds(m_lists, listOf(element));
}

void FollowedUrls::missing(const UrlPath& element)
{
    ScopedLock lock(m_mutex);
    add(m_missing, elementOf(element));
}

bool FollowedUrls::isAwaited(const UrlPath& element)
{
    ScopedLock lock(m_mutex);
    if (!holds(m_missing, elementOf(element)))
        return false;
    if (m_missing.size() < MAX_URLS)
        m_missing.erase(elementOf(element));
    return true;
}

} // namespace Kesa::Host
