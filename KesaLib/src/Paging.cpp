#include "Command/Query/Paging.h"

#include "JsonWriter.h"
#include "QueryText.h"

#include "Command/ResponseObject.h"
#include "Command/UrlPath.h"

#include <Poco/URI.h>

#include <algorithm>
#include <limits>

namespace Kesa::Command
{

namespace
{
const std::string KEY_ID = "id";
/// What must not stand as it is in the value of a query parameter.
const std::string RESERVED_IN_QUERY = "?#/:;+@&=%,!'()*$";

/// The id of a list's element as text, empty if it has none.
std::string elementId(const Poco::Dynamic::Var& element)
{
    const Poco::JSON::Object* object = asObject(element);
    return object && object->has(KEY_ID) ? scalarText(object->get(KEY_ID)) : std::string();
}
} // namespace

Paging::Paging(const std::string& offset, const std::string& limit)
    : m_numberOffset(0), m_limit(PAGING_LIMIT_DEFAULT), m_type(TYPE_TOTAL), m_pagingRequestType(NONE)
{
    readOffset(offset);
    readLimit(limit);
    updatePagingRequestType(!offset.empty(), !limit.empty());
}

Paging::Paging(int offset, int limit): Paging(std::to_string(offset), std::to_string(limit)) {}

Paging::Paging(const Paging& other) = default;
Paging::~Paging() = default;
Paging& Paging::operator=(const Paging& other) = default;

Paging Paging::createDefaultPaging()
{
    Paging paging(0, PAGING_LIMIT_MAX);
    paging.m_pagingRequestType = FORCED;
    return paging;
}

void Paging::readOffset(const std::string& offset)
{
    if (offset.empty())
        return;
    const auto number = readNumber(offset, std::numeric_limits<int>::max());
    if (isNegativeNumber(offset))
        m_valid = false;
    else if (!number)
        m_uuidOffset = offset;
    m_numberOffset = static_cast<int>(number.value_or(0));
    m_type = m_uuidOffset.empty() ? TYPE_INDEX : TYPE_UUID;
}

void Paging::readLimit(const std::string& limit)
{
    if (limit.empty())
        return;
    const auto number = readNumber(limit, PAGING_LIMIT_MAX).value_or(0);
    if (number == 0)
        m_valid = false;
    else
        m_limit = static_cast<int>(number);
    if (m_type == TYPE_TOTAL)
        m_type = TYPE_INDEX; // a limit alone counts from the start
}

void Paging::updatePagingRequestType(bool hasOffset, bool hasLimit)
{
    if (hasOffset)
        m_pagingRequestType = hasLimit ? OFFSET_LIMIT : OFFSET;
    else
        m_pagingRequestType = hasLimit ? LIMIT : NONE;
}

std::size_t Paging::firstIndex(const Poco::JSON::Array& whole) const
{
    if (m_type != TYPE_UUID)
        return std::min(static_cast<std::size_t>(m_numberOffset), whole.size());
    const auto found = std::find_if(whole.begin(), whole.end(),
                                    [this](const auto& element) { return elementId(element) == m_uuidOffset; });
    return static_cast<std::size_t>(found - whole.begin());
}

Poco::JSON::Array::Ptr Paging::applyArrayPaging(const Poco::JSON::Array::Ptr& whole) const
{
    if (m_type == TYPE_TOTAL)
        return whole;
    Poco::JSON::Array::Ptr page = new Poco::JSON::Array;
    const std::size_t first = firstIndex(*whole);
    const std::size_t last = std::min(first + static_cast<std::size_t>(m_limit), whole->size());
    std::for_each(whole->begin() + static_cast<std::ptrdiff_t>(first),
                  whole->begin() + static_cast<std::ptrdiff_t>(last),
                  [&page](const auto& element) { page->add(element); });
    return page;
}

Poco::JSON::Object::Ptr Paging::createPagingInfo(const Poco::JSON::Array& whole, const Poco::URI& request) const
{
    Poco::JSON::Object::Ptr info = new Poco::JSON::Object;
    const std::size_t total = whole.size();
    info->set(ResponseObject::FIELD_PAGING_TOTAL, total);
    if (m_type == TYPE_TOTAL)
    {
        info->set(ResponseObject::FIELD_PAGING_TOTAL_PAGES, 1);
        return info;
    }
    const auto limit = static_cast<std::size_t>(m_limit);
    const std::size_t first = firstIndex(whole);
    info->set(ResponseObject::FIELD_PAGING_TOTAL_PAGES, (total + limit - 1) / limit);
    info->set(ResponseObject::FIELD_PAGING_LIMIT, m_limit);
    if (m_type == TYPE_UUID)
        info->set(ResponseObject::FIELD_PAGING_OFFSET_ID, m_uuidOffset);
    else
        info->set(ResponseObject::FIELD_PAGING_OFFSET, m_numberOffset);
    if (first > 0)
        info->set(ResponseObject::FIELD_PAGING_PREVIOUS, pageUrl(whole, first > limit ? first - limit : 0, request));
    if (first + limit < total)
        info->set(ResponseObject::FIELD_PAGING_NEXT, pageUrl(whole, first + limit, request));
    return info;
}

std::string Paging::pageUrl(const Poco::JSON::Array& whole, std::size_t index, const Poco::URI& request) const
{
    std::string query;
    for (const QueryPair& pair: splitQuery(request.getRawQuery()))
        if (pair.key != UrlPath::QUERY_PAGING_OFFSET && pair.key != UrlPath::QUERY_PAGING_LIMIT)
            query += pair.raw + "&";
    std::string offset = std::to_string(index);
    if (m_type == TYPE_UUID)
    {
        offset.clear();
        Poco::URI::encode(elementId(whole.get(static_cast<unsigned int>(index))), RESERVED_IN_QUERY, offset);
    }
    Poco::URI url(request);
    url.setRawQuery(query + UrlPath::QUERY_PAGING_OFFSET + "=" + offset + "&" + UrlPath::QUERY_PAGING_LIMIT + "=" +
                    std::to_string(m_limit));
    return url.getPathAndQuery();
}

} // namespace Kesa::Command
