#include "RegistryExchangeLimit.h"

#include <Time/Now.h>

#include <limits>

namespace Kesa::Service
{

namespace
{
thread_local RegistryExchangeLimit* limitOfThread = nullptr;
} // namespace

RegistryExchangeLimit::RegistryExchangeLimit(): m_end(std::numeric_limits<Poco::Int64>::max()) {}

void RegistryExchangeLimit::endIn(long milliseconds)
{
    m_end = Util::now().raw() + milliseconds * Poco::Int64(1000);
}

RegistryExchangeLimit* RegistryExchangeLimit::current()
{
    return limitOfThread;
}

RegistryExchangeLimit::Scope::Scope(RegistryExchangeLimit* limit): m_outer(limitOfThread)
{
    limitOfThread = limit;
}

RegistryExchangeLimit::Scope::~Scope()
{
    limitOfThread = m_outer;
}

} // namespace Kesa::Service
