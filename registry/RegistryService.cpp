#include "RegistryService.h"

#include <LogStream.h>

namespace Kesa::Registry
{

RegistryService::RegistryService(std::unique_ptr<EntryStore> store, const LivenessChecker::Options& checks)
    : m_store(std::move(store)), m_trigger(new RegistryTrigger(*m_store)), m_checks(checks)
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
        m_checker->watch(*entry, false); // first: what is listed and not watched would stay for ever
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

/// The front door is not open yet, and the trigger attached: nobody else uses the checker.
bool RegistryService::startupImpl()
{
    m_checker =
        std::make_unique<LivenessChecker>([this](const std::string& id) { return m_store->find(id) != nullptr; },
                                          [this](const std::vector<std::string>& ids) { removeDead(ids); }, m_checks);
    for (const EntryPtr& entry: m_store->entries())
        m_checker->watch(*entry, true);
    m_checker->start();
    return true;
}

bool RegistryService::shutdownImpl()
{
    m_checker.reset();
    return true;
}

void RegistryService::removeDead(const std::vector<std::string>& ids)
{
    for (const EntryPtr& entry: m_store->remove(ids))
    {
        KESA_LOG_NOTICE("Removed '" << entry->name << "', " << entry->id << ": nothing answers at "
                                    << entry->address.toString() << " any more");
        m_trigger->reportRemoved(*entry);
    }
}

} // namespace Kesa::Registry
