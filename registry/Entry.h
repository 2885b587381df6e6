#pragma once

#include <Poco/JSON/Object.h>
#include <Poco/Net/SocketAddress.h>

#include <memory>
#include <string>

namespace Kesa::Registry
{

/// One registered service. Never changes once it is made, so all threads share it.
struct Entry
{
    std::string id;                   ///< a UUID that the registry gave, lower case
    std::string name;                 ///< several entries may have the same
    Poco::Net::SocketAddress address; ///< where the service listens
    std::string uri;                  ///< the path at which it answers
    Poco::JSON::Object::Ptr json;     ///< the whole entry; only read
    std::string text;                 ///< the same as one line
    std::size_t parts = 0;            ///< its objects, arrays, members and elements
};

typedef std::shared_ptr<const Entry> EntryPtr;

} // namespace Kesa::Registry
