// Feeds texts to the decoding of clients' messages, as it stands behind the framing and the splitter: whatever a text
// holds, the result is a request that keeps its bounds or a sentence for the client.

#include <Command/WebSocketRequestObject.h>

#include <cstdint>
#include <cstdlib>
#include <string>

using Kesa::Command::WebSocketRequestObject;

namespace
{

/// Ends the process, which the fuzzer takes for a finding.
void require(bool holds)
{
    if (!holds)
        std::abort();
}

void requireBounds(const WebSocketRequestObject& request)
{
    require(!request.getType().empty() && !request.getEventText().empty());
    require(request.getProblem().empty() && request.getJson() != nullptr);
    if (request.hasInterval())
        require(request.getInterval() >= 1 && request.getInterval() <= WebSocketRequestObject::MAX_MILLISECONDS);
    require(request.getUpdateLimit() >= 0 && request.getUpdateLimit() <= WebSocketRequestObject::MAX_MILLISECONDS);
    if (request.getType() != WebSocketRequestObject::TYPE_DATA)
        require(request.getEventText().size() <= WebSocketRequestObject::MAX_EVENT_LENGTH);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const WebSocketRequestObject request(std::string(reinterpret_cast<const char*>(data), size));
    if (request.isValid())
        requireBounds(request);
    else
        require(!request.getProblem().empty());
    const WebSocketRequestObject copy(request);
    require(copy.isValid() == request.isValid() && copy.getEventText() == request.getEventText());
    require(copy.getUrlPath() == request.getUrlPath() || !copy.getUrlPath().isValid());
    return 0;
}
