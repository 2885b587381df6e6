#include "ServiceName.h"

#include <Poco/Exception.h>
#include <Poco/UUID.h>

#include <algorithm>

namespace Kesa::Host
{

namespace
{

constexpr std::size_t LONGEST_NAME = 64;

/// Whatever the locale.
bool isNameCharacter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
}

} // namespace

void checkServiceName(const std::string& name)
{
    const std::string start = "A service cannot be named \"" + name + "\": ";
    if (name.empty() || name.size() > LONGEST_NAME)
        throw Poco::InvalidArgumentException(start + "a name has 1 to 64 characters, not " +
                                             std::to_string(name.size()));
    if (!std::all_of(name.begin(), name.end(), isNameCharacter))
        throw Poco::InvalidArgumentException(start + "use only letters, digits, \".\", \"_\" and \"-\"");
    if (name == "." || name == "..")
        throw Poco::InvalidArgumentException(start + "in a URL that is no name. Choose another name");
    if (name == "registry")
        throw Poco::InvalidArgumentException(start + "that is the service registry itself. Choose another name");
    if (Poco::UUID id; id.tryParse(name))
        throw Poco::InvalidArgumentException(start + "that is a UUID, which stands for an entry. Choose another name");
}

} // namespace Kesa::Host
