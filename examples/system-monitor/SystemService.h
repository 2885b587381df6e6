#pragma once

#include "SystemReader.h"
#include "SystemTrigger.h"

#include <GenericServiceBootstrap.h>

#include <Poco/Event.h>

#include <thread>

namespace SystemMonitor
{

/// This machine as a service, read every second.
///
/// The library calls the three operations below from startup() and shutdown(), in the order in which they stand.
///
/// Threads: startup() and shutdown() from one thread at a time. Between them a thread of this class reads the machine.
class SystemService: public Kesa::Service::GenericServiceBootstrap
{
public:
    SystemService() = default;
    /// Stops the service: the base class can no longer do it.
    ~SystemService() override;

protected:
    /// The data and the reports: a trigger that has its first snapshot already.
    Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> createSubscriptionInterface() override;
    /// Starts to read every second.
    bool startupImpl() override;
    /// Stops to read. Also called when the start failed.
    bool shutdownImpl() override;

private:
    void run();
    void sample();

    SystemReader m_reader; ///< used by the starting thread before, and by m_thread after the start
    SystemTrigger::Ptr m_trigger;
    std::thread m_thread;
    Poco::Event m_stop; ///< set by shutdownImpl(), ends run()
};

} // namespace SystemMonitor
