#include "Command/Query/AbstractValueSearch.h"

#include "Utf8.h"

#include "Command/UrlPath.h"

#include <Poco/Exception.h>
#include <Poco/NumberFormatter.h>
#include <Poco/RegularExpression.h>

#include <cctype>

namespace Kesa::Command
{

namespace
{
/// The pieces of `text` between its wildcards: one without a wildcard, empty ones included.
std::vector<std::string> splitAtWildcards(const std::string& text)
{
    std::vector<std::string> pieces(1);
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const bool encoded = text.compare(i, 3, UrlPath::QUERY_WILDCARD_HTML) == 0 || text.compare(i, 3, "%2a") == 0;
        if (!encoded && text.compare(i, 1, UrlPath::QUERY_WILDCARD) != 0)
        {
            pieces.back() += text[i];
            continue;
        }
        pieces.emplace_back();
        i += encoded ? 2 : 0;
    }
    return pieces;
}

/// A pattern that matches `text` and nothing else.
std::string escape(const std::string& text)
{
    std::string pattern;
    for (const char c: text)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20)
            pattern += "\\x" + Poco::NumberFormatter::formatHex(byte, 2);
        else if (byte < 0x80 && !std::isalnum(byte))
            (pattern += '\\') += c;
        else
            pattern += c;
    }
    return pattern;
}

/// Finds `piece` at the first place where it stands. The group is atomic: taking a piece at its first place never
/// spoils what follows, so nothing is tried twice and the cost is linear, however many wildcards a client sends.
std::string findFirst(const std::string& piece)
{
    return piece.empty() ? "" : "(?>.*?" + escape(piece) + ")";
}

std::string containedPattern(const std::vector<std::string>& pieces)
{
    std::string pattern = "\\A";
    for (const std::string& piece: pieces)
        pattern += findFirst(piece);
    return pattern;
}

/// There are at least two pieces.
std::string wholePattern(const std::vector<std::string>& pieces)
{
    std::string pattern = "\\A" + escape(pieces.front());
    for (std::size_t i = 1; i + 1 < pieces.size(); ++i)
        pattern += findFirst(pieces[i]);
    return pattern + (pieces.back().empty() ? "" : ".*" + escape(pieces.back()) + "\\z");
}
} // namespace

AbstractValueSearch::AbstractValueSearch(const std::string& queryValue, Mode mode)
    : SearchCriterion(queryValue.size() <= MAX_LENGTH && isUtf8(queryValue)), m_queryValue(queryValue)
{
    if (!m_valid)
        return;
    m_searchValues = splitAtWildcards(queryValue);
    const int options = Poco::RegularExpression::RE_DOTALL;
    if (mode == Mode::CONTAINED)
        m_regEx = std::make_unique<Poco::RegularExpression>(containedPattern(m_searchValues),
                                                            options | Poco::RegularExpression::RE_CASELESS |
                                                                Poco::RegularExpression::RE_UTF8);
    else if (m_searchValues.size() > 1)
        m_regEx = std::make_unique<Poco::RegularExpression>(wholePattern(m_searchValues), options);
}

AbstractValueSearch::~AbstractValueSearch() = default;

bool AbstractValueSearch::matchText(const std::string& text) const
{
    if (!m_regEx)
        return text == m_queryValue;
    try
    {
        Poco::RegularExpression::Match match;
        return m_regEx->match(isUtf8(text) ? text : toValidUtf8(text), 0, match) > 0;
    }
    catch (const Poco::RegularExpressionException&) // a text beyond what the matcher takes, many megabytes long
    {
        return false;
    }
}

} // namespace Kesa::Command
