#include "DataRow.h"

#include "ImmutableJson.h"
#include "JsonWriter.h"

namespace Kesa::Host
{

ImmutableJson::~ImmutableJson() = default;

DataRow::DataRow(const Data::XObjectBase::Ptr& object)
    : m_object(object), m_immutable(dynamic_cast<const ImmutableJson*>(object.get()))
{
}
DataRow::DataRow(const Poco::JSON::Object::Ptr& json): m_immutable(nullptr), m_json(json) {}
DataRow::DataRow(const DataRow& other) = default;
DataRow::DataRow(DataRow&& other) noexcept = default;
DataRow& DataRow::operator=(const DataRow& other) = default;
DataRow& DataRow::operator=(DataRow&& other) noexcept = default;
DataRow::~DataRow() = default;

const Poco::JSON::Object::Ptr& DataRow::json() const
{
    if (m_json.isNull())
        m_json = m_immutable ? m_immutable->sharedJson() : m_object->toJSON(0);
    return m_json;
}

void DataRow::appendText(std::string& out) const
{
    if (m_immutable)
        out += m_immutable->jsonText();
    else
        Command::appendJson(out, json());
}

} // namespace Kesa::Host
