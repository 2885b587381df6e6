#include "ListQuery.h"

#include "JsonWriter.h"
#include "SortValue.h"

#include "Command/Query/AnyValueSearch.h"
#include "Command/Query/AttributeValueSearch.h"
#include "Command/Query/Paging.h"
#include "Command/Query/QueryFilterJSON.h"
#include "Command/RequestBase.h"

#include <algorithm>
#include <iterator>

namespace Kesa::Host
{

using Command::AttributeValueSearch;
using Command::Paging;
using Command::QueryFilterJSON;
using Command::RequestBase;
using Command::SortParameter;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace
{

/// The first criterion of a kind that can be used, null if there is none.
template <class T>
Poco::SharedPtr<T> criterion(const RequestBase& request)
{
    std::vector<Poco::SharedPtr<T>> criteria;
    request.extractRenderCriteria(criteria);
    return criteria.empty() || !criteria.front()->isValid() ? Poco::SharedPtr<T>() : criteria.front();
}

/// A row with what its place depends on.
struct SortedRow
{
    DataRow row;
    std::vector<SortValue> values; ///< one for each key
};

/// The place of the page's first row; behind the last row if there is none.
std::size_t firstPlace(const std::vector<DataRow>& rows, const Paging& paging)
{
    if (paging.getType() != Paging::TYPE_UUID)
        return std::min(static_cast<std::size_t>(paging.getNumberOffset()), rows.size());
    const auto isFirst = [&paging](const DataRow& row)
    { return Command::scalarText(row.json()->get("id")) == paging.getUUIDOffset(); };
    return static_cast<std::size_t>(std::find_if(rows.begin(), rows.end(), isFirst) - rows.begin());
}

/// What paging looks at: as many entries as there are rows, all of them empty, but for the ids of the first row on this
/// page and on its neighbours where pages begin at an id.
Array::Ptr outline(const std::vector<DataRow>& rows, const Paging& paging, std::size_t first)
{
    Array::Ptr outline = new Array;
    if (!rows.empty())
        outline->set(static_cast<unsigned>(rows.size()) - 1, Poco::Dynamic::Var()); // those before it too
    if (paging.getType() != Paging::TYPE_UUID)
        return outline;
    const auto limit = static_cast<std::size_t>(paging.getLimit());
    for (const std::size_t place: {first, first > limit ? first - limit : 0, first + limit})
    {
        if (place >= rows.size())
            continue;
        Object::Ptr entry = new Object;
        entry->set("id", rows[place].json()->get("id"));
        outline->set(static_cast<unsigned>(place), entry);
    }
    return outline;
}

} // namespace

ListQuery::ListQuery(const RequestBase& request): m_request(request), m_paging(criterion<Paging>(request))
{
    request.extractSearchCriteria(m_texts);
    request.extractSearchCriteria(m_attributes);
    if (const auto order = criterion<SortParameter>(request))
        m_order = order->getKeys();
}

ListQuery::~ListQuery() = default;

Object::Ptr ListQuery::apply(std::vector<DataRow>& rows) const
{
    filter(rows);
    sort(rows);
    if (m_paging)
        return page(rows, *m_paging);
    return rows.size() > Paging::PAGING_LIMIT_MAX ? page(rows, Paging::createDefaultPaging()) : Object::Ptr();
}

bool ListQuery::matches(const DataRow& row) const
{
    const Object& object = *row.json();
    const auto hasMember = [&object](const Poco::SharedPtr<AttributeValueSearch>& search)
    { return !search->isValid() || object.has(search->getName()); };
    return std::all_of(m_attributes.begin(), m_attributes.end(), hasMember) &&
           QueryFilterJSON::findContainedAttributePairs(object, m_attributes) &&
           QueryFilterJSON::findContainedFreetexts(object, m_texts);
}

void ListQuery::filter(std::vector<DataRow>& rows) const
{
    if (m_texts.empty() && m_attributes.empty())
        return;
    const auto fails = [this](const DataRow& row) { return !matches(row); };
    rows.erase(std::remove_if(rows.begin(), rows.end(), fails), rows.end());
}

void ListQuery::sort(std::vector<DataRow>& rows) const
{
    if (m_order.empty())
        return;
    std::vector<SortedRow> sorted;
    sorted.reserve(rows.size());
    for (DataRow& row: rows)
    {
        std::vector<SortValue> values;
        for (const SortParameter::Key& key: m_order)
            values.emplace_back(row.json()->get(key.name), key.descending);
        sorted.push_back({std::move(row), std::move(values)});
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const SortedRow& a, const SortedRow& b) { return a.values < b.values; });
    std::transform(sorted.begin(), sorted.end(), rows.begin(), [](SortedRow& row) { return std::move(row.row); });
}

Object::Ptr ListQuery::page(std::vector<DataRow>& rows, const Paging& paging) const
{
    const std::size_t first = firstPlace(rows, paging);
    const Array::Ptr whole = outline(rows, paging, first);
    const auto begin = rows.begin() + static_cast<std::ptrdiff_t>(first);
    const auto end = begin + static_cast<std::ptrdiff_t>(paging.applyArrayPaging(whole)->size());
    std::vector<DataRow> kept(std::make_move_iterator(begin), std::make_move_iterator(end));
    rows.swap(kept);
    return paging.createPagingInfo(*whole, m_request.getUri());
}

} // namespace Kesa::Host
