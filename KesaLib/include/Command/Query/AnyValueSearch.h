#pragma once

#include "AbstractValueSearch.h"

namespace Kesa::Command
{

/// The free-text search "$q=text": finds the text in any scalar at any depth, whatever the letter case.
class KESA_API AnyValueSearch: public AbstractValueSearch
{
public:
    /// An empty text is invalid.
    explicit AnyValueSearch(const std::string& queryValue);
    ~AnyValueSearch() override;

protected:
    bool matchImpl(const Poco::Dynamic::Var& value, int level) const override;
    bool matchImpl(const Data::AttributeValueBase& value, int level) const override;
};

} // namespace Kesa::Command
