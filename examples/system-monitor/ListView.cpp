#include "ListView.h"

#include <Command/Query/AnyValueSearch.h>
#include <Command/Query/AttributeValueSearch.h>
#include <Command/Query/FilterParameter.h>
#include <Command/Query/Paging.h>
#include <Command/Query/QueryFilterJSON.h>
#include <Command/Query/SortParameter.h>
#include <Command/RequestBase.h>
#include <Command/ResponseObject.h>

#include <algorithm>
#include <vector>

namespace SystemMonitor
{
namespace
{

using Kesa::Command::AnyValueSearch;
using Kesa::Command::AttributeValueSearch;
using Kesa::Command::FilterParameter;
using Kesa::Command::Paging;
using Kesa::Command::QueryFilterJSON;
using Kesa::Command::RequestBase;
using Kesa::Command::SortParameter;
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

typedef std::vector<Object::Ptr> List;

/// The first criterion of a kind, null if the request has none.
template <class T>
Poco::SharedPtr<T> criterion(const RequestBase& request)
{
    std::vector<Poco::SharedPtr<T>> criteria;
    request.extractRenderCriteria(criteria);
    return criteria.empty() ? Poco::SharedPtr<T>() : criteria.front();
}

List search(const Array& elements, const RequestBase& request)
{
    std::vector<Poco::SharedPtr<AnyValueSearch>> texts;
    std::vector<Poco::SharedPtr<AttributeValueSearch>> attributes;
    request.extractSearchCriteria(texts);
    request.extractSearchCriteria(attributes);
    List found;
    for (const Var& value: elements)
    {
        const auto element = value.extract<Object::Ptr>();
        if (QueryFilterJSON::findContainedFreetexts(*element, texts) &&
            QueryFilterJSON::findContainedAttributePairs(*element, attributes))
            found.push_back(element);
    }
    return found;
}

/// Numbers stand before texts, and what is missing stands last.
bool isBefore(const Var& a, const Var& b)
{
    const auto rank = [](const Var& value) { return value.isEmpty() ? 2 : value.isNumeric() ? 0 : 1; };
    if (rank(a) != rank(b) || rank(a) == 2)
        return rank(a) < rank(b);
    return rank(a) == 0 ? a.convert<double>() < b.convert<double>() : a.toString() < b.toString();
}

void sort(List& elements, const std::vector<SortParameter::Key>& keys)
{
    // The least significant key first: a stable sort leaves its order where the later ones are equal.
    for (auto key = keys.rbegin(); key != keys.rend(); ++key)
        std::stable_sort(elements.begin(), elements.end(),
                         [&](const Object::Ptr& a, const Object::Ptr& b)
                         {
                             const Var left = a->get(key->name);
                             const Var right = b->get(key->name);
                             const bool isRising = !key->descending || left.isEmpty() || right.isEmpty();
                             return isRising ? isBefore(left, right) : isBefore(right, left);
                         });
}

Object::Ptr select(const Object::Ptr& element, const Poco::SharedPtr<FilterParameter>& fields)
{
    if (!fields || !fields->isValid())
        return element;
    Object::Ptr selected = new Object;
    for (const auto& [name, value]: *element)
        if (name == "id" || name == "uri" || fields->contains(name)) // an element without them could not be told
            selected->set(name, value);
    return selected;
}

} // namespace

void answerList(const Array::Ptr& elements, const RequestBase& request, Kesa::Command::ResponseObject& response)
{
    List found = search(*elements, request);
    if (const auto order = criterion<SortParameter>(request))
        sort(found, order->getKeys());
    const auto fields = criterion<FilterParameter>(request);
    Array::Ptr list = new Array;
    for (const Object::Ptr& element: found)
        list->add(select(element, fields));

    const auto asked = criterion<Paging>(request);
    if (asked || list->size() > Paging::PAGING_LIMIT_MAX)
    {
        const Paging paging = asked ? *asked : Paging::createDefaultPaging();
        response.setPaging(paging.createPagingInfo(*list, request.getUri()));
        list = paging.applyArrayPaging(list);
    }
    response.setData(list);
}

void answerElement(const Object::Ptr& element, const RequestBase& request, Kesa::Command::ResponseObject& response)
{
    response.setData(select(element, criterion<FilterParameter>(request)));
}

} // namespace SystemMonitor
