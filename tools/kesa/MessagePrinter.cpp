#include "MessagePrinter.h"

#include <Poco/DateTimeFormatter.h>
#include <Poco/JSON/Stringifier.h>
#include <Poco/LocalDateTime.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <sstream>
#include <vector>

namespace Kesa::Client
{
namespace
{

using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

template <class T>
typename T::Ptr as(const Var& value)
{
    return value.type() == typeid(typename T::Ptr) ? value.extract<typename T::Ptr>() : typename T::Ptr();
}

std::string json(const Var& value)
{
    std::ostringstream text;
    Poco::JSON::Stringifier::stringify(value, text);
    return text.str();
}

bool isPlain(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) || std::string("._-+:/()@%").find(c) != std::string::npos;
}

/// The members of `now`, or, with a state before, those that differ from it; "-name" for one that went.
std::string describeObject(const Object::Ptr& before, const Object& now)
{
    std::string text;
    for (const auto& [key, value]: now)
        if (!before || !before->has(key) || json(before->get(key)) != json(value))
            text += "  " + MessagePrinter::compact(key) + "=" + MessagePrinter::compact(value);
    if (before)
        for (const auto& [key, value]: *before)
            if (!now.has(key))
                text += "  -" + MessagePrinter::compact(key);
    return text.empty() ? (now.size() == 0 ? "  {}" : "  unchanged") : text;
}

/// Id of a list's element, with its name where it has another one; the element itself where it has none.
std::string label(const Var& element)
{
    const Object::Ptr object = as<Object>(element);
    if (!object || !object->has("id"))
        return MessagePrinter::compact(element);
    const std::string id = MessagePrinter::compact(object->get("id"));
    const std::string name = object->has("name") ? MessagePrinter::compact(object->get("name")) : id;
    return name == id ? id : id + "(" + name + ")";
}

std::vector<std::string> labels(const Array& list)
{
    std::vector<std::string> result;
    std::transform(list.begin(), list.end(), std::back_inserter(result), label);
    return result;
}

std::string join(const std::vector<std::string>& items, const std::string& mark)
{
    std::string text;
    for (std::size_t i = 0; i < std::min(items.size(), MessagePrinter::MAX_IDS); ++i)
        text += " " + mark + items[i];
    return items.size() > MessagePrinter::MAX_IDS ? text + " " + mark + "..." : text;
}

std::vector<std::string> missingFrom(const std::vector<std::string>& items, const std::vector<std::string>& others)
{
    const std::set<std::string> known(others.begin(), others.end());
    std::vector<std::string> result;
    std::copy_if(items.begin(), items.end(), std::back_inserter(result),
                 [&](const std::string& item) { return known.count(item) == 0; });
    return result;
}

std::string describeList(const Array::Ptr& before, const Array& now)
{
    const std::vector<std::string> items = labels(now);
    const std::string count = "  " + std::to_string(items.size()) + " elements:";
    if (!before)
        return count + join(items, "");
    const std::vector<std::string> old = labels(*before);
    const std::string changes = join(missingFrom(items, old), "+") + join(missingFrom(old, items), "-");
    return count + (changes.empty() ? items == old ? " unchanged" : " reordered" : changes);
}

} // namespace

std::string MessagePrinter::notification(const std::string& event, const Var& data)
{
    const auto last = m_last.find(event);
    const std::string text = json(event); // escapes what a terminal would obey
    const std::string line =
        text.substr(1, text.size() - 2) + describe(last == m_last.end() ? Var() : last->second, data);
    if (last == m_last.end() && m_last.size() >= MAX_EVENTS)
        m_last.clear();
    m_last[event] = data;
    return line;
}

std::string MessagePrinter::describe(const Var& before, const Var& now) const
{
    if (const Object::Ptr object = as<Object>(now))
        return describeObject(as<Object>(before), *object);
    if (const Array::Ptr list = as<Array>(now))
        return describeList(as<Array>(before), *list);
    return "  " + compact(now);
}

std::string MessagePrinter::compact(const Var& value)
{
    const std::string text = json(value);
    const bool isText = text.size() > 2 && text.front() == '"';
    const bool needsNoQuotes = isText && std::all_of(text.begin() + 1, text.end() - 1, isPlain);
    return needsNoQuotes ? text.substr(1, text.size() - 2) : text;
}

std::string MessagePrinter::timeOfDay()
{
    return Poco::DateTimeFormatter::format(Poco::LocalDateTime(), "%H:%M:%S.%i");
}

} // namespace Kesa::Client
