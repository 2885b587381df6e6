#pragma once

#include "Entry.h"

#include <Poco/JSON/Object.h>

#include <string>

namespace Kesa::Registry
{

/// Makes entries of what services send and of what was written to a file, and says clearly what is wrong with it.
///
/// Errors:  RefusedRequest with 400.
/// Threads: any, several at once.
class EntryReader
{
public:
    /// Levels of nesting that an entry may have: a list of entries nests two deeper, and clients bound that too.
    static constexpr std::size_t MAX_DEPTH = 32;
    static constexpr std::size_t MAX_URI = 256;    ///< characters of an entry's URI
    static constexpr std::size_t MAX_PARTS = 1000; ///< objects, arrays, members and elements that a service may send

    /// `onlyLoopback`: refuse services of other machines, since whoever registers one makes the registry connect to it.
    explicit EntryReader(bool onlyLoopback): m_onlyLoopback(onlyLoopback) {}

    /// The entry for a registration under `name`, with a new id; an id in `body` is ignored.
    EntryPtr readRegistration(const std::string& name, const std::string& body) const;
    /// The entry that was written as this text, with the id that stands in it.
    EntryPtr readStored(const std::string& text) const;

private:
    EntryPtr read(const Poco::JSON::Object::Ptr& object) const;
    Poco::Net::SocketAddress readAddress(const std::string& host, int port) const;

    const bool m_onlyLoopback;
};

} // namespace Kesa::Registry
