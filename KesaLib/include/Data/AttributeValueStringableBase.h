#pragma once

#include "AttributeValueBase.h"

#include <string>

namespace Kesa::Data
{

/// The value of an attribute that has a text.
///
/// Threads: a value; different objects are independent.
class KESA_API AttributeValueStringableBase: public AttributeValueBase
{
public:
    ~AttributeValueStringableBase() override;

    /// The value as text.
    virtual std::string toString() const = 0;

    using AttributeValueBase::convert;
    /// Sets `text` to the value's text. True, since every such value has one.
    bool convert(std::string& text) const
    {
        text = toString();
        return true;
    }
};

} // namespace Kesa::Data
