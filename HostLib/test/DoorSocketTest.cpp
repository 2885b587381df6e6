#include "DoorSocket.h"

#include <Poco/Exception.h>
#include <Poco/Net/StreamSocket.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using Kesa::Host::DoorSocket;

namespace
{

/// The door's end of a connection, and the client's as a plain descriptor.
struct Pair
{
    explicit Pair(const std::shared_ptr<DoorSocket::Shared>& sharedByAll): shared(sharedByAll)
    {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
        client = ends[1];
        socket = Poco::Net::StreamSocket(new DoorSocket(ends[0], shared));
    }
    ~Pair() { ::close(client); }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    DoorSocket& door() { return *DoorSocket::of(socket); }
    void clientSends(const std::string& text)
    {
        EXPECT_EQ(::send(client, text.data(), text.size(), 0), ssize_t(text.size()));
    }
    std::string clientReads()
    {
        std::string all;
        char buffer[65536];
        for (ssize_t count; (count = ::recv(client, buffer, sizeof buffer, 0)) > 0;)
            all.append(buffer, static_cast<std::size_t>(count));
        return all;
    }
    std::string doorReads()
    {
        char buffer[100];
        return std::string(buffer, static_cast<std::size_t>(door().receiveBytes(buffer, sizeof buffer)));
    }

    std::shared_ptr<DoorSocket::Shared> shared;
    int client;
    Poco::Net::StreamSocket socket;
};

class DoorSocketTest: public testing::Test
{
protected:
    static Poco::Clock soon(long milliseconds)
    {
        Poco::Clock moment;
        moment += milliseconds * 1000;
        return moment;
    }

    std::shared_ptr<DoorSocket::Shared> shared = std::make_shared<DoorSocket::Shared>();
};

} // namespace

TEST_F(DoorSocketTest, ReadsNotAByteMoreThanTheRequest)
{
    Pair pair(shared);
    pair.clientSends("first second");
    pair.door().beginRequest(6, soon(1000));
    EXPECT_EQ(pair.doorReads(), "first ");
    EXPECT_EQ(pair.doorReads(), "");
    pair.door().beginRequest(DoorSocket::UNLIMITED, soon(1000));
    EXPECT_EQ(pair.doorReads(), "second");
}

TEST_F(DoorSocketTest, RaisesWhenTheRequestsTimeIsOver)
{
    Pair pair(shared);
    pair.door().beginRequest(6, soon(30));
    EXPECT_THROW(pair.doorReads(), Poco::TimeoutException);
}

TEST_F(DoorSocketTest, StopsWaitingWhenTheDoorStops)
{
    Pair pair(shared);
    pair.door().beginRequest(6, soon(1000000));
    shared->isStopping = true;
    EXPECT_THROW(pair.doorReads(), Poco::TimeoutException);
}

TEST_F(DoorSocketTest, ThrowsAwayWhatWasNotReadOfARequest)
{
    Pair pair(shared);
    pair.clientSends("first second");
    pair.door().beginRequest(6, soon(1000));
    pair.door().discardUnread();
    pair.door().beginRequest(6, soon(1000));
    EXPECT_EQ(pair.doorReads(), "second");
}

TEST_F(DoorSocketTest, KnowsHowMuchHasArrived)
{
    Pair pair(shared);
    pair.clientSends("four");
    EXPECT_TRUE(pair.door().hasArrived(4));
    EXPECT_FALSE(pair.door().hasArrived(5));
}

TEST_F(DoorSocketTest, SendsAnAnswerInOnePiece)
{
    Pair pair(shared);
    pair.door().sendBytes("head ", 5);
    pair.door().sendBytes("body", 4);
    EXPECT_EQ(pair.clientReads(), "");
    EXPECT_EQ(shared->waiting, 9u);
    EXPECT_TRUE(pair.door().flush());
    EXPECT_EQ(pair.clientReads(), "head body");
    EXPECT_EQ(shared->waiting, 0u);
}

TEST_F(DoorSocketTest, SendsWhatWaitsBeforeItWaitsForTheClient)
{
    Pair pair(shared);
    pair.door().sendBytes("continue", 8);
    pair.door().beginRequest(6, soon(10));
    EXPECT_THROW(pair.doorReads(), Poco::TimeoutException);
    EXPECT_EQ(pair.clientReads(), "continue");
}

TEST_F(DoorSocketTest, KeepsWhatTheClientDoesNotTakeAndSendsItLater)
{
    Pair pair(shared);
    std::string text;
    for (int i = 0; text.size() < 3 * 1024 * 1024; ++i)
        text += std::to_string(i) + ' ';
    pair.door().sendBytes(text.data(), static_cast<int>(text.size()));
    EXPECT_FALSE(pair.door().flush());
    EXPECT_FALSE(pair.door().takesMore());
    std::string received = pair.clientReads();
    while (!pair.door().flush())
        received += pair.clientReads();
    received += pair.clientReads();
    EXPECT_TRUE(received == text);
    EXPECT_TRUE(pair.door().takesMore());
    EXPECT_FALSE(pair.door().failed());
}

TEST_F(DoorSocketTest, RefusesToKeepMoreThanTheBoundOfOneAnswer)
{
    Pair pair(shared);
    const std::string piece(1024 * 1024, 'x');
    std::size_t taken = 0;
    EXPECT_THROW(while (taken <= DoorSocket::MAX_WAITING + 2 * piece.size()) taken +=
                 static_cast<std::size_t>(pair.door().sendBytes(piece.data(), static_cast<int>(piece.size()))),
                 Poco::IOException);
    EXPECT_GE(taken, DoorSocket::MAX_WAITING - piece.size());
    EXPECT_TRUE(pair.door().failed());
    EXPECT_EQ(shared->waiting, 0u);
    EXPECT_THROW(pair.door().sendBytes("x", 1), Poco::IOException);
}

TEST_F(DoorSocketTest, RefusesToKeepMoreThanTheBoundOfAllAnswers)
{
    shared->waiting = DoorSocket::MAX_WAITING_TOTAL - 10;
    Pair pair(shared);
    pair.door().sendBytes("0123456789", 10);
    EXPECT_THROW(pair.door().sendBytes("x", 1), Poco::IOException);
    EXPECT_EQ(shared->waiting, DoorSocket::MAX_WAITING_TOTAL - 10);
}

TEST_F(DoorSocketTest, CountsNothingAsWaitingOnceItIsGone)
{
    {
        Pair pair(shared);
        pair.door().sendBytes("lost", 4);
        EXPECT_EQ(shared->waiting, 4u);
    }
    EXPECT_EQ(shared->waiting, 0u);
}

TEST_F(DoorSocketTest, FailsWhenTheClientIsGone)
{
    Pair pair(shared);
    ::shutdown(pair.client, SHUT_RDWR);
    pair.door().sendBytes("lost", 4);
    EXPECT_TRUE(pair.door().flush());
    EXPECT_TRUE(pair.door().failed());
}

TEST_F(DoorSocketTest, IsAPlainSocketOnceReleased)
{
    Pair pair(shared);
    pair.clientSends("requestframe");
    pair.door().beginRequest(7, soon(1000));
    EXPECT_EQ(pair.doorReads(), "request");
    pair.door().sendBytes("101", 3);
    EXPECT_TRUE(pair.door().release());
    EXPECT_EQ(pair.clientReads(), "101");
    EXPECT_EQ(pair.doorReads(), "frame");
    EXPECT_THROW(pair.doorReads(), Poco::TimeoutException); // as any non-blocking socket of POCO's
    pair.door().sendBytes("frame", 5);
    EXPECT_EQ(pair.clientReads(), "frame");
}
