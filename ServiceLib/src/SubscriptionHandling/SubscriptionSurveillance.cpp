#include "SubscriptionSurveillance.h"

#include "OnChangeSubscriptionObject.h"

#include <LogStream.h>
#include <Time/Now.h>

#include <Poco/Exception.h>

#include <algorithm>
#include <sstream>

namespace Kesa::Service
{

using Util::FastMutex;
using Util::Mutex;
using Util::ScopedLock;

namespace
{

constexpr uint32_t TICKS_BETWEEN_NOTICES = 6;

uint32_t millisecondsSince(const Poco::Clock& begin)
{
    return static_cast<uint32_t>((Util::now() - begin) / 1000);
}

} // namespace

SubscriptionSurveillance::SubscriptionSurveillance()
    : m_timer(SURVEILLANCE_INTERVAL_MS, SURVEILLANCE_INTERVAL_MS),
      m_isRunning(false),
      m_infoCounter(0),
      m_globalMaxLoadData(0),
      m_globalMaxTotal(0),
      m_localMaxLoadData(0),
      m_localMaxTotal(0)
{
}

SubscriptionSurveillance::~SubscriptionSurveillance()
{
    m_timer.stop();
}

void SubscriptionSurveillance::add(OnChangeSubscriptionObject* subscription)
{
    if (!subscription)
        return;
    ScopedLock<FastMutex> timerLock(m_timerMutex); // then m_mutex
    {
        ScopedLock<Mutex> lock(m_mutex);
        m_surveillanceInfos.emplace(subscription, Info());
    }
    if (!m_isRunning)
        m_isRunning = startTimer();
}

bool SubscriptionSurveillance::startTimer()
{
    try
    {
        m_timer.setPeriodicInterval(SURVEILLANCE_INTERVAL_MS); // stop() has set it to 0
        m_timer.start(
            Poco::TimerCallback<SubscriptionSurveillance>(*this, &SubscriptionSurveillance::handleSurveillanceTimer));
        return true;
    }
    catch (const Poco::Exception& exc) // the default pool may have no thread; the next subscription tries again
    {
        KESA_LOG_ERROR("SubscriptionSurveillance - cannot start its timer: " << exc.displayText());
        return false;
    }
}

void SubscriptionSurveillance::remove(OnChangeSubscriptionObject* subscription)
{
    if (!subscription)
        return;
    ScopedLock<FastMutex> timerLock(m_timerMutex); // then m_mutex
    {
        ScopedLock<Mutex> lock(m_mutex);
        m_surveillanceInfos.erase(subscription);
        if (!m_surveillanceInfos.empty())
            return;
        m_globalMaxLoadData = m_globalMaxTotal = m_localMaxLoadData = m_localMaxTotal = 0;
    }
    // Waits for a running callback, which needs m_mutex.
    if (m_isRunning)
        m_timer.stop();
    m_isRunning = false;
}

void SubscriptionSurveillance::update(OnChangeSubscriptionObject* subscription, EventType event)
{
    ScopedLock<Mutex> lock(m_mutex);
    const auto entry = m_surveillanceInfos.find(subscription);
    if (entry == m_surveillanceInfos.end())
        return;
    Info& info = entry->second;
    switch (event)
    {
    case TRIGGERED:
        if (info.triggered == Poco::Clock(0))
            info.triggered = Util::now();
        break;
    case START_LOADING_DATA:
        info.loadData = Util::now();
        break;
    case FINISHED_LOADING_DATA:
        if (info.loadData != Poco::Clock(0)) // else another thread has finished meanwhile
            evaluateLoading(millisecondsSince(info.loadData), subscription);
        break;
    case SENDING_UPDATE:
        if (info.triggered != Poco::Clock(0))
            evaluateTotal(millisecondsSince(info.triggered), subscription);
        break;
    case FINISHED:
        info = Info();
        break;
    }
}

void SubscriptionSurveillance::evaluateLoading(const uint32_t& loadingMs, OnChangeSubscriptionObject* subscr)
{
    const uint32_t CRITICAL_DURATION = 500;
    if (!subscr || loadingMs <= m_localMaxLoadData)
        return;
    if (loadingMs > CRITICAL_DURATION)
        KESA_LOG_WARNING("SubscriptionSurveillance - high loading time: " << loadingMs << " ms for "
                                                                          << subscr->getEvent().toString());
    m_localMaxLoadData = loadingMs;
}

void SubscriptionSurveillance::evaluateTotal(const uint32_t& totalMs, OnChangeSubscriptionObject* subscr)
{
    const uint32_t CRITICAL_DURATION = 500;
    if (!subscr || totalMs <= m_localMaxTotal)
        return;
    const int64_t updateLimit = subscr->getUpdateLimit();
    if (totalMs > updateLimit && totalMs - updateLimit > CRITICAL_DURATION)
        KESA_LOG_WARNING("SubscriptionSurveillance - high total time: " << totalMs << " ms for "
                                                                        << subscr->getEvent().toString()
                                                                        << "(update limit: " << updateLimit << " ms)");
    m_localMaxTotal = totalMs;
    m_slowestSubscription = subscr->peerAddress().toString() + " " + subscr->getEvent().toString();
}

void SubscriptionSurveillance::handleSurveillanceTimer(Poco::Timer&)
{
    ScopedLock<Mutex> lock(m_mutex);
    const bool doFullReport = m_infoCounter == 0;
    m_infoCounter = doFullReport ? TICKS_BETWEEN_NOTICES - 1 : m_infoCounter - 1;
    if (m_surveillanceInfos.empty())
        return;
    m_globalMaxTotal = std::max(m_globalMaxTotal, m_localMaxTotal);
    m_globalMaxLoadData = std::max(m_globalMaxLoadData, m_localMaxLoadData);
    reportMaxima(doFullReport);
}

void SubscriptionSurveillance::reportMaxima(bool doFullReport)
{
    std::ostringstream line;
    line << "SubscriptionSurveillance - max durations (ms): "
         << " global - loading " << m_globalMaxLoadData << ", total " << m_globalMaxTotal << "; recent - loading "
         << m_localMaxLoadData << ", total " << m_localMaxTotal;
    if (!doFullReport)
    {
        KESA_LOG_TRACE(line.str());
        return;
    }
    KESA_LOG_NOTICE(line.str() << " (" << m_slowestSubscription << ")");
    m_localMaxTotal = 0;
    m_localMaxLoadData = 0;
    m_slowestSubscription.clear();
}

} // namespace Kesa::Service
