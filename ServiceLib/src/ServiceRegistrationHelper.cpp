#include "ServiceRegistrationHelper.h"

#include "ServiceRegistry.h"

#include <LogStream.h>

namespace Kesa::Service
{

ServiceRegistrationHelper::ServiceRegistrationHelper() = default;

ServiceRegistrationHelper::~ServiceRegistrationHelper() = default;

bool ServiceRegistrationHelper::registerService(Data::ServiceBase& service)
{
    bool result = false;
    try
    {
        MicroServiceInfo info(service);
        if (ServiceRegistryAbstraction::registerService(info))
        {
            service.setRegistryId(info.getId());
            m_microServiceInfoList.push_back(std::move(info));
            result = true;
        }
    }
    catch (const std::exception& exception)
    {
        KESA_LOG_ERROR("registerService: caught exception: " << exception.what() << " failed.");
    }
    if (!result)
        KESA_LOG_ERROR("Registration of service " << service.getName() << " failed.");
    return result;
}

void ServiceRegistrationHelper::unregisterService(const std::string& serviceName, Poco::UInt16 port)
{
    for (auto entry = m_microServiceInfoList.begin(); entry != m_microServiceInfoList.end(); ++entry)
    {
        if (entry->getName() != serviceName || entry->getPort() != port)
            continue;
        if (ServiceRegistryAbstraction::unregisterService(*entry))
            m_microServiceInfoList.erase(entry);
        return; // at most one entry is touched, also where a second one has the same name and port
    }
}

void ServiceRegistrationHelper::unregisterServices()
{
    for (auto entry = m_microServiceInfoList.begin(); entry != m_microServiceInfoList.end();)
    {
        if (ServiceRegistryAbstraction::unregisterService(*entry))
            entry = m_microServiceInfoList.erase(entry);
        else
            ++entry;
    }
}

} // namespace Kesa::Service
