#pragma once

#include "Export.h"

#include <Poco/Types.h>

#include <atomic>

namespace Kesa::Service
{

/// Ends the exchanges of another thread with the service registry, so that nobody who stops has to wait for a registry
/// that does not answer.
///
///     const RegistryExchangeLimit::Scope scope(limit);        // the thread that exchanges
///     ServiceRegistryAbstraction::registerService(service);   // reports false when the limit ends it
///
///     limit.endIn(2000);                                      // the thread that stops
///
/// A monitor that is built within a scope has its checks bound by the same limit.
///
/// Ownership: must outlive its scopes and the monitors that were built within them.
/// Threads:   every operation from any thread; a scope stays on its own.
class KESA_API RegistryExchangeLimit
{
public:
    RegistryExchangeLimit();
    RegistryExchangeLimit(const RegistryExchangeLimit&) = delete;
    RegistryExchangeLimit& operator=(const RegistryExchangeLimit&) = delete;

    /// Running and later exchanges fail from so many milliseconds on, 0 or more; a tenth of a second late at most.
    void endIn(long milliseconds);
    /// The end in microseconds of the libraries' clock; far away at first.
    Poco::Int64 end() const { return m_end; }

    /// The limit of the calling thread's innermost scope, or null.
    static RegistryExchangeLimit* current();

    /// Binds the exchanges of the calling thread for its own lifetime.
    class KESA_API Scope
    {
    public:
        /// Null: no limit.
        explicit Scope(RegistryExchangeLimit* limit);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        RegistryExchangeLimit* const m_outer;
    };

private:
    std::atomic<Poco::Int64> m_end; ///< atomic: moved by any thread
};

} // namespace Kesa::Service
