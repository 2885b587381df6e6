#include "DataAnswer.h"

#include "JsonWriter.h"
#include "ListQuery.h"

#include "Command/Query/FilterParameter.h"
#include "Command/RequestBase.h"
#include "Command/ResponseObject.h"

#include <algorithm>
#include <set>

namespace Kesa::Host
{

using Command::FilterParameter;
using Command::RequestBase;
using Poco::JSON::Array;
using Poco::JSON::Object;

DataAnswer DataAnswer::refusal(int code, const std::string& message)
{
    DataAnswer answer;
    answer.m_code = code;
    answer.m_message = message;
    return answer;
}

DataAnswer DataAnswer::element(const DataRow& row, const RequestBase& request)
{
    DataAnswer answer;
    answer.m_rows.push_back(row);
    answer.select(request);
    return answer;
}

DataAnswer DataAnswer::list(std::vector<DataRow> rows, const RequestBase& request)
{
    DataAnswer answer;
    answer.m_isList = true;
    answer.m_paging = ListQuery(request).apply(rows);
    answer.m_rows = std::move(rows);
    answer.select(request);
    return answer;
}

void DataAnswer::select(const RequestBase& request)
{
    std::vector<Poco::SharedPtr<FilterParameter>> criteria;
    request.extractRenderCriteria(criteria);
    if (criteria.empty() || !criteria.front()->isValid())
        return;
    m_selects = true;
    std::set<std::string> names = {"id", "uri"}; // without them nobody could tell what the object is
    for (const auto& field: criteria.front()->getFields())
        names.insert(field.getName());
    for (const std::string& name: names)
    {
        std::string prefix;
        Command::appendJsonString(prefix, name);
        m_fields.push_back({name, prefix + ':'});
    }
}

/// Calls `action` with the field and the value of each selected member. Both the object's members and the fields come
/// in the order of their names.
template <class Action>
void DataAnswer::forEachSelected(const Object& object, Action action) const
{
    const auto isBefore = [](const Field& field, const std::string& name) { return field.name < name; };
    auto field = m_fields.begin();
    for (const auto& [name, value]: object)
    {
        field = std::lower_bound(field, m_fields.end(), name, isBefore);
        if (field == m_fields.end())
            return;
        if (field->name == name)
            action(*field, value);
    }
}

Object::Ptr DataAnswer::selected(const DataRow& row) const
{
    if (!m_selects)
        return row.json();
    Object::Ptr object = new Object;
    forEachSelected(*row.json(),
                    [&object](const Field& field, const Poco::Dynamic::Var& value) { object->set(field.name, value); });
    return object;
}

void DataAnswer::fill(Command::ResponseObject& response) const
{
    if (isRefused())
        return response.setErrorStatus(m_code, m_message);
    if (!m_isList)
        return response.setData(selected(m_rows.front()));
    Array::Ptr list = new Array;
    for (const DataRow& row: m_rows)
        list->add(selected(row));
    response.setData(list);
    response.setPaging(m_paging);
}

void DataAnswer::appendRow(std::string& out, const DataRow& row) const
{
    if (!m_selects)
        return row.appendText(out);
    char separator = '{';
    forEachSelected(*row.json(),
                    [&](const Field& field, const Poco::Dynamic::Var& value)
                    {
                        out += separator;
                        separator = ',';
                        out += field.prefix;
                        Command::appendJson(out, value);
                    });
    out += separator == '{' ? "{}" : "}";
}

std::string DataAnswer::toJsonString() const
{
    constexpr std::size_t USUAL_ROW = 256; // bytes; only a guess that saves moving the text
    std::string text;
    text.reserve((m_rows.size() + 1) * USUAL_ROW);
    text += m_isList ? "{\"data\":[" : "{\"data\":";
    for (std::size_t i = 0; i < m_rows.size(); ++i)
    {
        if (i > 0)
            text += ',';
        appendRow(text, m_rows[i]);
    }
    if (m_isList)
        text += ']';
    if (!m_paging.isNull())
    {
        text += ",\"paging\":";
        Command::appendJson(text, m_paging);
    }
    return text += ",\"status\":\"ok\"}";
}

} // namespace Kesa::Host
