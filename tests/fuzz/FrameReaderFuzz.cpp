// Feeds raw bytes to the framing. However they are cut, the same events come out, and they keep their promises.

#include "FrameReader.h"
#include "LimitsAndTimes.h"

#include <Poco/UTF8Encoding.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace
{

/// Ends the process, which the fuzzer and the tests take for a finding.
void require(bool holds)
{
    if (!holds)
        std::abort();
}

bool isUtf8(const std::string& text)
{
    const Poco::UTF8Encoding encoding;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const int size = static_cast<int>(text.size());
    for (int at = 0; at < size; at += encoding.sequenceLength(bytes + at, size - at))
        if (encoding.queryConvert(bytes + at, size - at) < 0)
            return false;
    return true;
}

/// Checks each event and writes it down.
class Checker: public Kesa::Net::FrameReader::Sink
{
public:
    void onMessage(std::string&& text) override
    {
        require(text.size() <= Kesa::Net::MAX_MESSAGE && isUtf8(text));
        add("text", text);
    }
    void onPing(std::string&& payload) override
    {
        require(payload.size() <= 125);
        add("ping", payload);
    }
    void onClose(unsigned short code) override
    {
        require(code >= 1000 && code <= 4999);
        end("close", code);
    }
    void onFailure(unsigned short code, const char* why) override
    {
        require(code == 1002 || code == 1003 || code == 1007 || code == 1009);
        require(why && *why);
        end("failure", code);
    }

    const std::string& transcript() const { return m_transcript; }

private:
    void add(const char* kind, const std::string& what)
    {
        require(!m_hasEnded);
        m_transcript.append(kind).append(1, ' ').append(what).append(1, '\n');
    }
    void end(const char* kind, unsigned short code)
    {
        add(kind, std::to_string(code));
        m_hasEnded = true;
    }

    std::string m_transcript;
    bool m_hasEnded = false;
};

std::string read(const char* bytes, std::size_t size, std::size_t piece)
{
    Kesa::Net::FrameReader reader;
    Checker checker;
    for (std::size_t at = 0; at < size; at += piece)
        reader.feed(bytes + at, std::min(piece, size - at), checker);
    return checker.transcript();
}

} // namespace

/// The first byte is the size of the pieces, the rest the stream.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const auto* bytes = reinterpret_cast<const char*>(data) + 1;
    const std::size_t piece = data[0] == 0 ? 256 : data[0];
    const std::string whole = read(bytes, size - 1, size);
    require(read(bytes, size - 1, piece) == whole);
    require(read(bytes, size - 1, 1) == whole);
    return 0;
}
