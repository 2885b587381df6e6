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

/// One element of a list: by its id it is recognised, by its label it is printed.
struct Item
{
    std::string id;
    std::string label;
};

/// An element without an id is recognised by its whole content.
Item itemOf(const Var& element)
{
    const Object::Ptr object = as<Object>(element);
    if (!object || !object->has("id"))
        return {MessagePrinter::compact(element), MessagePrinter::compact(element)};
    const std::string id = MessagePrinter::compact(object->get("id"));
    const std::string name = object->has("name") ? MessagePrinter::compact(object->get("name")) : id;
    return {id, name == id ? id : id + "(" + name + ")"};
}

std::vector<Item> itemsOf(const Array& list)
{
    std::vector<Item> result;
    std::transform(list.begin(), list.end(), std::back_inserter(result), itemOf);
    return result;
}

std::string join(const std::vector<Item>& items, const std::string& mark)
{
    std::string text;
    for (std::size_t i = 0; i < std::min(items.size(), MessagePrinter::MAX_IDS); ++i)
        text += " " + mark + items[i].label;
    return items.size() > MessagePrinter::MAX_IDS ? text + " " + mark + "..." : text;
}

std::vector<Item> missingFrom(const std::vector<Item>& others, const std::vector<Item>& items)
{
    std::set<std::string> known;
    for (const Item& other: others)
        known.insert(other.id);
    std::vector<Item> result;
    std::copy_if(items.begin(), items.end(), std::back_inserter(result),
                 [&](const Item& item) { return known.count(item.id) == 0; });
    return result;
}

bool hasSameOrder(const std::vector<Item>& a, const std::vector<Item>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const Item& left, const Item& right) { return left.id == right.id; });
}

/// The ids of `now`, or, with a state before, those that came and went.
std::string describeList(const Array::Ptr& before, const Array& now)
{
    const std::vector<Item> items = itemsOf(now);
    const std::string count = "  " + std::to_string(items.size()) + (items.size() == 1 ? " element:" : " elements:");
    if (!before)
        return count + join(items, "");
    const std::vector<Item> old = itemsOf(*before);
    const std::string changes = join(missingFrom(old, items), "+") + join(missingFrom(items, old), "-");
    if (!changes.empty())
        return count + changes;
    return count + (hasSameOrder(items, old) ? " unchanged" : " reordered");
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
