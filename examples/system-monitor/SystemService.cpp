#include "SystemService.h"

#include <LogStream.h>

#include <Poco/Thread.h>

#include <exception>

namespace SystemMonitor
{
namespace
{

constexpr long PERIOD = 1000;      ///< milliseconds between two readings
constexpr long FIRST_PERIOD = 200; ///< before the first one: figures per second need two readings

} // namespace

SystemService::~SystemService()
{
    shutdown();
}

Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> SystemService::createSubscriptionInterface()
{
    Poco::Thread::sleep(FIRST_PERIOD);
    m_trigger = new SystemTrigger(m_reader.read());
    return m_trigger;
}

bool SystemService::startupImpl()
{
    m_stop.reset();
    m_thread = std::thread([this] { run(); });
    return true;
}

bool SystemService::shutdownImpl()
{
    m_stop.set();
    if (m_thread.joinable())
        m_thread.join();
    return true;
}

void SystemService::run()
{
    while (!m_stop.tryWait(PERIOD))
        sample();
}

void SystemService::sample()
{
    try
    {
        m_trigger->update(m_reader.read());
    }
    catch (const std::exception& error)
    {
        // One bad reading is no reason to stop: the next one may be good again.
        KESA_LOG_ERROR("The machine could not be read. " << error.what());
    }
}

} // namespace SystemMonitor
