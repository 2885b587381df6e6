// Feeds raw bytes to the judgement of request heads and of their URLs. However the bytes are cut, the verdict is the
// same; and what is let through, POCO reads in the same way.

#include "RequestHead.h"
#include "RequestTarget.h"

#include <Poco/Exception.h>
#include <Poco/Net/HTTPRequest.h>

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

using Kesa::Host::RequestHeadParser;
using State = RequestHeadParser::State;

namespace
{

/// Ends the process, which the fuzzer takes for a finding.
void require(bool holds)
{
    if (!holds)
        std::abort();
}

/// The verdict over `bytes` that arrive in pieces of `piece` bytes.
RequestHeadParser judge(std::string_view bytes, std::size_t piece)
{
    RequestHeadParser parser;
    for (std::size_t end = piece; end < bytes.size(); end += piece)
        if (parser.parse(bytes.substr(0, end)) != State::Incomplete)
            return parser;
    parser.parse(bytes);
    return parser;
}

void requireSame(RequestHeadParser& one, RequestHeadParser& other, std::string_view bytes)
{
    require(one.parse(bytes) == other.parse(bytes));
    require(one.status() == other.status());
    require(one.head().length == other.head().length && one.head().bodyLength == other.head().bodyLength);
    require(one.head().chunked == other.head().chunked);
}

/// The code behind the front door sees what POCO makes of the head.
void requirePocoAgrees(const Kesa::Host::RequestHead& head, std::string_view bytes)
{
    std::istringstream stream{std::string(bytes.substr(0, head.length))};
    Poco::Net::HTTPRequest request;
    request.read(stream);
    require(request.getChunkedTransferEncoding() == head.chunked);
    if (!head.chunked && request.hasContentLength())
        require(static_cast<std::uint64_t>(request.getContentLength64()) == head.bodyLength);
    const Kesa::Host::RequestTarget target = Kesa::Host::judgeTarget(request.getURI());
    require(target.status == 0 ? !target.url.empty() && target.url[0] == '/' : !target.message.empty());
}

} // namespace

/// The first byte is the size of the pieces, the rest what the client sends.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    RequestHeadParser whole = judge(bytes, size);
    RequestHeadParser pieces = judge(bytes, data[0] == 0 ? 256 : data[0]);
    requireSame(whole, pieces, bytes);
    const State state = whole.parse(bytes);
    if (state == State::Refused)
        require(whole.status() >= 400 && whole.status() < 600 && !whole.message().empty());
    if (state == State::Complete)
    {
        require(whole.head().length <= RequestHeadParser::MAX_HEAD && whole.head().length <= bytes.size());
        requirePocoAgrees(whole.head(), bytes);
    }
    return 0;
}
