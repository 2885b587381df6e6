#include "Listener.h"

#include "TestClient.h"
#include "TestTools.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

using Kesa::Host::Listener;

namespace
{

/// Leaves the process without a free descriptor, for its own lifetime.
class Exhaustion
{
public:
    Exhaustion()
    {
        ::getrlimit(RLIMIT_NOFILE, &m_old);
        rlimit low = m_old;
        low.rlim_cur = static_cast<rlim_t>(openDescriptors() + 8);
        ::setrlimit(RLIMIT_NOFILE, &low);
        for (int descriptor; (descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
            m_taken.push_back(descriptor);
    }
    ~Exhaustion()
    {
        for (const int descriptor: m_taken)
            ::close(descriptor);
        ::setrlimit(RLIMIT_NOFILE, &m_old);
    }
    Exhaustion(const Exhaustion&) = delete;
    Exhaustion& operator=(const Exhaustion&) = delete;

private:
    rlimit m_old{};
    std::vector<int> m_taken;
};

} // namespace

TEST(ListenerTest, GivesConnectionsWithTheClientsAddressUntilNobodyWaits)
{
    Listener listener("127.0.0.1", 0);
    int connection = -1;
    std::string address;
    EXPECT_EQ(listener.accept(connection, address), Listener::Outcome::Empty);
    TestClient client(listener.port());
    ASSERT_EQ(listener.accept(connection, address), Listener::Outcome::Accepted);
    EXPECT_EQ(address, "127.0.0.1");
    EXPECT_NE(::fcntl(connection, F_GETFL) & O_NONBLOCK, 0);
    ::close(connection);
    EXPECT_EQ(listener.accept(connection, address), Listener::Outcome::Empty);
}

TEST(ListenerTest, TellsClientsWhenNoDescriptorIsLeftAndGoesOnAfterwards)
{
    Listener listener("127.0.0.1", 0);
    TestClient first(listener.port());
    TestClient second(listener.port());
    int connection = -1;
    std::string address;
    {
        const Exhaustion exhaustion;
        EXPECT_EQ(listener.accept(connection, address), Listener::Outcome::Refused);
        EXPECT_EQ(listener.accept(connection, address), Listener::Outcome::Refused);
    }
    EXPECT_EQ(first.receive().status, 503);
    EXPECT_EQ(second.receive().status, 503);
    TestClient third(listener.port());
    ASSERT_EQ(listener.accept(connection, address), Listener::Outcome::Accepted);
    ::close(connection);
}
