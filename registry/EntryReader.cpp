#include "EntryReader.h"

#include "Names.h"
#include "RefusedRequest.h"

#include <Data/MicroServiceInfo.h>
#include <JSONTools.h>

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Net/IPAddress.h>
#include <Poco/String.h>
#include <Poco/URI.h>
#include <Poco/UTF8Encoding.h>
#include <Poco/UUIDGenerator.h>

#include <algorithm>
#include <sstream>
#include <string_view>

namespace Kesa::Registry
{

using Poco::Dynamic::Var;
using Poco::JSON::Object;
using Poco::Net::IPAddress;

namespace
{

const std::string ID = Data::XObjectBase::KEY_ID;
const std::string NAME = Data::XObjectBase::KEY_NAME;
const std::string URI = Data::XObjectBase::KEY_URI;

[[noreturn]] void refuse(const std::string& message)
{
    throw RefusedRequest(400, message);
}

bool isUtf8(const std::string& text)
{
    const Poco::UTF8Encoding encoding;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    for (std::size_t at = 0; at < text.size();)
    {
        const int length = encoding.sequenceLength(bytes + at, 1);
        const std::size_t left = text.size() - at;
        if (length < 1 || static_cast<std::size_t>(length) > left || !Poco::UTF8Encoding::isLegal(bytes + at, length))
            return false;
        at += static_cast<std::size_t>(length);
    }
    return true;
}

/// True for the digits of an integer that 64 bits cannot hold.
bool isTooLarge(std::string_view digits, bool isNegative)
{
    const std::string_view largest = isNegative ? "9223372036854775808" : "18446744073709551615";
    return digits.size() > largest.size() || (digits.size() == largest.size() && digits > largest);
}

/// POCO's parser makes 0 of an integer that is too large.
bool holdsTooLargeNumber(std::string_view text)
{
    bool isInText = false;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] == '\\')
            ++i;
        else if (text[i] == '"')
            isInText = !isInText;
        else if (!isInText && text[i] >= '0' && text[i] <= '9')
        {
            const std::size_t end = std::min(text.find_first_not_of("0123456789.eE+-", i), text.size());
            const std::string_view number = text.substr(i, end - i);
            if (number.find_first_of(".eE") == std::string_view::npos &&
                isTooLarge(number, i > 0 && text[i - 1] == '-'))
                return true;
            i = end - 1;
        }
    }
    return false;
}

Object::Ptr parse(const std::string& text)
{
    if (!isUtf8(text))
        refuse("The entry is not valid UTF-8.");
    if (holdsTooLargeNumber(text))
        refuse("The entry holds a number beyond 64 bits.");
    try
    {
        Poco::JSON::Parser parser;
        parser.setDepth(EntryReader::MAX_DEPTH);
        const Var parsed = parser.parse(text);
        if (parsed.type() == typeid(Object::Ptr))
            return parsed.extract<Object::Ptr>();
    }
    catch (const Poco::Exception&)
    {
    }
    refuse("The entry is not one JSON object of at most " + std::to_string(EntryReader::MAX_DEPTH) + " levels.");
}

std::string textMember(const Object& object, const std::string& name)
{
    const Var value = object.get(name);
    if (value.isEmpty())
        refuse("The entry has no member '" + name + "'.");
    if (!value.isString())
        refuse("The entry's member '" + name + "' has to be a text.");
    return value.convert<std::string>();
}

int portMember(const Object& object)
{
    const Var value = object.get(MicroServiceInfo::KEY_PORT);
    if (value.isEmpty())
        refuse("The entry has no member 'port'.");
    const bool isNumber = value.isInteger() && !value.isBoolean();
    const Poco::Int64 port = isNumber && value.toString().size() <= 5 ? value.convert<Poco::Int64>() : 0;
    if (port < 1 || port > 65535)
        refuse("The entry's member 'port' has to be a number from 1 to 65535.");
    return static_cast<int>(port);
}

