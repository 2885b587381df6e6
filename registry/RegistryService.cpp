#include "RegistryService.h"

#include <LogStream.h>

namespace Kesa::Registry
{

RegistryService::RegistryService(std::unique_ptr<EntryStore> store)
    : m_store(std::move(store)), m_trigger(new RegistryTrigger(*m_store))
{
}

RegistryService::~RegistryService()
{
    shutdown();
}

EntryStore::Outcome RegistryService::add(const EntryPtr& entry)
{
    const EntryStore::Outcome outcome = m_store->add(entry);
    if (outcome == EntryStore::Outcome::Done)
    {
        KESA_LOG_INFO("Registered '" << entry->name << "' at " << entry->address.toString() << " as " << entry->id);
        m_trigger->reportAdded(*entry);
    }
    return outcome;
}

EntryStore::Outcome RegistryService::remove(const std::string& id)
{
    EntryPtr removed;
    const EntryStore::Outcome outcome = m_store->remove(id, &removed);
    if (outcome == EntryStore::Outcome::Done)
    {
        KESA_LOG_INFO("Removed '" << removed->name << "', " << id << ", as it asked");
        m_trigger->reportRemoved(*removed);
    }
    return outcome;
}

Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> RegistryService::createSubscriptionInterface()
{
    return m_trigger;
}

bool RegistryService::startupImpl()
{
    return true;
}

bool RegistryService::shutdownImpl()
{
    return true;
}

} // namespace Kesa::Registry
