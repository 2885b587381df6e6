#pragma once

#include "Data/XObjectBase.h"

#include <Poco/JSON/Object.h>

#include <string>

namespace Kesa::Host
{

/// One object of an answer. It is rendered when somebody looks, and not before.
///
/// Ownership: shares the object.
/// Threads:   one thread at a time.
class KESA_API DataRow
{
public:
    /// `object` must not be null.
    explicit DataRow(const Data::XObjectBase::Ptr& object);
    /// Of ready JSON, which nobody may change; must not be null.
    explicit DataRow(const Poco::JSON::Object::Ptr& json);
    DataRow(const DataRow& other);
    DataRow(DataRow&& other) noexcept;
    DataRow& operator=(const DataRow& other);
    DataRow& operator=(DataRow&& other) noexcept;
    ~DataRow();

    /// The whole object; to be left as it is.
    const Poco::JSON::Object::Ptr& json() const;
    /// Appends the whole object's text.
    void appendText(std::string& out) const;
    /// The data object, null if the row was made of JSON.
    const Data::XObjectBase::Ptr& object() const { return m_object; }

private:
    Data::XObjectBase::Ptr m_object;
    mutable Poco::JSON::Object::Ptr m_json;
};

} // namespace Kesa::Host
