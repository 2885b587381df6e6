#include "RegistryRequests.h"

#include "HostedRegistry.h"
#include "Names.h"
#include "StateFile.h"
#include "TestClient.h"
#include "TestDirectory.h"
#include "TestEntries.h"
#include "TestTools.h"

#include <JSONTools.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>
#include <vector>

using namespace Kesa::Registry;
using Kesa::Registry::Test::entryOf;
using Kesa::Registry::Test::HostedRegistry;
using Kesa::Registry::Test::registrationOf;
using Kesa::Registry::Test::TestDirectory;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

const std::string NOBODY = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";

Poco::JSON::Object::Ptr parse(const std::string& text)
{
    Poco::JSON::Object::Ptr object;
    EXPECT_TRUE(Kesa::Util::JSONTools::parseJSONString(text, object)) << text;
    return object ? object : Poco::JSON::Object::Ptr(new Poco::JSON::Object);
}

std::string requestOf(const std::string& method, const std::string& url, const std::string& body)
{
    return method + " " + url + " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

std::string chunked(const std::string& url, const std::string& chunks)
{
    return "PUT " + url + " HTTP/1.1\r\nHost: 127.0.0.1\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks;
}

std::string chunkOf(const std::string& text)
{
    char size[20];
    std::snprintf(size, sizeof size, "%zx\r\n", text.size());
    return size + text + "\r\n";
}

/// A value of the answer's head, empty if it is not there.
std::string field(const TestClient::Answer& answer, const std::string& name)
{
    const std::size_t begin = answer.head.find("\r\n" + name + ": ");
    if (begin == std::string::npos)
        return std::string();
    const std::size_t value = begin + name.size() + 4;
    return answer.head.substr(value, answer.head.find("\r\n", value) - value);
}

class RegistryRequestsTest: public testing::Test
{
protected:
    TestClient::Answer askRaw(const std::string& bytes, bool hasBody = true)
    {
        TestClient client(registry.host->port());
        client.send(bytes);
        return client.receive(hasBody);
    }
    TestClient::Answer ask(const std::string& method, const std::string& url, const std::string& body = "")
    {
        return askRaw(requestOf(method, url, body), method != "HEAD");
    }

    /// Registers a service and gives the id of its entry.
    std::string add(const std::string& name)
    {
        const TestClient::Answer answer = ask("PUT", "/" + name, registrationOf(name));
        EXPECT_EQ(answer.status, 201) << answer.body;
        return field(answer, "Location").substr(1);
    }

    void expectError(const TestClient::Answer& answer, int status, const std::string& message)
    {
        EXPECT_EQ(answer.status, status) << answer.body;
        const auto document = parse(answer.body);
        EXPECT_EQ(document->optValue<std::string>("type", ""), "error");
        EXPECT_EQ(document->optValue<std::string>("status", ""), "error");
        EXPECT_EQ(document->optValue<int>("code", 0), status);
        EXPECT_THAT(document->optValue<std::string>("message", ""), HasSubstr(message));
    }

    HostedRegistry registry;
};

} // namespace

// --- what is good ---

TEST_F(RegistryRequestsTest, RegistersWithALength)
{
    const TestClient::Answer answer = ask("PUT", "/clock", registrationOf("clock"));
    EXPECT_EQ(answer.status, 201);
    const std::string location = field(answer, "Location");
    ASSERT_THAT(location, StartsWith("/"));
    EXPECT_TRUE(isEntryId(location.substr(1)));
    EXPECT_EQ(parse(answer.body)->getObject("data")->getValue<std::string>("id"), location.substr(1));
}

TEST_F(RegistryRequestsTest, RegistersWithAChunkedBody)
{
    const std::string body = registrationOf("clock") + "\n";
    const std::string chunks = chunkOf(body.substr(0, 10)) + chunkOf(body.substr(10)) + "0\r\n\r\n";
    const TestClient::Answer answer = askRaw(chunked("/clock", chunks));
    EXPECT_EQ(answer.status, 201) << answer.body;
    EXPECT_TRUE(registry.service.entries().find(field(answer, "Location").substr(1)));
}

