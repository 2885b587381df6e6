#include "Websocket/WebsocketDataObjectSplitter.h"

#include "Websocket/WebSocketProxy.h"

namespace Kesa::Net
{

namespace
{

const char WHITE_SPACE[] = " \t\r\n"; // what JSON counts as such

/// The position behind the string literal that begins at `quote`; npos when it does not end.
std::size_t endOfString(const std::string& text, std::size_t quote)
{
    for (std::size_t at = text.find_first_of("\"\\", quote + 1); at != std::string::npos;
         at = text.find_first_of("\"\\", at))
    {
        if (text[at] == '"')
            return at + 1;
        at += 2; // a backslash and the character that it protects
    }
    return std::string::npos;
}

/// The position behind the object that begins at `brace`; npos when it does not end.
std::size_t endOfObject(const std::string& text, std::size_t brace)
{
    std::size_t depth = 0;
    std::size_t at = brace;
    while (at != std::string::npos)
    {
        if (text[at] == '"')
        {
            at = text.find_first_of("\"{}", endOfString(text, at));
            continue;
        }
        depth += text[at] == '{' ? 1 : -1;
        if (depth == 0)
            return at + 1;
        at = text.find_first_of("\"{}", at + 1);
    }
    return at;
}

} // namespace

WebsocketDataObjectSplitter::WebsocketDataObjectSplitter() = default;

WebsocketDataObjectSplitter::~WebsocketDataObjectSplitter() = default;

void WebsocketDataObjectSplitter::onDataBlockAvailable(const WebsocketDataEventPayload& payload)
{
    const std::string& text = payload.data;
    WebsocketDataEventPayload object(payload.webSocketProxy);
    object.flags = payload.flags;
    std::size_t at = text.find_first_not_of(WHITE_SPACE);
    bool hasFired = false;
    while (at != std::string::npos && text[at] == '{')
    {
        const std::size_t end = endOfObject(text, at);
        if (end == std::string::npos)
            break;
        object.data.assign(text, at, end - at);
        DataObjectAvailable.notify(this, object);
        hasFired = true;
        at = text.find_first_not_of(WHITE_SPACE, end);
    }
    if (at == std::string::npos && hasFired)
        return;
    object.data.assign(text, at == std::string::npos ? 0 : at, std::string::npos);
    DataObjectAvailable.notify(this, object);
}

} // namespace Kesa::Net
