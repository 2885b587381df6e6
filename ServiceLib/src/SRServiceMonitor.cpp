#include "SRServiceMonitor.h"

#include "RegistryExchangeLimit.h"
#include "RegistrySession.h"

#include <LogStream.h>

#include <Poco/Exception.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>

#include <algorithm>

/// One log line of the monitor: it begins with the class and the function that writes it.
#define MONITOR_LOG(level, message) KESA_LOG_##level("SRServiceMonitor::" << __func__ << message)

namespace Kesa::Service
{

using Poco::Net::HTTPRequest;
using Poco::Net::HTTPResponse;

namespace
{
const std::uint32_t T_CHECK_SR = 10000;
const int EXCHANGE_SECONDS = 10;

/// Asks for the head of `path`. No headers of our own, no keep-alive: each question has a connection of its own.
HTTPResponse::HTTPStatus check(Poco::Net::HTTPClientSession& session, const std::string& path, HTTPResponse& response)
{
    HTTPRequest request(HTTPRequest::HTTP_HEAD, path);
    session.sendRequest(request);
    session.receiveResponse(response);
    return response.getStatus();
}

/// A response without an endless head, which would fill the memory.
class BoundedResponse: public HTTPResponse
{
public:
    BoundedResponse() { setFieldLimit(100); }
};
} // namespace

SRServiceMonitor::SRServiceMonitor()
    : m_timer(0, 0),
      m_T_Check_SR(T_CHECK_SR),
      m_SRStatus(UNKNOWN),
      m_retryCount(0),
      m_SRFailRetryFactor(20),
      m_limit(RegistryExchangeLimit::current()),
      m_hasUUIDs(false),
      m_isEnding(false),
      m_isCleared(false)
{
    m_timer.setStartInterval(10000);
    m_timer.setPeriodicInterval(m_T_Check_SR);
    m_timer.start(Poco::TimerCallback<SRServiceMonitor>(*this, &SRServiceMonitor::onCheckInterval));
    MONITOR_LOG(TRACE, " Starting SRMonitor (" << m_T_Check_SR / 1000 << "s period)");
}

SRServiceMonitor::~SRServiceMonitor()
{
    {
        Util::ScopedLock lock(m_endMutex);
        m_isEnding = true;
    }
    m_isCleared = true; // a walk over the entries ends after the one under test
    {
        Util::ScopedLock lock(m_listMutex);
        m_serviceUUIDs.clear();
        noteListSize();
    }
    m_timer.stop(); // not under the mutex, which a running cycle may be waiting for
}

void SRServiceMonitor::addUUID(const std::string& uuid)
{
    Util::ScopedLock lock(m_listMutex);
    m_serviceUUIDs.push_back(uuid);
    noteListSize();
    MONITOR_LOG(TRACE, " Service id " << uuid << " added to SRMonitor.");
}

void SRServiceMonitor::removeUUID(const std::string& uuid)
{
    Util::ScopedLock lock(m_listMutex);
    const auto found = std::find(m_serviceUUIDs.begin(), m_serviceUUIDs.end(), uuid);
    if (found == m_serviceUUIDs.end())
        return;
    m_serviceUUIDs.erase(found);
    noteListSize();
    MONITOR_LOG(TRACE, " Service id " << uuid << " removed from SRMonitor.");
}

void SRServiceMonitor::removeUUIDs()
{
    Util::ScopedLock lock(m_listMutex);
    m_serviceUUIDs.clear();
    noteListSize();
}

void SRServiceMonitor::onCheckInterval(Poco::Timer& /*timer*/)
{
    MONITOR_LOG(TRACE, "");
    const RegistryExchangeLimit::Scope scope(m_limit);
    std::uint32_t period = m_T_Check_SR;
    restartTimer(period); // back to the normal period after a retry
    RegistrySession session(EXCHANGE_SECONDS);
    checkServiceRegistry(session, period);
    if (period != m_T_Check_SR)
        restartTimer(period);
    // Looked at without the mutex, on purpose: a stale answer costs one cycle at most.
    if (m_SRStatus == REACHABLE && m_hasUUIDs)
        checkServiceEntries(session);
}

void SRServiceMonitor::checkServiceRegistry(Poco::Net::HTTPClientSession& session, std::uint32_t& period)
{
    if (period == 0)
        return;
    try
    {
        BoundedResponse response;
        const HTTPResponse::HTTPStatus status = check(session, "/", response);
        MONITOR_LOG(TRACE, " Check for Service Registry, result: " << static_cast<int>(status));
        if (status != HTTPResponse::HTTP_OK)
        {
            MONITOR_LOG(TRACE, " ServiceRegistry unavailable. (retry count: " << unsigned(m_retryCount) << ")");
            period = static_cast<std::uint32_t>(checkSRFailed());
        }
        else if (m_SRStatus != REACHABLE)
        {
            m_SRStatus = REACHABLE;
            ServiceRegistryStatus.notify(nullptr, m_SRStatus);
        }
    }
    catch (const Poco::Exception&) // no connection, no answer in time
    {
        period = static_cast<std::uint32_t>(checkSRFailed());
    }
}

void SRServiceMonitor::checkServiceEntries(Poco::Net::HTTPClientSession& session)
{
    Util::ScopedLock lock(m_listMutex);
    BoundedResponse response;
    UUIDList_t lost;
    for (auto uuid = m_serviceUUIDs.begin(); uuid != m_serviceUUIDs.end() && !m_isCleared;)
    {
        const HTTPResponse::HTTPStatus status = check(session, "/" + *uuid, response);
        MONITOR_LOG(TRACE, " Service check for " << *uuid << " result: " << static_cast<int>(status));
        if (status == HTTPResponse::HTTP_OK || status == HTTPResponse::HTTP_FOUND ||
            status == HTTPResponse::HTTP_TEMPORARY_REDIRECT)
        {
            ++uuid;
            continue;
        }
        lost.push_back(*uuid);
        MONITOR_LOG(INFO, " Service with id " << *uuid << " not found in service registry.");
        MONITOR_LOG(TRACE, " Remove id " << *uuid << " from SRMonitor.");
        uuid = m_serviceUUIDs.erase(uuid);
        noteListSize();
    }
    for (std::string& uuid: lost)
        ServiceEntryGone.notify(nullptr, uuid);
}

long SRServiceMonitor::checkSRFailed()
{
    MONITOR_LOG(TRACE, " ServiceRegistry unavailable. (retry count: " << unsigned(m_retryCount) << ")");
    ++m_retryCount;
    if (m_retryCount <= N_ReadSR_Retry)
    {
        m_SRStatus = UNKNOWN;
        return T_ReadSR_Retry;
    }
    m_SRStatus = UNREACHABLE;
    ServiceRegistryStatus.notify(nullptr, m_SRStatus);
    m_retryCount = 0;
    MONITOR_LOG(TRACE, " ServiceRegistry N_ReadSR_Retry reached.");
    return static_cast<long>(m_SRFailRetryFactor) * T_ReadSR_Retry;
}

void SRServiceMonitor::restartTimer(std::uint32_t period)
{
    Util::ScopedLock lock(m_endMutex);
    if (!m_isEnding)
        m_timer.restart(period);
}

void SRServiceMonitor::noteListSize()
{
    m_hasUUIDs = !m_serviceUUIDs.empty();
}

} // namespace Kesa::Service
