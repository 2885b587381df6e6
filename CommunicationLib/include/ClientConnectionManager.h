#pragma once

#include "Export.h"

#include <Poco/Mutex.h>
#include <Poco/Net/IPAddress.h>
#include <Poco/SharedPtr.h>
#include <Poco/Types.h>

#include <cstddef>
#include <map>

namespace Kesa::Net
{

/// Counts the clients of a service by address and says whether one more may come.
///
/// Ownership: shared through Ptr; registered in the ServiceLocator under this type.
/// Threads:   every operation from any thread; the virtual ones take this object's mutex.
/// Errors:    a refusal is a result; nothing is raised.
///
/// A service derives from it to decide otherwise.
class KESA_API ClientConnectionManager
{
public:
    typedef Poco::SharedPtr<ClientConnectionManager> Ptr;

    /// Whether something that has to be there before clients may come is there.
    class KESA_API Prerequisite
    {
    public:
        enum State : Poco::UInt32
        {
            OK = 0,           ///< it is there
            MISSING = 1,      ///< it is not there yet
            NOT_AVAILABLE = 2 ///< it will not come
        };

        Prerequisite() = default;

        Prerequisite& operator=(State state)
        {
            value = state;
            return *this;
        }

        /// True for OK.
        operator bool() const { return value == OK; }

    private:
        State value = MISSING;
    };

    /// How many connections may stand at once.
    struct KESA_API ConnectionLimits
    {
        std::size_t total = 10000;     ///< over all addresses: well under a process's usual bound of open files
        std::size_t perAddress = 1000; ///< from one address: one machine can carry many clients, or a proxy
    };

    ClientConnectionManager();
    virtual ~ClientConnectionManager();
    ClientConnectionManager(const ClientConnectionManager&) = delete;
    ClientConnectionManager& operator=(const ClientConnectionManager&) = delete;

    /// Says whether what the clients need is there; a service calls it when it is ready for them.
    virtual void setPrerequisite(Prerequisite::State state);

    /// True once the prerequisite is OK.
    virtual bool isReady() const;

    /// Replaces the limits; connections that stand already stay.
    virtual void setLimits(const ConnectionLimits& limits);

    /// Asks for a place for one more connection from this address. True: it is counted until release() is called with
    /// the same address. False: a limit is reached and nothing was counted.
    virtual bool admit(const Poco::Net::IPAddress& address);

    /// Gives a place back. An address that holds none is ignored.
    virtual void release(const Poco::Net::IPAddress& address);

    /// The places taken at present, over all addresses.
    virtual std::size_t count() const;

private:
    Prerequisite m_prerequisite; // guarded by m_mutex, as all below
    ConnectionLimits m_limits;
    mutable Poco::Mutex m_mutex;
    std::map<Poco::Net::IPAddress, std::size_t> m_connections; // address to number of places taken, never 0
};

} // namespace Kesa::Net
