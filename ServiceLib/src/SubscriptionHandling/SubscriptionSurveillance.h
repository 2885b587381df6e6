#pragma once

#include <Export.h>
#include <Mutex.h>

#include <Poco/Clock.h>
#include <Poco/Timer.h>

#include <cstdint>
#include <map>
#include <string>

namespace Kesa::Service
{

class OnChangeSubscriptionObject;

/// Measures how long on-change subscriptions take from a change of data to the send, warns when that is too long, and
/// logs the longest times every minute. Only observes.
///
/// Ownership: none; a subscription enters in its constructor and leaves in its destructor.
/// Threads:   every operation from any thread. The report runs on the timer's thread. m_mutex is the innermost lock of
/// delivery.
class KESA_API SubscriptionSurveillance
{
public:
    enum EventType
    {
        TRIGGERED = 0,
        START_LOADING_DATA = 1,
        FINISHED_LOADING_DATA = 2,
        SENDING_UPDATE = 3,
        FINISHED = 4
    };

    static const long SURVEILLANCE_INTERVAL_MS = 10000;

    SubscriptionSurveillance();
    ~SubscriptionSurveillance();
    SubscriptionSurveillance(const SubscriptionSurveillance&) = delete;
    SubscriptionSurveillance& operator=(const SubscriptionSurveillance&) = delete;

    /// A null pointer and one that is watched already change nothing.
    void add(OnChangeSubscriptionObject* subscription);
    /// The last one that leaves resets the maxima and stops the timer; waits for a report that is running.
    void remove(OnChangeSubscriptionObject* subscription);
    /// Tells a stage of delivery; nothing for a subscription that is not watched.
    void update(OnChangeSubscriptionObject* subscription, EventType event);

private:
    /// The clocks of one subscription; 0 means not running.
    struct Info
    {
        Info(): triggered(0), loadData(0) {}

        Poco::Clock triggered; ///< when the first unserved change arrived
        Poco::Clock loadData;  ///< when the current load began
    };
    typedef std::map<OnChangeSubscriptionObject*, Info> SurveillanceMap;

    void evaluateLoading(const uint32_t& loadingMs, OnChangeSubscriptionObject* subscr) KESA_REQUIRES(m_mutex);
    void evaluateTotal(const uint32_t& totalMs, OnChangeSubscriptionObject* subscr) KESA_REQUIRES(m_mutex);
    void handleSurveillanceTimer(Poco::Timer& timer);
    void reportMaxima(bool doFullReport) KESA_REQUIRES(m_mutex);
    bool startTimer() KESA_REQUIRES(m_timerMutex);

    Util::FastMutex m_timerMutex; ///< start and stop of the timer, one at a time; before m_mutex, never in the callback
    Util::Mutex m_mutex;
    Poco::Timer m_timer;
    bool m_isRunning KESA_GUARDED_BY(m_timerMutex);
    uint32_t m_infoCounter KESA_GUARDED_BY(m_mutex); ///< ticks until the next Notice
    SurveillanceMap m_surveillanceInfos KESA_GUARDED_BY(m_mutex);
    uint32_t m_globalMaxLoadData KESA_GUARDED_BY(m_mutex); ///< ms
    uint32_t m_globalMaxTotal KESA_GUARDED_BY(m_mutex);
    uint32_t m_localMaxLoadData KESA_GUARDED_BY(m_mutex); ///< since the last Notice
    uint32_t m_localMaxTotal KESA_GUARDED_BY(m_mutex);
    std::string m_slowestSubscription KESA_GUARDED_BY(m_mutex); ///< holder of m_localMaxTotal
};

/// The one surveillance of the process.
KESA_API extern SubscriptionSurveillance WATCHDOG;

} // namespace Kesa::Service
