#include "Command/ResponseText.h"

#include "JsonWriter.h"

#include "Command/ResponseObject.h"

namespace Kesa::Command
{

ResponseText::ResponseText(const ResponseText& other): m_settled(other.m_settled)
{
    Util::ScopedLock<Util::FastMutex> lock(other.m_mutex);
    m_whole = other.m_whole;
    m_data = other.m_data;
}

ResponseText& ResponseText::operator=(const ResponseText& other)
{
    if (this == &other)
        return *this;
    Util::ScopedLock<Util::FastMutex> otherLock(other.m_mutex);
    const Text whole = other.m_whole;
    const Text data = other.m_data;
    otherLock.unlock(); // the two mutexes are never held together
    Util::ScopedLock<Util::FastMutex> lock(m_mutex);
    m_whole = whole;
    m_data = data;
    m_settled = other.m_settled;
    return *this;
}

void ResponseText::settle()
{
    m_settled = true;
}

void ResponseText::memberChanged()
{
    Util::ScopedLock<Util::FastMutex> lock(m_mutex);
    m_whole = nullptr;
}

void ResponseText::dataChanged()
{
    Util::ScopedLock<Util::FastMutex> lock(m_mutex);
    m_whole = nullptr;
    m_data = nullptr;
    m_settled = false;
}

ResponseText::Text ResponseText::get(const Poco::JSON::Object& document) const
{
    Util::ScopedLock<Util::FastMutex> lock(m_mutex);
    if (m_whole)
        return m_whole;
    const Text text = writeLocked(document);
    if (m_settled)
        m_whole = text;
    else
        m_data = nullptr;
    return text;
}

ResponseText::Text ResponseText::writeLocked(const Poco::JSON::Object& document) const
{
    const std::size_t otherMembers = 256; // enough for type, event and time stamp
    const auto text = std::make_shared<std::string>();
    text->reserve((m_data ? m_data->size() : 0) + otherMembers);
    char separator = '{';
    for (const auto& [key, value]: document)
    {
        *text += separator;
        separator = ',';
        appendJsonString(*text, key);
        *text += ':';
        if (key == ResponseObject::FIELD_DATA)
            appendDataLocked(*text, value);
        else
            appendJson(*text, value, 1);
    }
    *text += separator == '{' ? "{}" : "}";
    return text;
}

void ResponseText::appendDataLocked(std::string& text, const Poco::Dynamic::Var& data) const
{
    if (m_data)
    {
        text += *m_data;
        return;
    }
    const std::size_t begin = text.size();
    appendJson(text, data, 1);
    m_data = std::make_shared<const std::string>(text, begin);
}

} // namespace Kesa::Command
