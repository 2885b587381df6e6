#include "SystemService.h"

#include <ApplicationServices.h>
#include <Command/WebSocketResponseObject.h>
#include <Poco/Clock.h>
#include <Poco/Thread.h>
#include <SubscriptionHandling/SubscriptionRequest.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace Kesa::Command;
using namespace Kesa::Service;

constexpr long PATIENCE = 20000; ///< milliseconds; a bound for what takes a second

/// True if the started service knows the process.
bool isListed(pid_t process)
{
    const WebSocketRequestObject url(WebSocketRequestObject::TYPE_SUBSCRIBE,
                                     "/system/processes/" + std::to_string(process), {}, {}, nullptr, false);
    const SubscriptionRequest request(url);
    WebSocketResponseObject response(request);
    return ApplicationServices::getService<SubscriptionTrigger>()->fetchData(request, response) &&
           response.getDataAsJsonObject()->has("id");
}

bool becomesListed(pid_t process, bool listed)
{
    const Poco::Clock start;
    while (isListed(process) != listed && start.elapsed() / 1000 < PATIENCE)
        Poco::Thread::sleep(10);
    return isListed(process) == listed;
}

void expectChildToComeAndGo()
{
    const pid_t child = ::fork();
    if (child == 0)
    {
        ::pause();
        ::_exit(0);
    }
    EXPECT_TRUE(becomesListed(child, true));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_TRUE(becomesListed(child, false));
}

TEST(SystemService, KnowsThisProcessFromItsStart)
{
    SystemMonitor::SystemService service;
    ASSERT_TRUE(service.startup());
    EXPECT_TRUE(isListed(::getpid()));
    EXPECT_TRUE(service.shutdown());
}

TEST(SystemService, SeesProcessesComeAndGo)
{
    SystemMonitor::SystemService service;
    ASSERT_TRUE(service.startup());
    expectChildToComeAndGo();
    EXPECT_TRUE(service.shutdown());
}

TEST(SystemService, ReadsAgainAfterARestart)
{
    SystemMonitor::SystemService service;
    ASSERT_TRUE(service.startup());
    ASSERT_TRUE(service.shutdown());
    ASSERT_TRUE(service.startup());
    expectChildToComeAndGo();
    EXPECT_TRUE(service.shutdown());
}

TEST(SystemService, StopsWithItsObject)
{
    {
        SystemMonitor::SystemService service;
        ASSERT_TRUE(service.startup());
    }
    EXPECT_FALSE(ApplicationServices::getService<SubscriptionTrigger>());
}

} // namespace
