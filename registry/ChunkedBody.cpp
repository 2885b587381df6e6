#include "ChunkedBody.h"

#include <algorithm>
#include <charconv>

namespace Kesa::Registry
{

ChunkedBody::State ChunkedBody::read(std::string_view bytes)
{
    while (m_state == State::Incomplete && !bytes.empty())
    {
        if (m_expect == Expect::Data)
        {
            bytes.remove_prefix(takeData(bytes));
            continue;
        }
        m_line += bytes.front();
        bytes.remove_prefix(1);
        if (m_line.back() == '\n')
            endLine();
        else if (m_line.size() > MAX_LINE)
            m_state = State::Malformed;
    }
    return m_state;
}

std::size_t ChunkedBody::takeData(std::string_view bytes)
{
    const std::size_t count = std::min(bytes.size(), m_left);
    m_body.append(bytes.substr(0, count));
    m_left -= count;
    if (m_left == 0)
        m_expect = Expect::DataEnd;
    return count;
}

void ChunkedBody::endLine()
{
    if (m_line.size() < 2 || m_line[m_line.size() - 2] != '\r')
    {
        m_state = State::Malformed;
        return;
    }
    m_line.resize(m_line.size() - 2);
    if (m_expect == Expect::Size)
        readSize();
    else if (m_expect == Expect::DataEnd && m_line.empty())
        m_expect = Expect::Size;
    else if (m_expect == Expect::Trailer && m_line.empty())
        m_state = State::Whole;
    else if (m_expect == Expect::DataEnd || ++m_trailers > MAX_TRAILERS)
        m_state = State::Malformed;
    m_line.clear();
}

void ChunkedBody::readSize()
{
    const std::string_view digits = std::string_view(m_line).substr(0, m_line.find_first_of("; \t"));
    const char* const end = digits.data() + digits.size();
    const auto [parsed, error] = std::from_chars(digits.data(), end, m_left, 16);
    if (error == std::errc::invalid_argument || parsed != end)
        m_state = State::Malformed;
    else if (error != std::errc() || m_left > m_limit - m_body.size())
        m_state = State::TooLarge;
    else
        m_expect = m_left == 0 ? Expect::Trailer : Expect::Data;
}

} // namespace Kesa::Registry
