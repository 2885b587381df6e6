#pragma once

#include <Export.h>

#include <Poco/URI.h>

#include <map>
#include <string>
#include <vector>

namespace Kesa::Command
{

/// A URL of the form service, resource, element, taken apart, with what it addresses.
///
/// Segments are decoded, empty ones are dropped, so a trailing slash means nothing. A text or URL that cannot be
/// classified gives `INVALID`; nothing here raises an exception for a bad URL.
///
/// Threads: a value; different objects are independent, and one object may be read by many threads.
class KESA_API UrlPath
{
public:
    /// What a URL addresses. An object and an element are one and the same level.
    enum Characteristic : int
    {
        INVALID = 0,
        ROOT = 1,
        ROOT_ID = 2,
        SERVICE = 3,
        SERVICE_ID = 4,
        SERVICE_SPEC = 5,
        SERVICE_RIGHTS = 6,
        SERVICE_RESOURCE = 7,
        SERVICE_RESOURCE_ID = 8,
        SERVICE_RESOURCE_SPEC = 9,
        SERVICE_RESOURCE_OBJECT = 0x0FFFFFFF,
        SERVICE_RESOURCE_ELEMENT = 0x0FFFFFFF
    };

    /// The query as a multimap from key to value.
    typedef std::multimap<std::string, std::string> QueryParameterMap;
    /// The query as pairs in the order of the URL.
    typedef Poco::URI::QueryParameters QueryParameters;

    static const std::string URI_ROOT;
    static const std::string URI_ROOT_API;
    /// Segments that are keywords and no names.
    static const std::string RESERVED_KEY_ID;
    static const std::string RESERVED_KEY_SPEC;
    static const std::string RESERVED_KEY_RIGHTS;
    /// The wildcard in a search value, plain and in its encoded form.
    static const std::string QUERY_WILDCARD;
    static const std::string QUERY_WILDCARD_HTML;
    static const std::string QUERY_FREETEXT_SEARCH;
    static const std::string QUERY_FIELDS;
    static const std::string QUERY_SORTBY;
    static const std::string QUERY_PAGING_OFFSET;
    static const std::string QUERY_PAGING_LIMIT;
    static const std::string QUERY_EXPAND;

    /// What compareCharacteristic gives where the two levels have no distance.
    static constexpr int NO_DISTANCE = -1000;

    /// An invalid URL.
    UrlPath();
    explicit UrlPath(const Poco::URI& url);
    /// A text that is no URL, or is empty, gives an invalid URL.
    explicit UrlPath(const std::string& url);

    /// The segments; empty when the URL has none. Of a URL with more than three, the first three.
    const std::string& getService() const { return service; }
    const std::string& getResource() const { return resource; }
    const std::string& getElement() const { return element; }
    Characteristic getCharacteristic() const { return characteristic; }
    /// The whole URL, with path, query and fragment.
    const Poco::URI& getUri() const { return uri; }
    bool isValid() const { return characteristic != INVALID; }
    void setCharacteristicInvalid() { characteristic = INVALID; }

    bool isServiceEqual(const std::string& other) const { return service == other; }
    bool isResourceEqual(const std::string& other) const { return resource == other; }
    bool isElementEqual(const std::string& other) const { return element == other; }
    /// True if the last segment is a keyword that stands where it may.
    bool isReservedKeyword() const { return isReservedKeyword(characteristic); }
    static bool isReservedKeyword(Characteristic characteristic);

    bool hasQueryParameter(const std::string& key) const { return queryParameter.count(key) != 0; }
    /// All values of `key`, in the order of the URL.
    std::vector<std::string> getQueryParameters(const std::string& key) const;
    /// All pairs in the order of the URL. A key or value with bad percent-encoding stands as it was written.
    QueryParameters getQueryParameters() const;

    /// Validity first, then the path segments alone decide; query and fragment take no part.
    bool operator==(const UrlPath& other) const { return compare(other) == 0; }
    bool operator!=(const UrlPath& other) const { return compare(other) != 0; }
    bool operator<(const UrlPath& other) const { return compare(other) < 0; }

    /// Depth on the ladder: ROOT 1, SERVICE 2, SERVICE_RESOURCE 3, SERVICE_RESOURCE_ELEMENT 4; 0 for whatever is no
    /// step of it.
    static int getCharacteristicLevel(Characteristic characteristic);
    /// How many steps of the ladder `a` stands above `b`: 0 at the same level, 1 directly above, negative below;
    /// `NO_DISTANCE` if one of them is no step of the ladder.
    static int compareCharacteristic(Characteristic a, Characteristic b);

private:
    void classify();
    int compare(const UrlPath& other) const;

    Poco::URI uri;
    std::string service;
    std::string resource;
    std::string element;
    Characteristic characteristic;
    QueryParameterMap queryParameter;
};

} // namespace Kesa::Command