/// True for a path alone, whose percent-encoding can be decoded.
bool isPath(const std::string& uri)
{
    const bool isVisible = std::all_of(uri.begin(), uri.end(), [](char c) { return c > 0x20 && c < 0x7f; });
    if (!isVisible || uri.empty() || uri.front() != '/' || uri.compare(0, 2, "//") == 0 ||
        uri.find_first_of("?#") != std::string::npos)
        return false;
    try
    {
        return !Poco::URI(uri).getPath().empty();
    }
    catch (const Poco::Exception&)
    {
        return false;
    }
}

void checkUri(const std::string& uri)
{
    if (!isPath(uri))
        refuse("The entry's member 'uri' has to be a path that begins with one slash, such as \"/name\", without query "
               "and fragment, and with blanks and other than ASCII characters encoded.");
    if (uri.size() > EntryReader::MAX_URI)
        refuse("The entry's member 'uri' is longer than " + std::to_string(EntryReader::MAX_URI) + " characters.");
}

/// The members that may be absent: MicroServiceInfo knows their types.
void checkOtherMembers(const Object::Ptr& object)
{
    const std::unique_ptr<MicroServiceInfo> info(MicroServiceInfo::FromJson(object));
    if (!info)
        refuse("A member of the entry has a wrong type: 'ports' has to be an object of names and numbers from 1 to "
               "65535, 'apiVersions' an array of texts, 'description' a text.");
}

/// An address in its plain form: neither a zone, which means something on one machine only, nor the short and octal
/// forms that some systems understand.
bool isAddress(const std::string& text, IPAddress& address)
{
    const bool isPlain = text.find_first_not_of("0123456789abcdefABCDEF.:") == std::string::npos;
    return isPlain && IPAddress::tryParse(text, address) &&
           (address.family() == IPAddress::IPv6 || address.toString() == text);
}

std::string textOf(const Object& object)
{
    std::ostringstream text;
    object.stringify(text);
    return text.str();
}

} // namespace

EntryPtr EntryReader::readRegistration(const std::string& name, const std::string& body) const
{
    if (Util::JSONTools::countParts(body) > MAX_PARTS) // before they are parsed, which costs far more than their text
        refuse("The entry has more than " + std::to_string(MAX_PARTS) + " members and elements.");
    Object::Ptr object = parse(body);
    if (const std::string own = textMember(*object, NAME); own != name)
        refuse("The entry's member 'name' is \"" + own + "\", and the URL says \"" + name + "\".");
    object->set(ID, Poco::UUIDGenerator::defaultGenerator().createRandom().toString());
    return read(object);
}

EntryPtr EntryReader::readStored(const std::string& text) const
{
    const Object::Ptr object = parse(text);
    if (const std::string id = textMember(*object, ID); !isEntryId(id) || id != Poco::toLower(id))
        refuse("The entry's member 'id' is no UUID in lower case.");
    return read(object);
}

EntryPtr EntryReader::read(const Object::Ptr& object) const
{
    auto entry = std::make_shared<Entry>();
    entry->id = textMember(*object, ID);
    entry->name = textMember(*object, NAME);
    if (!isServiceName(entry->name))
        refuse("The entry's member 'name' is no name of a service.");
    entry->uri = textMember(*object, URI);
    checkUri(entry->uri);
    entry->address = readAddress(textMember(*object, MicroServiceInfo::KEY_HOST), portMember(*object));
    checkOtherMembers(object);
    entry->json = object;
    entry->text = textOf(*object);
    entry->parts = Util::JSONTools::countParts(entry->text);
    return entry;
}

Poco::Net::SocketAddress EntryReader::readAddress(const std::string& host, int port) const
{
    IPAddress address;
    if (host == "localhost")
        address = IPAddress("127.0.0.1");
    else if (!isAddress(host, address) || address.isWildcard() || address.isMulticast() || address.isBroadcast())
        refuse("The entry's member 'host' is \"" + host + "\"; it has to be the IP address of a machine.");
    if (m_onlyLoopback && !address.isLoopback())
        refuse("The entry's member 'host' is \"" + host +
               "\"; this registry serves its own machine alone and takes "
               "only loopback addresses. Start it with --bind for others.");
    return Poco::Net::SocketAddress(address, static_cast<Poco::UInt16>(port));
}

} // namespace Kesa::Registry
