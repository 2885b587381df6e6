#pragma once

#include "Export.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Kesa::Host
{

/// What the front door needs to know of a request before a thread is spent on it. Filled by RequestHeadParser.
struct RequestHead
{
    std::size_t length = 0;       ///< bytes of the head, the empty line included
    std::uint64_t bodyLength = 0; ///< Content-Length, 0 without one
    bool chunked = false;         ///< the body is chunked; bodyLength is 0 then
    bool expectsContinue = false; ///< the client sends its body only after a 100
};

/// Reads a request head strictly, line by line, as it arrives, and decides where the request ends. Whatever two readers
/// could understand in two ways is refused: two lengths, a length beside chunks, folded lines, bare CR or LF, bad
/// names.
///
/// Threads: one thread at a time.
class KESA_API RequestHeadParser
{
public:
    enum class State
    {
        Incomplete,
        Complete,
        Refused
    };

    static constexpr std::size_t MAX_HEAD =
        16 * 1024; ///< as many bytes as a head may have: enough for any client's cookies
    static constexpr std::size_t MAX_FIELDS = 100; ///< POCO's own bound
    static constexpr std::size_t MAX_NAME = 256;   ///< POCO's own bound
    static constexpr std::size_t MAX_VALUE = 8192; ///< POCO's own bound
    static constexpr std::size_t MAX_METHOD = 32;  ///< POCO's own bound

    /// Goes on reading. `received` holds every byte since the head's first one, those of earlier calls included.
    State parse(std::string_view received);

    /// The head, once Complete.
    const RequestHead& head() const { return m_head; }
    /// The HTTP status of the refusal, once Refused.
    int status() const { return m_status; }
    /// What was wrong, for the client to read; once Refused.
    const std::string& message() const { return m_message; }

private:
    State refuse(int status, const std::string& message);
    void line(std::string_view text);
    void requestLine(std::string_view text);
    void target(std::string_view text);
    void field(std::string_view text);
    void knownField(std::string_view name, std::string_view value);
    void host(std::string_view value);
    void contentLength(std::string_view value);
    void transferEncoding(std::string_view value);
    void end();

    State m_state = State::Incomplete;
    RequestHead m_head;
    int m_status = 0;
    std::string m_message;
    std::size_t m_lineStart = 0; ///< where the first unfinished line begins
    std::size_t m_fields = 0;
    bool m_hasRequestLine = false;
    bool m_isHttp11 = false;
    bool m_hasHost = false;
    bool m_hasContentLength = false;
};

} // namespace Kesa::Host
