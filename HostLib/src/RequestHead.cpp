#include "RequestHead.h"

#include "HttpText.h"

#include <algorithm>

namespace Kesa::Host
{

namespace
{

/// A byte that may stand in a request target: visible ASCII. Browsers send more of it bare than the grammar allows.
bool isTargetCharacter(unsigned char c)
{
    return c > 0x20 && c < 0x7f;
}

/// A byte that may stand in a field's value: text, blanks and tabs, but no control characters. Nor 0xff, which is in no
/// UTF-8 and which POCO takes for the end of the head, so that it would see another request than we do.
bool isValueCharacter(unsigned char c)
{
    return c == '\t' || (c >= 0x20 && c != 0x7f && c != 0xff);
}

bool isHostCharacter(unsigned char c)
{
    return isTokenCharacter(c) || c == ':' || c == '[' || c == ']';
}

constexpr std::size_t MAX_LENGTH_DIGITS = 18; // what surely fits into 64 bits

} // namespace

RequestHeadParser::State RequestHeadParser::parse(std::string_view received)
{
    while (m_state == State::Incomplete)
    {
        const std::size_t lineEnd = received.find('\n', m_lineStart);
        if (lineEnd == std::string_view::npos || lineEnd >= MAX_HEAD)
            break;
        const std::string_view text = received.substr(m_lineStart, lineEnd - m_lineStart);
        m_lineStart = lineEnd + 1;
        if (text.empty() || text.back() != '\r')
            return refuse(400, "A line of the request head does not end with CR and LF.");
        line(text.substr(0, text.size() - 1));
    }
    if (m_state != State::Incomplete)
        return m_state;
    if (!m_hasRequestLine && !received.empty() && !isTokenCharacter(static_cast<unsigned char>(received.front())))
        return refuse(400, "This is no HTTP request.");
    if (received.size() >= MAX_HEAD)
        return refuse(431, "The request head is larger than " + std::to_string(MAX_HEAD) + " bytes.");
    return m_state;
}

RequestHeadParser::State RequestHeadParser::refuse(int status, const std::string& message)
{
    m_status = status;
    m_message = message;
    return m_state = State::Refused;
}

void RequestHeadParser::line(std::string_view text)
{
    if (!m_hasRequestLine)
        requestLine(text);
    else if (text.empty())
        end();
    else
        field(text);
}

void RequestHeadParser::requestLine(std::string_view text)
{
    m_hasRequestLine = true;
    const std::size_t first = text.find(' ');
    const std::size_t last = text.rfind(' ');
    if (first == std::string_view::npos || first == last)
    {
        refuse(400, "The request line is not of the form: method, URL, version.");
        return;
    }
    const std::string_view method = text.substr(0, first);
    const std::string_view version = text.substr(last + 1);
    if (!isToken(method))
        refuse(400, "The request's method is not a word.");
    else if (method.size() > MAX_METHOD)
        refuse(501, "The request's method is unknown.");
    else if (version != "HTTP/1.1" && version != "HTTP/1.0")
        version.substr(0, 5) == "HTTP/" ? refuse(505, "Only HTTP/1.0 and HTTP/1.1 are understood.")
                                        : refuse(400, "The request line does not end with an HTTP version.");
    else
        target(text.substr(first + 1, last - first - 1));
    m_isHttp11 = version == "HTTP/1.1";
}

void RequestHeadParser::target(std::string_view text)
{
    if (!std::all_of(text.begin(), text.end(), isTargetCharacter))
        refuse(400, "The URL holds a character that must be percent-encoded.");
    else if (!text.starts_with('/') && !text.starts_with("http://") && !text.starts_with("https://") && text != "*")
        refuse(400, "The URL does not begin with a slash.");
}

void RequestHeadParser::field(std::string_view text)
{
    const std::size_t colon = text.find(':');
    const std::string_view name = text.substr(0, colon);
    if (text.front() == ' ' || text.front() == '\t')
        refuse(400, "A line of the request head is folded.");
    else if (colon == std::string_view::npos || !isToken(name))
        refuse(400, "A line of the request head has no valid field name before a colon.");
    else if (!std::all_of(text.begin(), text.end(), isValueCharacter))
        refuse(400, "A field of the request head holds a control character or the byte 0xFF.");
    else if (++m_fields > MAX_FIELDS)
        refuse(431, "The request head has more than " + std::to_string(MAX_FIELDS) + " fields.");
    else if (name.size() > MAX_NAME || text.size() - colon > MAX_VALUE)
        refuse(431, "A field of the request head is too long.");
    else
        knownField(name, trimmed(text.substr(colon + 1)));
}

void RequestHeadParser::knownField(std::string_view name, std::string_view value)
{
    if (equalsIgnoringCase(name, "Host"))
        host(value);
    else if (equalsIgnoringCase(name, "Content-Length"))
        contentLength(value);
    else if (equalsIgnoringCase(name, "Transfer-Encoding"))
        transferEncoding(value);
    else if (equalsIgnoringCase(name, "Expect"))
    {
        m_head.expectsContinue = true;
        if (!equalsIgnoringCase(value, "100-continue"))
            refuse(417, "Only 100-continue can be expected.");
    }
}

void RequestHeadParser::host(std::string_view value)
{
    if (m_hasHost)
        refuse(400, "The request has more than one Host field.");
    else if (!std::all_of(value.begin(), value.end(), isHostCharacter))
        refuse(400, "The Host field is not a host with an optional port.");
    m_hasHost = true;
}

void RequestHeadParser::contentLength(std::string_view value)
{
    const bool isNumber =
        !value.empty() && std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (m_hasContentLength)
        refuse(400, "The request has more than one Content-Length field.");
    else if (m_head.chunked)
        refuse(400, "The request has both Content-Length and Transfer-Encoding.");
    else if (!isNumber)
        refuse(400, "The Content-Length is not a number.");
    else if (value.size() > MAX_LENGTH_DIGITS)
        refuse(413, "The Content-Length is too large.");
    else
        m_head.bodyLength = std::stoull(std::string(value));
    m_hasContentLength = true;
}

void RequestHeadParser::transferEncoding(std::string_view value)
{
    if (m_head.chunked)
        refuse(400, "The request has more than one Transfer-Encoding field.");
    else if (m_hasContentLength)
        refuse(400, "The request has both Content-Length and Transfer-Encoding.");
    else if (!m_isHttp11)
        refuse(400, "HTTP/1.0 knows no Transfer-Encoding.");
    else if (!equalsIgnoringCase(value, "chunked"))
        refuse(400, "Only the transfer coding chunked is understood.");
    m_head.chunked = true;
}

void RequestHeadParser::end()
{
    if (m_isHttp11 && !m_hasHost)
    {
        refuse(400, "The request has no Host field.");
        return;
    }
    m_head.length = m_lineStart;
    m_state = State::Complete;
}

} // namespace Kesa::Host
