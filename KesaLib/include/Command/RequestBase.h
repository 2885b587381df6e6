#pragma once

#include "Query/RenderCriterion.h"
#include "Query/SearchCriterion.h"
#include "UrlPath.h"

#include <Poco/SharedPtr.h>

#include <map>
#include <string>
#include <typeinfo>
#include <vector>

namespace Kesa::Command
{

/// A URL with the criteria of its query.
///
/// A parameter that cannot be read is kept with isValid() false: the `has...` questions count it, matching skips it.
///
/// Ownership: copies share the criteria, which nobody changes after construction.
/// Threads:   one object may be read by many threads at once.
class KESA_API RequestBase
{
public:
    typedef std::map<std::string, std::vector<Poco::SharedPtr<RenderCriterion>>> RenderCriteriaMap;
    typedef std::map<std::string, std::vector<Poco::SharedPtr<SearchCriterion>>> SearchCriteriaMap;

    RequestBase(const RequestBase& other);
    RequestBase(RequestBase&& other) noexcept;
    /// Parses the query into criteria. Never raises for a bad query.
    explicit RequestBase(const Poco::URI& url);
    /// A request without criteria, whatever the query of `urlPath`.
    explicit RequestBase(const UrlPath& urlPath);
    virtual ~RequestBase();
    RequestBase& operator=(const RequestBase& other);
    RequestBase& operator=(RequestBase&& other) noexcept;

    const Poco::URI& getUri() const { return m_urlPath.getUri(); }
    const UrlPath& getUrlPath() const { return m_urlPath; }

    /// Whether at least one criterion of the kind exists, readable or not.
    bool hasAnyCriteria() const { return hasRenderCriteria() || hasSearchCriteria(); }
    bool hasRenderCriteria() const { return !renderCriteria.empty(); }
    bool hasFieldsCriteria() const;
    bool hasSortbyCriteria() const;
    bool hasPagingCriteria() const;
    bool hasExpandCriteria() const;
    /// Whether an expansion names properties.
    bool hasPropertyExpandCriteria() const;
    bool hasSearchCriteria() const { return !searchCriteria.empty(); }
    bool hasFreetextCriteria() const;
    bool hasAttributeCriteria() const;
    /// False if a criterion could not be read, or if a key that begins with "$" stands twice in the query.
    bool areCriteriaValid() const;

    /// The level asked for by the expansion, 0 without one.
    unsigned int getExpansionLevel() const;
    /// Appends the properties that expansions name to `properties`. False if there are none.
    bool getExpansionProperties(std::vector<std::string>& properties) const;

    /// Appends the criteria of class `T` to `criteria`; one that is of another class as a null pointer.
    template <class T>
    void extractSearchCriteria(std::vector<Poco::SharedPtr<T>>& criteria) const
    {
        extractCriteria<T, SearchCriterion>(searchCriteria, criteria);
    }
    template <class T>
    void extractRenderCriteria(std::vector<Poco::SharedPtr<T>>& criteria) const
    {
        extractCriteria<T, RenderCriterion>(renderCriteria, criteria);
    }

    /// The key under which both maps keep the criteria of class `T`: its run-time type name without a leading "*".
    template <class T>
    static const std::string& criteriaKey()
    {
        static const std::string key(typeid(T).name() + (*typeid(T).name() == '*' ? 1 : 0));
        return key;
    }

protected:
    RequestBase();
    /// A text that is no URL gives an invalid path without criteria.
    explicit RequestBase(const std::string& url);
    /// Replaces path and criteria by those of `url`.
    void initializeFromUri(const Poco::URI& url);

    UrlPath m_urlPath;

public:
    /// Criteria that shape the answer: fields, sorting, paging, expansion.
    RenderCriteriaMap renderCriteria;
    /// Criteria that select by content: free text and attribute values.
    SearchCriteriaMap searchCriteria;

private:
    template <class T, class Base>
    static void extractCriteria(const std::map<std::string, std::vector<Poco::SharedPtr<Base>>>& from,
                                std::vector<Poco::SharedPtr<T>>& criteria)
    {
        const auto found = from.find(criteriaKey<T>());
        if (found == from.end())
            return;
        for (const auto& criterion: found->second)
            criteria.push_back(criterion.template cast<T>());
    }
    template <class T>
    void addRenderCriterion(Poco::SharedPtr<T> criterion, bool readable);
    template <class T>
    void addSearchCriterion(Poco::SharedPtr<T> criterion, bool readable);
    bool parseRenderCriterion(const std::string& key, const std::string& value, bool readable);
    void parseSearchCriterion(const std::string& key, const std::string& value, bool readable);
    void parseQuery();
};

} // namespace Kesa::Command