TEST_F(RegistryRequestsTest, RegistersWithABodyThatComesByteByByte)
{
    TestClient client(registry.host->port());
    for (const char byte: chunked("/clock", chunkOf(registrationOf("clock")) + "0\r\n\r\n"))
        client.send(std::string_view(&byte, 1));
    EXPECT_EQ(client.receive().status, 201);
}

TEST_F(RegistryRequestsTest, SaysContinueToAClientThatWaitsForIt)
{
    const std::string body = registrationOf("clock");
    TestClient client(registry.host->port());
    client.send("PUT /clock HTTP/1.1\r\nHost: a\r\nExpect: 100-continue\r\nContent-Length: " +
                std::to_string(body.size()) + "\r\n\r\n");
    EXPECT_EQ(client.receive(false).status, 100);
    client.send(body);
    EXPECT_EQ(client.receive().status, 201);
}

TEST_F(RegistryRequestsTest, KeepsTheConnectionOverRequests)
{
    TestClient client(registry.host->port());
    for (int i = 0; i < 3; ++i)
    {
        client.send(requestOf("PUT", "/clock", registrationOf("clock")) + requestOf("GET", "/", ""));
        const TestClient::Answer answer = client.receive();
        EXPECT_EQ(answer.status, 201);
        EXPECT_THAT(client.receive().body, HasSubstr(field(answer, "Location").substr(1)));
        client.send(requestOf("PUT", "/clock", "[]"));
        EXPECT_EQ(client.receive().status, 400) << "a refusal does not end it";
    }
}

TEST_F(RegistryRequestsTest, ListsAllUnderData)
{
    EXPECT_EQ(ask("GET", "/").body, R"({"data":[],"status":"ok"})");
    const std::string id = add("clock");
    add("bell");
    const auto list = parse(ask("GET", "/").body)->getArray("data");
    ASSERT_EQ(list->size(), 2U);
    EXPECT_EQ(list->getObject(1)->getValue<std::string>("id"), id);
    EXPECT_EQ(list->getObject(1)->getValue<std::string>("name"), "clock");
}

TEST_F(RegistryRequestsTest, ListsTheEntriesOfOneName)
{
    add("clock");
    add("clock");
    add("bell");
    EXPECT_EQ(parse(ask("GET", "/?name=clock").body)->getArray("data")->size(), 2U);
    EXPECT_EQ(parse(ask("GET", "/?name=cl%6fck").body)->getArray("data")->size(), 2U);
    EXPECT_EQ(parse(ask("GET", "/?name=nobody").body)->getArray("data")->size(), 0U);
    EXPECT_EQ(parse(ask("GET", "/?name=").body)->getArray("data")->size(), 0U);
    EXPECT_EQ(parse(ask("GET", "/?").body)->getArray("data")->size(), 3U);
}

TEST_F(RegistryRequestsTest, GivesOneEntryUnderData)
{
    const std::string id = add("clock");
    const TestClient::Answer answer = ask("GET", "/" + id);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(field(answer, "Content-Type"), "application/json");
    EXPECT_EQ(parse(answer.body)->getObject("data")->getValue<std::string>("id"), id);
    std::string upper = id;
    for (char& c: upper)
        c = static_cast<char>(std::toupper(c));
    EXPECT_EQ(ask("GET", "/" + upper + "/").status, 200) << "letter case and a trailing slash mean nothing";
}

TEST_F(RegistryRequestsTest, AnswersHeadWithoutABody)
{
    const std::string id = add("clock");
    for (const std::string& url: {std::string("/"), "/" + id, std::string("/?name=clock")})
    {
        const TestClient::Answer answer = ask("HEAD", url);
        EXPECT_EQ(answer.status, 200) << url;
        EXPECT_EQ(field(answer, "Content-Length"), std::to_string(ask("GET", url).body.size())) << url;
    }
    EXPECT_EQ(ask("HEAD", "/" + NOBODY).status, 404);
}

TEST_F(RegistryRequestsTest, AnswersHeadOfHttp10)
{
    EXPECT_EQ(askRaw("HEAD / HTTP/1.0\r\n\r\n", false).status, 200);
}

