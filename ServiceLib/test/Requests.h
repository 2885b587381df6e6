#pragma once

#include <Command/WebSocketRequestObject.h>

#include <string>

namespace Kesa::Test
{

/// The text of a client's message. `members` are further ones, each with a comma before it.
inline std::string requestText(const std::string& type, const std::string& event, const std::string& members = "")
{
    return R"({"type":")" + type + R"(","event":")" + event + "\"" + members + "}";
}

inline Command::WebSocketRequestObject subscribeTo(const std::string& event, const std::string& members = "")
{
    return Command::WebSocketRequestObject(requestText("subscribe", event, members));
}

inline Command::WebSocketRequestObject unsubscribeFrom(const std::string& event, const std::string& members = "")
{
    return Command::WebSocketRequestObject(requestText("unsubscribe", event, members));
}

} // namespace Kesa::Test
