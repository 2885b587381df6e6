#include "QueryText.h"

#include "Utf8.h"

#include <algorithm>

namespace Kesa::Command
{

namespace
{
bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// The value of a hexadecimal digit, -1 for any other character.
int hexValue(char c)
{
    if (isDigit(c))
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// Undoes the percent-encoding of a key or value. Nothing if it is malformed or its result is no UTF-8.
std::optional<std::string> decode(const std::string& raw)
{
    std::string text;
    text.reserve(raw.size());
    for (std::size_t i = 0; i < raw.size(); ++i)
    {
        if (raw[i] != '%')
        {
            text += raw[i] == '+' ? ' ' : raw[i];
            continue;
        }
        const int high = i + 2 < raw.size() ? hexValue(raw[i + 1]) : -1;
        const int low = i + 2 < raw.size() ? hexValue(raw[i + 2]) : -1;
        if (high < 0 || low < 0)
            return std::nullopt;
        text += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return isUtf8(text) ? std::optional<std::string>(text) : std::nullopt;
}

QueryPair makePair(const std::string& raw)
{
    const std::size_t equals = raw.find('=');
    const std::string rawKey = raw.substr(0, equals);
    const std::string rawValue = equals == std::string::npos ? std::string() : raw.substr(equals + 1);
    const std::optional<std::string> key = decode(rawKey);
    const std::optional<std::string> value = decode(rawValue);
    return QueryPair{raw, key.value_or(rawKey), value.value_or(rawValue), key.has_value() && value.has_value()};
}
} // namespace

std::vector<QueryPair> splitQuery(const std::string& rawQuery)
{
    std::vector<QueryPair> pairs;
    for (std::size_t begin = 0; begin < rawQuery.size();)
    {
        if (pairs.size() == MAX_PARAMETERS)
        {
            pairs.push_back(QueryPair{"", "$", "", false});
            break;
        }
        const std::size_t end = std::min(rawQuery.find('&', begin), rawQuery.size());
        if (end > begin)
            pairs.push_back(makePair(rawQuery.substr(begin, end - begin)));
        begin = end + 1;
    }
    return pairs;
}

std::vector<std::string> splitNames(const std::string& list)
{
    std::vector<std::string> names;
    for (std::size_t begin = 0; begin <= list.size();)
    {
        const std::size_t end = std::min(list.find(',', begin), list.size());
        if (end == begin || names.size() == MAX_NAMES)
            return {};
        names.push_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return names;
}

std::optional<uint64_t> readNumber(const std::string& text, uint64_t largest)
{
    if (text.empty())
        return std::nullopt;
    uint64_t number = 0;
    for (const char c: text)
    {
        if (!isDigit(c))
            return std::nullopt;
        const auto digit = static_cast<uint64_t>(c - '0');
        number =
            number > largest / 10 || number * 10 > largest - std::min(digit, largest) ? largest : number * 10 + digit;
    }
    return number;
}

bool isNegativeNumber(const std::string& text)
{
    return !text.empty() && text.front() == '-' && readNumber(text.substr(1), 1).has_value();
}

} // namespace Kesa::Command
