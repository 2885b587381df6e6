#include "ClientHandshake.h"

#include <Poco/Net/NetException.h>
#include <gtest/gtest.h>

#include <string>

namespace
{

using Kesa::Client::ClientHandshake;

// Key and answer of the example that the websocket protocol's own text works out.
const std::string KEY = "dGhlIHNhbXBsZSBub25jZQ==";
const std::string ACCEPT = "Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n";
const std::string SWITCH = "HTTP/1.1 101 Switching Protocols\r\n";
const std::string UPGRADE = "Upgrade: WebSocket\r\nConnection: keep-alive, Upgrade\r\n";

struct Case
{
    std::string answer;
    std::string refusal; ///< part of the exception's text; empty for an accepted answer
    std::string rest;
};

std::string outcome(const Case& test, std::size_t pieceSize)
{
    ClientHandshake handshake("localhost:1", "/", KEY);
    try
    {
        for (std::size_t i = 0; i < test.answer.size(); i += pieceSize)
        {
            const std::string piece = test.answer.substr(i, pieceSize);
            if (handshake.feed(piece.data(), piece.size()))
                return "accepted, then " + handshake.rest() +
                       test.answer.substr(std::min(i + pieceSize, test.answer.size()));
        }
        return "waiting";
    }
    catch (const Poco::Net::WebSocketException& error)
    {
        return "refused: " + error.message();
    }
}

class ClientHandshakeAnswers: public testing::TestWithParam<Case>
{
};

TEST_P(ClientHandshakeAnswers, AreJudgedAlikeWholeAndByteByByte)
{
    const Case& test = GetParam();
    const std::string whole = outcome(test, test.answer.size());
    if (test.refusal.empty())
        EXPECT_EQ(whole, "accepted, then " + test.rest);
    else
        EXPECT_NE(whole.find("refused: " + test.refusal), std::string::npos) << whole;
    EXPECT_EQ(outcome(test, 1), whole);
}

INSTANTIATE_TEST_SUITE_P(
    All, ClientHandshakeAnswers,
    testing::Values(
        Case{SWITCH + UPGRADE + ACCEPT + "\r\n", "", ""},
        Case{SWITCH + UPGRADE + ACCEPT + "\r\n\x81\x01x", "", "\x81\x01x"},
        Case{"HTTP/1.1 404 Not Found\r\n\r\n", "the server refused the websocket with HTTP 404 Not Found", ""},
        Case{SWITCH + "Upgrade: h2c\r\nConnection: Upgrade\r\n" + ACCEPT + "\r\n",
             "the server switched to something else", ""},
        Case{SWITCH + "Upgrade: websocket\r\nConnection: close\r\n" + ACCEPT + "\r\n",
             "the server switched to something else", ""},
        Case{SWITCH + UPGRADE + "\r\n", "the server's Sec-WebSocket-Accept", ""},
        Case{SWITCH + UPGRADE + "Sec-WebSocket-Accept: AAAA\r\n\r\n", "the server's Sec-WebSocket-Accept", ""},
        Case{SWITCH + UPGRADE + ACCEPT + "Sec-WebSocket-Extensions: permessage-deflate\r\n\r\n",
             "the server chose an extension", ""},
        Case{SWITCH + UPGRADE + ACCEPT + "Sec-WebSocket-Protocol: chat\r\n\r\n", "the server chose an extension", ""},
        Case{"SSH-2.0-OpenSSH_9.2\r\n\r\n", "the server does not speak HTTP", ""}));

TEST(ClientHandshake, WaitsForTheEndOfTheHead)
{
    EXPECT_EQ(outcome({SWITCH + UPGRADE, "", ""}, 7), "waiting");
}

TEST(ClientHandshake, GivesUpOnAHeadWithoutEnd)
{
    const std::string endless = SWITCH + std::string(ClientHandshake::MAX_HEAD, 'x');
    EXPECT_EQ(outcome({endless, "", ""}, endless.size()), "refused: the answer to the upgrade has no end");
}

TEST(ClientHandshake, AsksWithTheKeyThatItWasGiven)
{
    EXPECT_EQ(ClientHandshake("localhost:8920", "/a?b", KEY).request(),
              "GET /a?b HTTP/1.1\r\nHost: localhost:8920\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
              "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: " +
                  KEY + "\r\n\r\n");
}

TEST(ClientHandshake, TakesANewKeyEachTime)
{
    EXPECT_NE(ClientHandshake("a:1", "/").request(), ClientHandshake("a:1", "/").request());
}

} // namespace
