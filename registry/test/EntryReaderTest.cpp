#include "EntryReader.h"

#include "Names.h"
#include "RefusedRequest.h"
#include "TestEntries.h"

#include <Data/MicroServiceInfo.h>
#include <JSONTools.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

using namespace Kesa::Registry;
using Kesa::Registry::Test::registrationOf;
using testing::HasSubstr;

namespace
{

struct Refusal
{
    const char* what;
    std::string body;
    const char* message; ///< a part of it
};

std::string nested(std::size_t levels)
{
    return registrationOf("clock", 1, ",\"x\":" + std::string(levels, '[') + std::string(levels, ']'));
}

std::string repeated(const std::string& text, std::size_t count)
{
    std::string all;
    for (std::size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

const std::string REST = R"(,"uri":"/clock","host":"127.0.0.1","port":8080)";

const Refusal REFUSALS[] = {
    {"nothing", "", "one JSON object"},
    {"no JSON", "hello", "one JSON object"},
    {"an array", "[]", "one JSON object"},
    {"a number", "1", "one JSON object"},
    {"half an object", R"({"name":"clock")", "one JSON object"},
    {"two objects", R"({"name":"clock"}{})", "one JSON object"},
    {"too deep", nested(EntryReader::MAX_DEPTH), "32 levels"},
    {"too many members", registrationOf("clock", 1, ",\"x\":[0" + repeated(",0", EntryReader::MAX_PARTS - 5) + "]"),
     "1000 members"},
    {"bad UTF-8", "{\"name\":\"clock\",\"x\":\"\xff\"" + REST + "}", "UTF-8"},
    {"half a character", "{\"name\":\"clock\",\"x\":\"\xc3", "UTF-8"},
    {"a number beyond 64 bits", R"({"name":"clock","x":18446744073709551616)" + REST + "}", "64 bits"},
    {"a negative number beyond 64 bits", R"({"name":"clock","x":-9223372036854775809)" + REST + "}", "64 bits"},
    {"no name", R"({"x":1)" + REST + "}", "no member 'name'"},
    {"another name", R"({"name":"watch")" + REST + "}", "\"watch\""},
    {"a number as name", R"({"name":1)" + REST + "}", "'name' has to be a text"},
    {"null as name", R"({"name":null)" + REST + "}", "no member 'name'"},
    {"no uri", R"({"name":"clock","host":"127.0.0.1","port":8080})", "no member 'uri'"},
    {"an empty uri", R"({"name":"clock","uri":"","host":"127.0.0.1","port":8080})", "'uri' has to be a path"},
    {"a relative uri", R"({"name":"clock","uri":"clock","host":"127.0.0.1","port":8080})", "'uri' has to be a path"},
    {"a whole URL", R"({"name":"clock","uri":"http://a/b","host":"127.0.0.1","port":8080})", "'uri' has to be a path"},
    {"two slashes", R"({"name":"clock","uri":"//clock","host":"127.0.0.1","port":8080})", "'uri' has to be a path"},
    {"a blank in the uri", R"({"name":"clock","uri":"/a b","host":"127.0.0.1","port":8080})", "'uri' has to be a path"},
    {"a header in the uri", R"({"name":"clock","uri":"/a HTTP/1.1\r\nX: y","host":"127.0.0.1","port":8080})",
     "'uri' has to be a path"},
    {"a query in the uri", R"({"name":"clock","uri":"/a?b","host":"127.0.0.1","port":8080})", "'uri' has to be a path"},
    {"a fragment in the uri", R"({"name":"clock","uri":"/a#b","host":"127.0.0.1","port":8080})", "'uri' has to be a"},
    {"bad encoding in the uri", R"({"name":"clock","uri":"/a%zz","host":"127.0.0.1","port":8080})",
     "'uri' has to be a"},
    {"a long uri", R"({"name":"clock","uri":"/)" + std::string(256, 'a') + R"(","host":"127.0.0.1","port":8080})",
     "longer than 256"},
    {"an object as uri", R"({"name":"clock","uri":{},"host":"127.0.0.1","port":8080})", "'uri' has to be a text"},
    {"no host", R"({"name":"clock","uri":"/clock","port":8080})", "no member 'host'"},
    {"an empty host", R"({"name":"clock","uri":"/clock","host":"","port":8080})", "IP address"},
    {"a name as host", R"({"name":"clock","uri":"/clock","host":"example.org","port":8080})", "IP address"},
    {"a short address", R"({"name":"clock","uri":"/clock","host":"127.1","port":8080})", "IP address"},
    {"an octal address", R"({"name":"clock","uri":"/clock","host":"0177.0.0.1","port":8080})", "IP address"},
    {"an address and more", R"({"name":"clock","uri":"/clock","host":"127.0.0.1 x","port":8080})", "IP address"},
    {"every address", R"({"name":"clock","uri":"/clock","host":"0.0.0.0","port":8080})", "IP address"},
    {"a group's address", R"({"name":"clock","uri":"/clock","host":"224.0.0.1","port":8080})", "IP address"},
    {"another machine", R"({"name":"clock","uri":"/clock","host":"192.0.2.1","port":8080})", "only loopback addresses"},
    {"no port", R"({"name":"clock","uri":"/clock","host":"127.0.0.1"})", "no member 'port'"},
    {"port 0", R"({"name":"clock","uri":"/clock","host":"127.0.0.1","port":0})", "from 1 to 65535"},
    {"a negative port", R"({"name":"clock","uri":"/clock","host":"127.0.0.1","port":-1})", "from 1 to 65535"},
    {"a large port", R"({"name":"clock","uri":"/clock","host":"127.0.0.1","port":65536})", "from 1 to 65535"},
    {"a text as port", R"({"name":"clock","uri":"/clock","host":"127.0.0.1","port":"80"})", "from 1 to 65535"},
    {"half a port", R"({"name":"clock","uri":"/clock","host":"127.0.0.1","port":80.5})", "from 1 to 65535"},
    {"true as port", R"({"name":"clock","uri":"/clock","host":"127.0.0.1","port":true})", "from 1 to 65535"},
    {"a list of ports", registrationOf("clock", 1, R"(,"ports":[1])"), "'ports' has to be an object"},
    {"a bad port of a name", registrationOf("clock", 1, R"(,"ports":{"a":0})"), "'ports' has to be an object"},
    {"one version", registrationOf("clock", 1, R"(,"apiVersions":"1")"), "'apiVersions' an array"},
    {"versions as numbers", registrationOf("clock", 1, R"(,"apiVersions":[1])"), "'apiVersions' an array"},
    {"a description of numbers", registrationOf("clock", 1, R"(,"description":1)"), "'description' a text"},
};

class EntryReaderRefusalTest: public testing::TestWithParam<Refusal>
{
};

Poco::JSON::Object::Ptr parsed(const std::string& text)
{
    Poco::JSON::Object::Ptr object;
    EXPECT_TRUE(Kesa::Util::JSONTools::parseJSONString(text, object)) << text;
    return object;
}

EntryPtr read(const std::string& body)
{
    return EntryReader(true).readRegistration("clock", body);
}

/// What is wrong with it; empty if nothing is.
std::string refusalOf(const EntryReader& reader, const std::string& host)
{
    try
    {
        reader.readRegistration("clock", R"({"name":"clock","uri":"/clock","port":8080,"host":")" + host + "\"}");
    }
    catch (const RefusedRequest& refusal)
    {
        return refusal.what();
    }
    return std::string();
}

} // namespace

TEST_P(EntryReaderRefusalTest, IsRefusedWithTheReason)
{
    try
    {
        read(GetParam().body);
        FAIL() << GetParam().what << " was taken";
    }
    catch (const RefusedRequest& refusal)
    {
        EXPECT_EQ(refusal.status(), 400);
        EXPECT_THAT(refusal.what(), HasSubstr(GetParam().message));
    }
}

INSTANTIATE_TEST_SUITE_P(Refusals, EntryReaderRefusalTest, testing::ValuesIn(REFUSALS));

TEST(EntryReaderTest, ReadsWhatAClientSends)
{
    const EntryPtr entry = read(registrationOf("clock", 8123));
    EXPECT_EQ(entry->name, "clock");
    EXPECT_EQ(entry->uri, "/clock");
    EXPECT_EQ(entry->address.toString(), "127.0.0.1:8123");
    EXPECT_TRUE(isEntryId(entry->id));
    EXPECT_EQ(parsed(entry->text)->getValue<std::string>("id"), entry->id);
}

TEST(EntryReaderTest, GivesAnIdOfItsOwn)
{
    const std::string sent = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
    const EntryPtr first = read(registrationOf("clock", 1, R"(,"id":")" + sent + "\""));
    EXPECT_NE(first->id, sent);
    EXPECT_EQ(first->text.find(sent), std::string::npos);
    EXPECT_NE(read(registrationOf("clock", 1, R"(,"id":17)"))->id, first->id) << "whatever it is, it is ignored";
}

TEST(EntryReaderTest, KeepsMembersThatItDoesNotKnow)
{
    const std::string more =
        R"(,"description":"tells the time","apiVersions":["1.0"],"ports":{"debug":81},"rack":{"a":[1,null,true,"\u00e4\"\\"]},)"
        R"("large":18446744073709551615,"small":-9223372036854775808,"half":0.5,"digits":"99999999999999999999")";
    const auto object = parsed(read(registrationOf("clock", 1, more))->text);
    const auto sent = parsed(registrationOf("clock", 1, more));
    for (const auto& [name, value]: *sent)
        EXPECT_EQ(object->get(name).toString(), value.toString()) << name;
    EXPECT_EQ(object->size(), sent->size() + 1);
}

