#pragma once

#include "ThreadAnnotations.h"

#include <Poco/Mutex.h>
#include <Poco/RWLock.h>

namespace Kesa::Util
{

/// POCO's recursive mutex with the marks of Clang's thread-safety analysis. Same cost, same behaviour.
class KESA_CAPABILITY("mutex") Mutex: public Poco::Mutex
{
public:
    void lock() KESA_ACQUIRE() { Poco::Mutex::lock(); }
    bool tryLock() KESA_TRY_ACQUIRE(true) { return Poco::Mutex::tryLock(); }
    void unlock() KESA_RELEASE() { Poco::Mutex::unlock(); }
};

/// POCO's mutex that is not recursive, with the same marks.
class KESA_CAPABILITY("mutex") FastMutex: public Poco::FastMutex
{
public:
    void lock() KESA_ACQUIRE() { Poco::FastMutex::lock(); }
    bool tryLock() KESA_TRY_ACQUIRE(true) { return Poco::FastMutex::tryLock(); }
    void unlock() KESA_RELEASE() { Poco::FastMutex::unlock(); }
};

/// POCO's reader and writer lock with the same marks.
class KESA_CAPABILITY("mutex") RWLock: public Poco::RWLock
{
public:
    void readLock() KESA_ACQUIRE_SHARED() { Poco::RWLock::readLock(); }
    void writeLock() KESA_ACQUIRE() { Poco::RWLock::writeLock(); }
    void unlock() KESA_RELEASE_GENERIC() { Poco::RWLock::unlock(); }
};

/// Holds a Mutex or FastMutex for its own lifetime; unlock() and lock() open and close it in between.
template <class M>
class KESA_SCOPED_CAPABILITY ScopedLock
{
public:
    explicit ScopedLock(M& mutex) KESA_ACQUIRE(mutex): m_mutex(mutex), m_held(true) { m_mutex.lock(); }
    ~ScopedLock() KESA_RELEASE()
    {
        if (m_held)
            m_mutex.unlock();
    }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

    void lock() KESA_ACQUIRE()
    {
        m_mutex.lock();
        m_held = true;
    }
    void unlock() KESA_RELEASE()
    {
        m_held = false;
        m_mutex.unlock();
    }

private:
    M& m_mutex;
    bool m_held;
};

/// Holds an RWLock for reading for its own lifetime.
class KESA_SCOPED_CAPABILITY ReadLock
{
public:
    explicit ReadLock(RWLock& lock) KESA_ACQUIRE_SHARED(lock): m_lock(lock) { m_lock.readLock(); }
    ~ReadLock() KESA_RELEASE() { m_lock.Poco::RWLock::unlock(); }
    ReadLock(const ReadLock&) = delete;
    ReadLock& operator=(const ReadLock&) = delete;

private:
    RWLock& m_lock;
};

/// Holds an RWLock for writing for its own lifetime.
class KESA_SCOPED_CAPABILITY WriteLock
{
public:
    explicit WriteLock(RWLock& lock) KESA_ACQUIRE(lock): m_lock(lock) { m_lock.writeLock(); }
    ~WriteLock() KESA_RELEASE() { m_lock.Poco::RWLock::unlock(); }
    WriteLock(const WriteLock&) = delete;
    WriteLock& operator=(const WriteLock&) = delete;

private:
    RWLock& m_lock;
};

} // namespace Kesa::Util
