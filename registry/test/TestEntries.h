#pragma once

#include "EntryReader.h"

#include <string>

namespace Kesa::Registry::Test
{

/// The body of a registration, with further members such as R"(,"x":1)".
inline std::string registrationOf(const std::string& name, int port = 8080, const std::string& more = "")
{
    return R"({"name":")" + name + R"(","uri":"/)" + name + R"(","host":"127.0.0.1","port":)" + std::to_string(port) +
           more + "}";
}

/// An entry with a new id.
inline EntryPtr entryOf(const std::string& name, int port = 8080, const std::string& more = "")
{
    return EntryReader(true).readRegistration(name, registrationOf(name, port, more));
}

} // namespace Kesa::Registry::Test