TEST(EntryReaderTest, MakesEntriesThatClientsCanRead)
{
    const EntryPtr entry = read(registrationOf("clock", 1, R"(,"apiVersions":["1.0"],"ports":{"debug":81})"));
    const std::unique_ptr<Kesa::MicroServiceInfo> info(Kesa::MicroServiceInfo::FromJson(parsed(entry->text)));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->getIdString(), entry->id);
}

TEST(EntryReaderTest, TakesTheDeepestNestingThatIsAllowed)
{
    EXPECT_NO_THROW(read(nested(EntryReader::MAX_DEPTH - 2)));
}

TEST(EntryReaderTest, TakesOnlyServicesOfThisMachineUnlessToldOtherwise)
{
    const EntryReader own(true);
    for (const char* host: {"127.0.0.1", "127.8.9.10", "::1", "localhost"})
        EXPECT_EQ(refusalOf(own, host), "") << host;
    for (const char* host: {"10.0.0.1", "2001:db8::1"})
    {
        EXPECT_THAT(refusalOf(own, host), HasSubstr("only loopback")) << host;
        EXPECT_EQ(refusalOf(EntryReader(false), host), "") << host;
    }
    for (const char* host: {"fe80::1%eth0", "::", "255.255.255.255", "ff02::1"})
        EXPECT_THAT(refusalOf(EntryReader(false), host), HasSubstr("IP address")) << host;
}

TEST(EntryReaderTest, ReadsBackWhatItMade)
{
    const EntryPtr entry = read(registrationOf("clock", 1, R"(,"x":[0.1,"\n"])"));
    const EntryPtr again = EntryReader(true).readStored(entry->text);
    EXPECT_EQ(again->id, entry->id);
    EXPECT_EQ(again->text, entry->text);
    EXPECT_EQ(entry->text.find('\n'), std::string::npos) << "one line each";
}

TEST(EntryReaderTest, RefusesAStoredEntryWithoutAProperId)
{
    EXPECT_THROW(EntryReader(true).readStored(registrationOf("clock")), RefusedRequest);
    EXPECT_THROW(EntryReader(true).readStored(registrationOf("clock", 1, R"(,"id":"x")")), RefusedRequest);
}
