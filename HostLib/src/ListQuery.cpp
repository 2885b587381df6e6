#include "ListQuery.h"

#include "SortValue.h"

#include "Command/Query/AnyValueSearch.h"
#include "Command/Query/AttributeValueSearch.h"
#include "Command/Query/Paging.h"
#include "Command/Query/QueryFilterJSON.h"
#include "Command/RequestBase.h"

#include <algorithm>

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

/// What paging looks at: as many entries as there are rows, each with its place, and with its id where the page begins
/// at one.
Array::Ptr outline(const std::vector<DataRow>& rows, bool withIds)
{
    Array::Ptr places = new Array;
    for (std::size_t i = 0; i < rows.size(); ++i)
    {
        if (!withIds)
        {
            places->add(i);
            continue;
        }
        Object::Ptr entry = new Object;
        entry->set("id", rows[i].json()->get("id"));
        entry->set("place", i);
        places->add(entry);
    }
    return places;
}

std::size_t placeOf(const Poco::Dynamic::Var& entry, bool withIds)
{
    return withIds ? entry.extract<Object::Ptr>()->getValue<std::size_t>("place") : entry.convert<std::size_t>();
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
    const bool withIds = paging.getType() == Paging::TYPE_UUID;
    const Array::Ptr whole = outline(rows, withIds);
    const Object::Ptr block = paging.createPagingInfo(*whole, m_request.getUri());
    const Array::Ptr cut = paging.applyArrayPaging(whole);
    std::vector<DataRow> kept;
    kept.reserve(cut->size());
    for (const auto& entry: *cut)
        kept.push_back(std::move(rows[placeOf(entry, withIds)]));
    rows.swap(kept);
    return block;
}

} // namespace Kesa::Host
