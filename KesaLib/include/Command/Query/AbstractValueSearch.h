#pragma once

#include "SearchCriterion.h"

#include <Poco/Dynamic/Var.h>

#include <memory>
#include <string>
#include <vector>

namespace Poco
{
class RegularExpression;
}

namespace Kesa::Data
{
class AttributeValueBase;
}

namespace Kesa::Command
{

/// A search for a text with wildcards.
///
/// Threads: an object may be matched by many threads at once.
class KESA_API AbstractValueSearch: public SearchCriterion
{
public:
    /// The longest search text in bytes; a longer one is invalid, so that no client makes matching slow.
    static constexpr std::size_t MAX_LENGTH = 1024;

    ~AbstractValueSearch() override;
    AbstractValueSearch(const AbstractValueSearch&) = delete;
    AbstractValueSearch& operator=(const AbstractValueSearch&) = delete;

    /// Whether a value of a payload, or an attribute's value, matches. An invalid search matches everything.
    bool match(const Poco::Dynamic::Var& value) const { return !m_valid || matchImpl(value, 0); }
    bool match(const Data::AttributeValueBase& value) const { return !m_valid || matchImpl(value, 0); }

    /// The search text as it was given, wildcards included.
    const std::string& getQueryValue() const { return m_queryValue; }

protected:
    enum class Mode
    {
        /// The text stands somewhere in the value; letter case does not count.
        CONTAINED,
        /// The text is the whole value; letter case counts.
        WHOLE
    };

    AbstractValueSearch(const std::string& queryValue, Mode mode);

    /// `level` is the depth of the value, 0 for the value that was asked about.
    virtual bool matchImpl(const Poco::Dynamic::Var& value, int level) const = 0;
    virtual bool matchImpl(const Data::AttributeValueBase& value, int level) const = 0;

    /// Whether the text of one scalar matches.
    bool matchText(const std::string& text) const;

    std::string m_queryValue;
    /// The literal pieces between the wildcards, empty ones included.
    std::vector<std::string> m_searchValues;
    /// Null where the whole text is compared without a wildcard.
    std::unique_ptr<Poco::RegularExpression> m_regEx;
};

} // namespace Kesa::Command
