#pragma once

#include "AttributeBase.h"

#include <Poco/JSON/Object.h>
#include <Poco/URI.h>
#include <Poco/UUID.h>

#include <vector>

namespace Kesa::Data
{

/// A data object: an id and named attributes.
///
/// Order:   objects are compared by their numeric ids; those that have none by their attributes, in the order of the
///          names.
/// Errors:  what is absent or of another type raises Poco::InvalidAccessException.
/// Threads: no locks; copies share their attributes.
class KESA_API XObjectBase
{
public:
    typedef Poco::SharedPtr<XObjectBase> Ptr;

    static const std::string KEY_ID;
    static const std::string KEY_URI;
    static const std::string KEY_NAME;

    virtual ~XObjectBase();

    /// The attributes by name, shared.
    virtual AttributeMap getAttributes() const = 0;
    /// The attribute of this name, shared; null if there is none.
    virtual AttributeBase::Ptr getAttribute(const std::string& name) const = 0;
    virtual bool hasValue(const std::string& attrName) const = 0;
    /// How many attributes there are.
    virtual std::size_t size() const = 0;
    /// The value of the attribute of this name, owned by it; null if there is none.
    virtual AttributeValueBase* getValue(const std::string& name) const = 0;
    virtual std::string getName() const = 0;
    virtual Poco::UUID getId() const = 0;
    virtual Poco::URI getUri() const = 0;
    /// The object as JSON. References are followed to `expandLevel`.
    virtual Poco::JSON::Object::Ptr toJSON(int expandLevel) const = 0;
    /// The members that `fields` names, as JSON.
    virtual Poco::JSON::Object::Ptr toJSON(const std::vector<std::string>& fields) const = 0;
    virtual bool operator<(const XObjectBase& other) const;
    virtual bool operator>(const XObjectBase& other) const;
    virtual bool operator==(const XObjectBase& other) const;
    virtual bool operator!=(const XObjectBase& other) const;

    /// The numeric id; INVALID_XOBJ_ID if the object has none.
    XObjectId getXObjectId() const { return m_xObjectId; }

protected:
    explicit XObjectBase(XObjectId id);
    XObjectBase(const XObjectBase& other);
    XObjectBase(XObjectBase&& other) noexcept;
    XObjectBase& operator=(const XObjectBase& other);
    XObjectBase& operator=(XObjectBase&& other) noexcept;

    /// Sets `id` if `text` is the text of a UUID, of 36 characters. False, with `id` unspecified, for any other text.
    static bool tryParseId(const std::string& text, Poco::UUID& id);
    /// The id or URI that a text stands for. Raise Poco::InvalidAccessException if it stands for none.
    static Poco::UUID parseId(const std::string& text);
    static Poco::URI parseUri(const std::string& text);

private:
    int compare(const XObjectBase& other) const;

    XObjectId m_xObjectId;
};

} // namespace Kesa::Data
