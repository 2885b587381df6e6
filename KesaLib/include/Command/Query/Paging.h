#pragma once

#include "RenderCriterion.h"

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/Types.h>

#include <string>

namespace Poco
{
class URI;
}

namespace Kesa::Command
{

/// The page of a list that a request asks for: "$offset=100&$limit=50".
///
/// The offset is a number or else the id of the first element; without an offset a limit counts from the start; without
/// a limit the default one holds.
class KESA_API Paging: public RenderCriterion
{
public:
    enum PagingType
    {
        TYPE_TOTAL = 0,
        TYPE_UUID = 1,
        TYPE_INDEX = 2
    };
    enum PagingRequestType
    {
        NONE = 0,
        OFFSET_LIMIT = 1,
        OFFSET = 2,
        LIMIT = 3,
        FORCED = 4
    };

    static constexpr Poco::UInt16 PAGING_LIMIT_DEFAULT = 50;
    static constexpr Poco::UInt16 PAGING_LIMIT_MAX = 500;

    /// From the texts of the query; an empty one was not given. A negative offset, and a limit that is no number from 1
    /// up, make the paging invalid; a limit above the maximum is the maximum.
    Paging(const std::string& offset, const std::string& limit);
    Paging(int offset, int limit);
    Paging(const Paging& other);
    ~Paging() override;
    Paging& operator=(const Paging& other);

    /// The paging that a server forces upon a list for which none was asked: the first PAGING_LIMIT_MAX elements.
    static Paging createDefaultPaging();

    PagingType getType() const { return m_type; }
    PagingRequestType getPagingRequestType() const { return m_pagingRequestType; }
    /// The id of the first element, empty unless the type is TYPE_UUID.
    const std::string& getUUIDOffset() const { return m_uuidOffset; }
    /// The index of the first element, 0 unless the type is TYPE_INDEX.
    int getNumberOffset() const { return m_numberOffset; }
    /// From 1 to PAGING_LIMIT_MAX.
    int getLimit() const { return m_limit; }

    /// The elements of `whole` that stand on this page; elements are shared, none for an offset behind the end or an
    /// unknown id. `whole` itself for TYPE_TOTAL. Must not be null.
    Poco::JSON::Array::Ptr applyArrayPaging(const Poco::JSON::Array::Ptr& whole) const;
    /// The paging block that goes with this page of `whole`: offset, limit, total, number of pages, and where there are
    /// such pages the URLs of the previous and the next one, made from `request`.
    Poco::JSON::Object::Ptr createPagingInfo(const Poco::JSON::Array& whole, const Poco::URI& request) const;

private:
    void readOffset(const std::string& offset);
    void readLimit(const std::string& limit);
    void updatePagingRequestType(bool hasOffset, bool hasLimit);
    std::size_t firstIndex(const Poco::JSON::Array& whole) const;
    std::string pageUrl(const Poco::JSON::Array& whole, std::size_t index, const Poco::URI& request) const;

    std::string m_uuidOffset;
    int m_numberOffset;
    int m_limit;
    PagingType m_type;
    PagingRequestType m_pagingRequestType;
};

} // namespace Kesa::Command
