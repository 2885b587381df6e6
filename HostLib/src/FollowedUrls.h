#pragma once

#include "Export.h"
#include "Mutex.h"

#include <set>
#include <string>

namespace Kesa::Command
{
class RequestBase;
class UrlPath;
} // namespace Kesa::Command

namespace Kesa::Host
{

/// What a reported change alone does not tell the subscriptions, kept by URL: which lists may look different although
/// the members of a change do not concern their query, and which elements went while somebody followed them.
///
/// Entries of subscriptions that have ended stay: they cost a look at the data and nothing else.
///
/// Threads: every operation from any thread.
class KESA_API FollowedUrls
{
public:
    static constexpr std::size_t MAX_URLS = 4096; ///< of a kind; when there are more, every URL counts as one of them

    /// To be called before a subscription is added.
    void subscribing(const Command::RequestBase& request) KESA_EXCLUDES(m_mutex);
    /// True if an update of the element may change a followed list in a way that its members do not show: the list is
    /// searched for a text that stands in another member, or it is ordered by a member that it does not show.
    bool hasDependentList(const Command::UrlPath& element) const KESA_EXCLUDES(m_mutex);

    /// To be called when a follower asks for an element that is not there, before the last look for it.
    void missing(const Command::UrlPath& element) KESA_EXCLUDES(m_mutex);
    /// True if a follower may have been told that the element is not there; asked after it was stored.
    bool isAwaited(const Command::UrlPath& element) KESA_EXCLUDES(m_mutex);

private:
    typedef std::set<std::string> Urls;

    static void add(Urls& urls, const std::string& url);
    static bool holds(const Urls& urls, const std::string& url);

    /// Guards both sets; nothing else is taken under it.
    mutable Util::FastMutex m_mutex;
    Urls m_lists KESA_GUARDED_BY(m_mutex);
    Urls m_missing KESA_GUARDED_BY(m_mutex);
};

} // namespace Kesa::Host
