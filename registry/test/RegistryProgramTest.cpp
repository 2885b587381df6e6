#include "RegistryProcess.h"
#include "TestClient.h"
#include "TestDirectory.h"
#include "TestEntries.h"
#include "TestTools.h"

#include <Poco/Net/ServerSocket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

using namespace Kesa::Registry::Test;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace
{

TestClient::Answer ask(Poco::UInt16 port, const std::string& method, const std::string& url,
                       const std::string& body = "", const std::string& address = "127.0.0.1")
{
    TestClient client(port, address);
    client.send(method + " " + url + " HTTP/1.1\r\nHost: a\r\nContent-Length: " + std::to_string(body.size()) +
                "\r\n\r\n" + body);
    return client.receive(method != "HEAD");
}

/// Runs it as long as it takes to fail, and gives status and the first line of what it said.
std::pair<std::optional<int>, std::string> failureOf(const std::vector<std::string>& arguments)
{
    RegistryProcess process(arguments);
    const std::string line = process.readErrorLine();
    return {process.wait(), line};
}

} // namespace

TEST(RegistryProgramTest, SaysInOneLineWhereItListensAndEndsCleanlyWhenToldTo)
{
    RegistryProcess process({"--port", "0"});
    const std::string line = process.readLine();
    EXPECT_THAT(line, MatchesRegex("listening on http://127\\.0\\.0\\.1:[0-9]+"));
    const auto port = static_cast<Poco::UInt16>(std::stoi(line.substr(line.rfind(':') + 1)));
    EXPECT_EQ(ask(port, "HEAD", "/").status, 200);
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(process.readLine(), "") << "and says nothing more";
}

TEST(RegistryProgramTest, SaysWhenThePortIsTaken)
{
    const Poco::Net::ServerSocket other(Poco::Net::SocketAddress("127.0.0.1", 0));
    const std::string port = std::to_string(other.address().port());
    const auto [status, line] = failureOf({"--port", port});
    EXPECT_EQ(status, 1);
    EXPECT_THAT(line, HasSubstr("Cannot listen on 127.0.0.1, port " + port));
}

TEST(RegistryProgramTest, RefusesOptionsThatItDoesNotHave)
{
    EXPECT_NE(failureOf({"--stat", "x"}).first, 0);
    EXPECT_NE(failureOf({"--port", "70000"}).first, 0);
}

TEST(RegistryProgramTest, DoesNotStartWithAStateFileThatItCannotUse)
{
    const TestDirectory directory;
    const std::string path = directory.file("state");
    for (const std::string& content:
         {std::string(), std::string("my notes\n"), std::string("kesa-registry state 2 x\n"), std::string("kesa-reg"),
          std::string("kesa-registry state 1 entries 1 bytes 9 crc32 00000000\n{}\n")})
    {
        writeFile(path, content);
        const auto [status, line] = failureOf({"--port", "0", "--state", path});
        EXPECT_EQ(status, 2) << content;
        EXPECT_THAT(line, HasSubstr("kesa-registry: The state file " + path)) << content;
        EXPECT_EQ(contentOf(path), content) << "it is left as it is";
    }
    EXPECT_EQ(failureOf({"--port", "0", "--state", directory.file("nowhere/state")}).first, 2);
}

TEST(RegistryProgramTest, KeepsASecondOneOffItsStateFile)
{
    const TestDirectory directory;
    RegistryProcess first({"--port", "0", "--state", directory.file("state")});
    ASSERT_NE(first.waitForPort(), 0);
    const auto [status, line] = failureOf({"--port", "0", "--state", directory.file("state")});
    EXPECT_EQ(status, 2);
    EXPECT_THAT(line, HasSubstr("is in use by another registry"));
}

TEST(RegistryProgramTest, TakesServicesOfOtherMachinesOnlyWhenItListensThere)
{
    const std::string elsewhere = R"({"name":"clock","uri":"/clock","host":"192.0.2.1","port":80})";
    {
        RegistryProcess process({"--port", "0"});
        EXPECT_EQ(ask(process.waitForPort(), "PUT", "/clock", elsewhere).status, 400);
    }
    {
        RegistryProcess process({"--port", "0", "--bind", "::1"});
        EXPECT_EQ(ask(process.waitForPort(), "PUT", "/clock", elsewhere, "::1").status, 400);
    }
    RegistryProcess process({"--port", "0", "--bind", "0.0.0.0"});
    EXPECT_EQ(ask(process.waitForPort(), "PUT", "/clock", elsewhere).status, 201);
}

TEST(RegistryProgramTest, ForgetsItsEntriesWithoutAStateFileAndKeepsThemWithOne)
{
    const TestDirectory directory;
    for (const bool isKept: {false, true})
    {
        std::vector<std::string> arguments{"--port", "0"};
        if (isKept)
            arguments.insert(arguments.end(), {"--state", directory.file("state")});
        {
            RegistryProcess process(arguments);
            EXPECT_EQ(ask(process.waitForPort(), "PUT", "/clock", registrationOf("clock")).status, 201);
            process.signal(SIGTERM);
            EXPECT_EQ(process.wait(), 0);
        }
        RegistryProcess process(arguments);
        const std::string list = ask(process.waitForPort(), "GET", "/").body;
        EXPECT_EQ(list.find("clock") != std::string::npos, isKept) << list;
    }
}
