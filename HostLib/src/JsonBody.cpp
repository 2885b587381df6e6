#include "JsonBody.h"

#include "Utf8.h"

#include <Poco/Exception.h>
#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>

#include <charconv>
#include <limits>
#include <set>
#include <string_view>
#include <vector>

namespace Kesa::Host
{

namespace
{

/// Builds the document as usual, and notices members that stand twice.
class StrictHandler: public Poco::JSON::ParseHandler
{
public:
    void startObject() override
    {
        m_members.emplace_back();
        ParseHandler::startObject();
    }
    void endObject() override
    {
        m_members.pop_back();
        ParseHandler::endObject();
    }
    void key(const std::string& name) override
    {
        if (!m_members.back().insert(name).second)
            throw Poco::DataFormatException("the member \"" + Command::excerpt(name) + "\" stands twice in an object");
        ParseHandler::key(name);
    }

private:
    std::vector<std::set<std::string>> m_members; ///< of the objects that are open
};

/// True if the number fits into 64 bits: as an integer if it is written as one, else as a floating-point number.
bool fits(std::string_view number)
{
    const char* const end = number.data() + number.size();
    if (number.find_first_of(".eE") != std::string_view::npos)
    {
        double value = 0;
        const auto read = std::from_chars(number.data(), end, value);
        // Too small to be told from zero is no loss; too large is.
        return read.ec != std::errc::result_out_of_range || number.find("e-") != std::string_view::npos ||
               number.find("E-") != std::string_view::npos;
    }
    Poco::Int64 negative = 0;
    Poco::UInt64 positive = 0;
    const auto read = number.front() == '-' ? std::from_chars(number.data(), end, negative)
                                            : std::from_chars(number.data(), end, positive);
    return read.ec != std::errc::result_out_of_range;
}

/// The first number outside the texts that does not fit, empty if there is none.
std::string_view unfitNumber(std::string_view text)
{
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const char c = text[i];
        if (inString && c == '\\')
            ++i;
        else if (c == '"')
            inString = !inString;
        else if (!inString && (c == '-' || (c >= '0' && c <= '9')))
        {
            const std::size_t end = std::min(text.find_first_not_of("0123456789+-.eE", i), text.size());
            const std::string_view number = text.substr(i, end - i);
            if (!fits(number))
                return number;
            i = end - 1;
        }
    }
    return {};
}

/// Whether the name of a member holds the character zero, at which POCO's parser would end it.
bool hasZeroInName(std::string_view text)
{
    constexpr std::string_view ZERO = "\\u0000";
    if (text.find(ZERO) == std::string_view::npos)
        return false;
    for (std::size_t i = text.find('"'); i != std::string_view::npos; i = text.find('"', i + 1))
    {
        bool hasZero = false;
        for (++i; i < text.size() && text[i] != '"'; ++i)
            if (text[i] == '\\')
                hasZero = text.compare(i++, ZERO.size(), ZERO) == 0 || hasZero;
        const std::size_t next = text.find_first_not_of(" \t\r\n", i + 1);
        if (hasZero && next != std::string_view::npos && text[next] == ':')
            return true;
    }
    return false;
}

JsonBody refused(const std::string& problem)
{
    return {nullptr, problem};
}

} // namespace

JsonBody JsonBody::parse(const std::string& text)
{
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos)
        return refused("The request has no body; a JSON object is needed.");
    if (!Command::isUtf8(text))
        return refused("The body is no UTF-8.");
    if (text[begin] != '{')
        return refused("The body has to be a JSON object.");
    if (hasZeroInName(text))
        return refused("The name of a member of the body holds the character U+0000.");
    const std::string_view number = unfitNumber(text);
    if (!number.empty())
        return refused("The number " + Command::excerpt(std::string(number)) +
                       " of the body does not fit into 64 bits.");
    try
    {
        Poco::JSON::Parser parser(new StrictHandler);
        parser.setDepth(MAX_DEPTH);
        return {parser.parse(text).extract<Poco::JSON::Object::Ptr>(), ""};
    }
    catch (const Poco::Exception& e)
    {
        const std::string reason = e.message();
        return refused("The body is no usable JSON: " + reason + (reason.ends_with('.') ? "" : "."));
    }
}

} // namespace Kesa::Host
