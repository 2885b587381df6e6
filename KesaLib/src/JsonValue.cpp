#include "JsonValue.h"

#include "Data/Attribute.h"
#include "Data/AttributeValuePlain.h"
#include "Data/AttributeValueStringable.h"
#include "JsonSnapshot.h"
#include "JsonWriter.h"

#include <limits>

namespace Kesa::Data
{

namespace
{
typedef AttributeValue<Poco::Dynamic::Var, AttributeValueBase> Base;

/// A copy of `value` that shares no part with it.
Poco::Dynamic::Var separated(const Poco::Dynamic::Var& value)
{
    Poco::JSON::Object holder;
    holder.set("value", value);
    return Command::deepCopy(holder)->get("value");
}

template <class T>
AttributeBase::Ptr makeAttribute(XObjectId parent, const std::string& name, T value)
{
    return new Attribute<T>(parent, name, std::move(value));
}
} // namespace

JsonValue::JsonValue(const Poco::Dynamic::Var& value): Base(separated(value)) {}

JsonValue::JsonValue(const JsonValue& other): Base(separated(other.get())) {}

JsonValue& JsonValue::operator=(const JsonValue& other)
{
    set(separated(other.get()));
    return *this;
}

JsonValue::~JsonValue() = default;

GenericValue JsonValue::asGeneric() const
{
    return separated(get());
}

bool JsonValue::isArray() const
{
    return Command::asArray(get()) != nullptr;
}

AttributeBase::Ptr attributeOf(XObjectId parent, const std::string& name, const Poco::Dynamic::Var& value)
{
    if (value.isEmpty() || Command::asObject(value) || Command::asArray(value))
        return makeAttribute(parent, name, JsonValue(value));
    if (value.isString())
        return makeAttribute(parent, name, AttributeValueStringable<std::string>(value.convert<std::string>()));
    if (value.isBoolean())
        return makeAttribute(parent, name, AttributeValuePlain<bool>(value.convert<bool>()));
    if (value.isInteger() && !value.isSigned() && value.convert<Poco::UInt64>() > std::numeric_limits<long>::max())
        return makeAttribute(parent, name, AttributeValuePlain<unsigned long>(value.convert<Poco::UInt64>()));
    if (value.isInteger())
        return makeAttribute(parent, name, AttributeValuePlain<long>(value.convert<Poco::Int64>()));
    if (value.isNumeric())
        return makeAttribute(parent, name, AttributeValuePlain<double>(value.convert<double>()));
    return makeAttribute(parent, name, JsonValue(value));
}

} // namespace Kesa::Data
