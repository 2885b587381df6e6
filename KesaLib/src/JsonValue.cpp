#include "JsonValue.h"

#include "JsonSnapshot.h"
#include "JsonWriter.h"

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

} // namespace Kesa::Data
