#pragma once

#include "LoopbackConnection.h"

#include <Poco/JSON/Object.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Kesa::Test
{

/// What matters of a message to a client, as one line: type, event, status and code.
inline std::string describe(const Poco::JSON::Object& message)
{
    std::string line = message.getValue<std::string>("type") + " " + message.optValue<std::string>("event", "-");
    if (message.has("status"))
        line += " " + message.getValue<std::string>("status");
    if (message.has("code"))
        line += " " + std::to_string(message.getValue<int>("code"));
    if (message.has("code"))
    {
        EXPECT_NE(message.getValue<std::string>("message"), "");
    }
    return line;
}

/// What the client got so far, one line each.
inline std::vector<std::string> describeAll(LoopbackConnection& client)
{
    std::vector<std::string> lines;
    while (client.hasMessage())
        lines.push_back(describe(*client.nextMessage()));
    return lines;
}

} // namespace Kesa::Test
