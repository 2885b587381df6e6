#include "LineOutput.h"

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace
{

using Kesa::Client::LineOutput;

class LineOutputTest: public testing::Test
{
protected:
    LineOutputTest()
    {
        std::signal(SIGPIPE, SIG_IGN);
        EXPECT_EQ(pipe(m_ends), 0);
    }
    ~LineOutputTest() override
    {
        closeReader();
        ::close(m_ends[1]);
    }
    void closeReader()
    {
        if (m_ends[0] >= 0)
            ::close(m_ends[0]);
        m_ends[0] = -1;
    }
    std::string read()
    {
        char buffer[256];
        const ssize_t count = ::read(m_ends[0], buffer, sizeof buffer);
        return std::string(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    }

    int m_ends[2] = {-1, -1};
};

TEST_F(LineOutputTest, WritesEachLineAtOnce)
{
    LineOutput output(m_ends[1]);
    output.write("one");
    EXPECT_EQ(read(), "one\n");
    output.write("");
    EXPECT_EQ(read(), "\n");
    EXPECT_TRUE(output.isOpen());
}

TEST_F(LineOutputTest, EndsQuietlyWhenTheReaderWentAway)
{
    LineOutput output(m_ends[1]);
    closeReader();
    output.write("nobody reads this");
    EXPECT_FALSE(output.isOpen());
    EXPECT_NO_THROW(output.write("nor this"));
}

TEST_F(LineOutputTest, RaisesWhenTheDeviceIsFull)
{
    const int full = ::open("/dev/full", O_WRONLY);
    ASSERT_GE(full, 0);
    LineOutput output(full);
    EXPECT_THROW(output.write("x"), Poco::WriteFileException);
    ::close(full);
}

} // namespace
