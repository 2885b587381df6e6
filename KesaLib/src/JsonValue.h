#pragma once

#include "Data/AttributeBase.h"
#include "Data/AttributeValue.h"

#include <Poco/Dynamic/Var.h>

namespace Kesa::Data
{

/// A value as it came from JSON: an object, an array or null. Shares no part with others: what it takes in and what it
/// gives out as generic value or JSON are copies.
class JsonValue: public AttributeValue<Poco::Dynamic::Var, AttributeValueBase>
{
public:
    explicit JsonValue(const Poco::Dynamic::Var& value);
    JsonValue(const JsonValue& other);
    JsonValue& operator=(const JsonValue& other);
    ~JsonValue() override;

    GenericValue asGeneric() const override;
    bool isArray() const override;
};

/// The attribute of `parent` that a member of a JSON object becomes: a text, a truth value, a number of the type that
/// holds it, or, of anything else, a JsonValue.
AttributeBase::Ptr attributeOf(XObjectId parent, const std::string& name, const Poco::Dynamic::Var& value);

} // namespace Kesa::Data