TEST_F(RegistryRequestsTest, RemovesAnEntryOnce)
{
    const std::string id = add("clock");
    EXPECT_EQ(ask("DELETE", "/" + id).status, 200);
    expectError(ask("DELETE", "/" + id), 404, "no entry with this id");
    expectError(ask("GET", "/" + id), 404, "no entry with this id");
}

TEST_F(RegistryRequestsTest, LeavesOtherUrlsToTheHost)
{
    const std::string id = add("clock");
    EXPECT_EQ(parse(ask("GET", "/registry/services/" + id).body)->getObject("data")->getValue<std::string>("id"), id);
    EXPECT_EQ(parse(ask("GET", "/registry").body)->getArray("data")->size(), 1U);
    EXPECT_EQ(ask("GET", "/clock").status, 404);
    EXPECT_EQ(ask("DELETE", "/registry").status, 405);
    EXPECT_EQ(ask("PUT", "/registry/services/" + id, "{}").status, 405);
}

TEST_F(RegistryRequestsTest, DoesNotListItself)
{
    EXPECT_EQ(parse(ask("GET", "/").body)->getArray("data")->size(), 0U);
}

// --- what is refused ---

TEST_F(RegistryRequestsTest, RefusesBadRegistrations)
{
    expectError(ask("PUT", "/clock", "[]"), 400, "one JSON object");
    expectError(ask("PUT", "/clock", ""), 400, "one JSON object");
    expectError(ask("PUT", "/clock", registrationOf("bell")), 400, "\"bell\"");
    expectError(ask("PUT", "/registry", registrationOf("registry")), 400, "not \"registry\"");
    expectError(ask("PUT", "/a%20b", registrationOf("a b")), 400, "no name of a service");
    expectError(ask("PUT", "/" + std::string(65, 'n'), registrationOf(std::string(65, 'n'))), 400, "1 to 64");
    expectError(ask("PUT", "/" + NOBODY, registrationOf(NOBODY)), 400, "the registry gives the id");
    EXPECT_EQ(registry.service.entries().size(), 0U);
}

TEST_F(RegistryRequestsTest, RefusesMethodsThatAUrlDoesNotTake)
{
    const TestClient::Answer root = ask("PUT", "/", "{}");
    expectError(root, 405, "GET, HEAD");
    EXPECT_EQ(field(root, "Allow"), "GET, HEAD");
    EXPECT_EQ(field(ask("DELETE", "/"), "Allow"), "GET, HEAD");
    EXPECT_EQ(field(ask("POST", "/" + NOBODY, "{}"), "Allow"), "GET, HEAD, DELETE");
    EXPECT_EQ(field(ask("POST", "/clock", "{}"), "Allow"), "PUT");
    EXPECT_EQ(field(ask("OPTIONS", "/clock"), "Allow"), "PUT");
    expectError(ask("DELETE", "/clock"), 404, "ids are UUIDs");
}

TEST_F(RegistryRequestsTest, RefusesFiltersThatItDoesNotHave)
{
    expectError(ask("GET", "/?nam=clock"), 400, "/?name=system");
    expectError(ask("GET", "/?name=a&name=b"), 400, "/?name=system");
    expectError(ask("GET", "/?name=%zz"), 400, "query is malformed");
}

TEST_F(RegistryRequestsTest, WantsABody)
{
    expectError(askRaw("PUT /clock HTTP/1.1\r\nHost: a\r\n\r\n"), 411, "Content-Length");
}

