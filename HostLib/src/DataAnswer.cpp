#include "DataAnswer.h"

#include "JsonWriter.h"
#include "ListQuery.h"

#include "Command/Query/FilterParameter.h"
#include "Command/RequestBase.h"
#include "Command/ResponseObject.h"

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
    if (!criteria.empty() && criteria.front()->isValid())
        m_fields = criteria.front();
}

bool DataAnswer::isSelected(const std::string& member) const
{
    // Without id and uri nobody could tell what the object is.
    return m_fields.isNull() || member == "id" || member == "uri" || m_fields->contains(member);
}

Object::Ptr DataAnswer::selected(const DataRow& row) const
{
    if (m_fields.isNull())
        return row.json();
    Object::Ptr object = new Object;
    for (const auto& [name, value]: *row.json())
        if (isSelected(name))
            object->set(name, value);
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
    if (m_fields.isNull())
        return row.appendText(out);
    char separator = '{';
    for (const auto& [name, value]: *row.json())
    {
        if (!isSelected(name))
            continue;
        out += separator;
        separator = ',';
        Command::appendJsonString(out, name);
        out += ':';
        Command::appendJson(out, value);
    }
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
