#include <SimpleErrorHandler.h>

#include <CapturedLog.h>

#include <Poco/Net/NetException.h>
#include <Poco/Thread.h>
#include <gtest/gtest.h>

using Kesa::Test::CapturedLog;
using Kesa::Util::SimpleErrorHandler;
using Poco::Message;

namespace
{

class ResetWhileReading: public Poco::Net::ConnectionResetException
{
public:
    using Poco::Net::ConnectionResetException::ConnectionResetException;
};

TEST(SimpleErrorHandlerTest, AResetConnectionIsADebugMessage)
{
    CapturedLog log;
    SimpleErrorHandler().exception(Poco::Net::ConnectionResetException("peer 7"));
    ASSERT_EQ(log.entries().size(), 1U);
    EXPECT_TRUE(log.contains(Message::PRIO_DEBUG, "ConnectionResetException: Connection reset by peer: peer 7"));
}

TEST(SimpleErrorHandlerTest, ARefusedConnectionIsADebugMessage)
{
    CapturedLog log;
    SimpleErrorHandler().exception(Poco::Net::ConnectionRefusedException("port 1"));
    ASSERT_EQ(log.entries().size(), 1U);
    EXPECT_TRUE(log.contains(Message::PRIO_DEBUG, "ConnectionRefusedException: Connection refused: port 1"));
}

TEST(SimpleErrorHandlerTest, SubclassesCountAsTheirBase)
{
    CapturedLog log;
    const ResetWhileReading exception("peer 8");
    SimpleErrorHandler().exception(exception);
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 0U);
    EXPECT_TRUE(log.contains(Message::PRIO_DEBUG, "ConnectionResetException: " + exception.displayText()));
}

TEST(SimpleErrorHandlerTest, BelowDebugAPeerThatGoesAwayLeavesNoTrace)
{
    CapturedLog log(Message::PRIO_INFORMATION);
    SimpleErrorHandler().exception(Poco::Net::ConnectionResetException("peer 7"));
    SimpleErrorHandler().exception(Poco::Net::ConnectionRefusedException("port 1"));
    EXPECT_TRUE(log.entries().empty());
}

TEST(SimpleErrorHandlerTest, AnythingElseIsAnError)
{
    CapturedLog log(Message::PRIO_INFORMATION);
    SimpleErrorHandler().exception(Poco::NotFoundException("element 5"));
    ASSERT_EQ(log.entries().size(), 1U);
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, "SimpleErrorHandler caught Not found: element 5"));
}

TEST(SimpleErrorHandlerTest, ConnectionAbortedIsNoSpecialCase)
{
    CapturedLog log;
    SimpleErrorHandler().exception(Poco::Net::ConnectionAbortedException("peer 9"));
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 1U);
}

TEST(SimpleErrorHandlerTest, AnExceptionThatLeavesAThreadReachesIt)
{
    SimpleErrorHandler handler;
    Poco::ErrorHandler* const previous = Poco::ErrorHandler::set(&handler);
    CapturedLog log;
    Poco::Thread thread;
    thread.startFunc([] { throw Poco::DataException("from a thread"); });
    thread.join();
    Poco::ErrorHandler::set(previous);
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, "SimpleErrorHandler caught Data error: from a thread"));
}

} // namespace
