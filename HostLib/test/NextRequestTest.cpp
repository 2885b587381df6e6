#include "NextRequest.h"

#include "ConnectionCaps.h"
#include "DoorConnection.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

using Kesa::Host::ConnectionCaps;
using Kesa::Host::DoorConnection;
using Kesa::Host::DoorSocket;
using Kesa::Host::NextRequest;

namespace
{

const std::string GET = "GET /shop HTTP/1.1\r\nHost: x\r\n\r\n";

/// A connection whose last request was answered, and the client's end of it as a plain descriptor.
class NextRequestTest: public testing::Test
{
protected:
    NextRequestTest()
    {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
        client = ends[1];
        const Poco::Net::StreamSocket socket(new DoorSocket(ends[0], std::make_shared<DoorSocket::Shared>()));
        caps.enter("here");
        connection = std::make_unique<DoorConnection>(2, socket, "here", caps);
    }
    ~NextRequestTest() override
    {
        if (client >= 0)
            ::close(client);
    }

    bool arrives(const std::string& bytes)
    {
        EXPECT_EQ(::send(client, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        return NextRequest::arrives(*connection);
    }
    /// What the loop finds when it goes on with the connection.
    std::string unread()
    {
        char buffer[65536];
        const ssize_t count = ::recv(connection->descriptor(), buffer, sizeof buffer, MSG_PEEK | MSG_DONTWAIT);
        return std::string(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    }

    ConnectionCaps caps{10, 10};
    int client = -1;
    std::unique_ptr<DoorConnection> connection;
};

} // namespace

TEST_F(NextRequestTest, TakesARequestThatIsWhole)
{
    EXPECT_TRUE(arrives(GET));
    EXPECT_EQ(connection->parser.head().length, GET.size());
    EXPECT_TRUE(connection->isReused);
    EXPECT_EQ(unread(), GET) << "nothing is consumed";
}

TEST_F(NextRequestTest, TakesTheFirstOfSeveral)
{
    EXPECT_TRUE(arrives(GET + GET));
    EXPECT_EQ(connection->parser.head().length, GET.size());
}

TEST_F(NextRequestTest, TakesARequestWithItsWholeBody)
{
    EXPECT_TRUE(arrives("POST /shop/orders HTTP/1.1\r\nHost: x\r\nContent-Length: 2\r\n\r\n{}"));
    EXPECT_EQ(connection->parser.head().bodyLength, 2u);
}

TEST_F(NextRequestTest, LeavesWhatIsNotWholeToTheLoop)
{
    for (const std::string& bytes:
         {std::string(), GET.substr(0, 10), GET.substr(0, GET.size() - 1),
          std::string("POST /shop/orders HTTP/1.1\r\nHost: x\r\nContent-Length: 3\r\n\r\n{}"),
          std::string("POST /shop/orders HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"),
          std::string("POST /shop/orders HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nContent-Length: 2\r\n\r\n{}")})
    {
        EXPECT_FALSE(arrives(bytes)) << bytes;
        EXPECT_EQ(unread(), bytes);
        char buffer[4096];
        (void)!::recv(connection->descriptor(), buffer, sizeof buffer, MSG_DONTWAIT);
    }
}

TEST_F(NextRequestTest, LeavesWhatIsNoRequestToTheLoop)
{
    EXPECT_FALSE(arrives("this is none\r\n\r\n"));
    EXPECT_EQ(unread(), "this is none\r\n\r\n");
}

TEST_F(NextRequestTest, LeavesAnEmptyLineBeforeARequestToTheLoop)
{
    EXPECT_FALSE(arrives("\r\n" + GET));
    EXPECT_EQ(unread(), "\r\n" + GET);
}

TEST_F(NextRequestTest, DoesNotWaitForAClientThatIsGoneOrMayNotGoOn)
{
    connection->closes = true;
    EXPECT_FALSE(arrives(GET));
    connection->closes = false;
    ::close(client);
    client = -1;
    EXPECT_FALSE(NextRequest::arrives(*connection)) << "the loop sees to the end of the connection";
}

TEST_F(NextRequestTest, DoesNotServeAClientThatHasNotTakenItsLastAnswer)
{
    const std::string answer(1024 * 1024, 'x');
    connection->door().sendBytes(answer.data(), static_cast<int>(answer.size()));
    EXPECT_FALSE(arrives(GET));
}