TEST_F(RegistryRequestsTest, RefusesABodyThatIsTooLarge)
{
    const std::string frame = registrationOf("clock", 8080, R"(,"x":"")");
    const std::string most =
        registrationOf("clock", 8080, R"(,"x":")" + std::string(RegistryRequests::MAX_BODY - frame.size(), 'x') + "\"");
    ASSERT_EQ(most.size(), RegistryRequests::MAX_BODY);
    EXPECT_EQ(ask("PUT", "/clock", most).status, 201);
    EXPECT_EQ(askRaw(chunked("/clock", chunkOf(most) + "0\r\n\r\n")).status, 201);
    expectError(ask("PUT", "/clock", most + " "), 413, "65536 bytes");
    expectError(askRaw(chunked("/clock", chunkOf(most) + chunkOf(" ") + "0\r\n\r\n")), 413, "65536 bytes");
    expectError(askRaw(chunked("/clock", "ffffffffffff\r\n")), 413, "65536 bytes");
    expectError(askRaw("PUT /clock HTTP/1.1\r\nHost: a\r\nExpect: 100-continue\r\nContent-Length: 1000000\r\n\r\n"),
                413, "65536 bytes");
}

TEST_F(RegistryRequestsTest, RefusesAChunkedBodyWithoutItsLastChunk)
{
    TestClient client(registry.host->port());
    client.send(chunked("/clock", chunkOf(registrationOf("clock"))));
    client.finish();
    expectError(client.receive(), 400, "before the body was whole");
    EXPECT_EQ(registry.service.entries().size(), 0U);
}

TEST_F(RegistryRequestsTest, RefusesMalformedChunks)
{
    expectError(askRaw(chunked("/clock", "hello\r\n")), 400, "malformed");
    expectError(askRaw(chunked("/clock", "1\r\n{}\r\n0\r\n\r\n")), 400, "malformed");
}

TEST_F(RegistryRequestsTest, IsFullAtItsLimitAndSaysSo)
{
    const EntryPtr first = entryOf("clock");
    RegistryService& service = registry.service;
    EXPECT_EQ(service.add(first), EntryStore::Outcome::Done);
    auto& store = const_cast<EntryStore&>(service.entries()); // without a check for each
    for (std::size_t i = 1; i < EntryStore::MAX_ENTRIES; ++i)
    {
        auto copy = std::make_shared<Entry>(*first);
        copy->id = std::to_string(i);
        ASSERT_EQ(store.add(copy), EntryStore::Outcome::Done);
    }
    expectError(ask("PUT", "/clock", registrationOf("clock")), 429, "20000 entries");
}

TEST(RegistryStateRequestsTest, SaysThatItCannotWriteAndChangesNothing)
{
    const TestDirectory directory;
    const std::string path = directory.file("state");
    HostedRegistry registry({}, std::make_unique<EntryStore>(std::make_unique<StateFile>(path, EntryReader(true))));
    std::filesystem::create_directory(path + ".new");
    TestClient client(registry.host->port());
    client.send(requestOf("PUT", "/clock", registrationOf("clock")));
    const TestClient::Answer answer = client.receive();
    EXPECT_EQ(answer.status, 503);
    EXPECT_THAT(answer.body, HasSubstr("cannot write its state file"));
    EXPECT_EQ(registry.service.entries().size(), 0U);
}

// --- slow and many ---

TEST_F(RegistryRequestsTest, AnswersOthersWhileManyBodiesDoNotArrive)
{
    std::vector<TestClient> slow;
    for (unsigned i = 0; i < 2 * RegistryRequests::THREADS; ++i)
        slow.emplace_back(registry.host->port()).send(chunked("/clock", "5\r\n"));
    const Stopwatch time;
    EXPECT_EQ(ask("GET", "/").status, 200);
    EXPECT_LT(time.milliseconds(), 5000) << "half the time that a body has";
    for (TestClient& client: slow)
        client.reset();
    EXPECT_EQ(ask("PUT", "/clock", registrationOf("clock")).status, 201);
}

TEST_F(RegistryRequestsTest, LosesNoneOfManyRegistrationsAtOnce)
{
    constexpr int THREADS = 8;
    constexpr int ROUNDS = 25;
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i)
        threads.emplace_back(
            [this]
            {
                for (int round = 0; round < ROUNDS; ++round)
                {
                    const std::string left = add("clock");
                    add("clock");
                    EXPECT_EQ(ask("DELETE", "/" + left).status, 200);
                }
            });
    for (std::thread& thread: threads)
        thread.join();
    EXPECT_EQ(parse(ask("GET", "/").body)->getArray("data")->size(), std::size_t(THREADS * ROUNDS));
}
