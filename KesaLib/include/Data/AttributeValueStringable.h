#pragma once

#include "AttributeValue.h"
#include "AttributeValueStringableBase.h"

namespace Kesa::Data
{

/// A value that has a text: a `std::string`, a `Poco::UUID` or a `Poco::URI`. It reads as text, also in JSON.
///
/// Threads: a value; different objects are independent.
template <class V>
class KESA_API AttributeValueStringable: public AttributeValue<V, AttributeValueStringableBase>
{
public:
    explicit AttributeValueStringable(const V& value): AttributeValue<V, AttributeValueStringableBase>(value) {}
    explicit AttributeValueStringable(V&& value): AttributeValue<V, AttributeValueStringableBase>(std::move(value)) {}

    std::string toString() const override
    {
        if constexpr (std::is_same_v<V, std::string>)
            return this->get();
        else
            return this->get().toString();
    }
    /// Holds the text, as `std::string`.
    GenericValue asGeneric() const override { return GenericValue(toString()); }
};

} // namespace Kesa::Data
