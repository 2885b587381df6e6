#pragma once

#include "ImmutableJson.h"

#include "Data/ElementGeneric.h"

#include <memory>
#include <mutex>

namespace Kesa::Host
{

/// An element of a store: a JSON object and its text, which never change.
///
/// Threads: any, at once.
class StoredElement: public Data::ElementBase, public ImmutableJson
{
public:
    typedef Poco::SharedPtr<StoredElement> Ptr;

    /// `text`: a JSON object with the members `id`, a UUID, and `uri`. Raises Poco::Exception if it is none.
    StoredElement(const std::string& service, const std::string& resource, Data::XObjectId number,
                  const std::string& text);
    ~StoredElement() override;

    const Poco::JSON::Object::Ptr& sharedJson() const override { return m_document; }
    const std::string& jsonText() const override { return m_text; }
    const std::string& id() const { return m_id; }

    Data::AttributeMap getAttributes() const override;
    Data::AttributeBase::Ptr getAttribute(const std::string& name) const override;
    bool hasValue(const std::string& attrName) const override;
    std::size_t size() const override;
    Data::AttributeValueBase* getValue(const std::string& name) const override;
    std::string getName() const override;
    Poco::UUID getId() const override;
    Poco::URI getUri() const override;
    /// A copy that shares no part with the element.
    Poco::JSON::Object::Ptr toJSON(int expandLevel) const override;
    Poco::JSON::Object::Ptr toJSON(const std::vector<std::string>& fields) const override;

private:
    /// The element as attributes, made when somebody asks for them for the first time.
    const Data::ElementGeneric& attributes() const;

    const Poco::JSON::Object::Ptr m_document;
    const std::string m_text; ///< of m_document, so that equal elements have equal texts
    const std::string m_id;
    mutable std::once_flag m_once; ///< of m_attributes
    mutable std::unique_ptr<const Data::ElementGeneric> m_attributes;
};

} // namespace Kesa::Host
