#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Kesa::Registry
{

/// Reads a chunked body strictly, as its bytes arrive. Only one with a proper last chunk is whole.
///
/// Threads: one thread at a time.
class ChunkedBody
{
public:
    enum class State
    {
        Incomplete,
        Whole,
        Malformed,
        TooLarge
    };

    static constexpr std::size_t MAX_LINE = 1024;    ///< of a chunk's size with its extensions, or of a trailer
    static constexpr std::size_t MAX_TRAILERS = 100; ///< lines behind the last chunk

    /// `limit`: bytes that the body may have.
    explicit ChunkedBody(std::size_t limit): m_limit(limit) {}

    /// Goes on with the next bytes. What follows a whole body is ignored.
    State read(std::string_view bytes);

    /// What has been read so far, without the framing.
    const std::string& body() const { return m_body; }

private:
    enum class Expect
    {
        Size,
        Data,
        DataEnd,
        Trailer
    };

    std::size_t takeData(std::string_view bytes);
    void endLine();
    void readSize();

    const std::size_t m_limit;
    State m_state = State::Incomplete;
    Expect m_expect = Expect::Size;
    std::string m_line;     ///< the line that is being read
    std::size_t m_left = 0; ///< bytes of this chunk that have not arrived
    std::size_t m_trailers = 0;
    std::string m_body;
};

} // namespace Kesa::Registry
