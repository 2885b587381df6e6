#pragma once

#include "EntryStore.h"
#include "RegistryTrigger.h"

#include <GenericServiceBootstrap.h>

#include <memory>
#include <string>
#include <vector>

namespace Kesa::Registry
{

/// The registry: its entries, kept over a restart if it has a file, and told to those who follow them.
///
/// Ownership: owns all its parts.
/// Threads:   startup() and shutdown() from one thread at a time; add(), remove() and entries() from any, between them.
/// Errors:    the constructor raises Poco::Exception when the file cannot be used.
class RegistryService: public Kesa::Service::GenericServiceBootstrap
{
public:
    explicit RegistryService(std::unique_ptr<EntryStore> store);
    ~RegistryService() override;

    /// Adds an entry and tells those who follow.
    EntryStore::Outcome add(const EntryPtr& entry);
    /// Removes an entry and tells those who follow.
    EntryStore::Outcome remove(const std::string& id);

    const EntryStore& entries() const { return *m_store; }

protected:
    Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> createSubscriptionInterface() override;
    bool startupImpl() override;
    bool shutdownImpl() override;

private:
    const std::unique_ptr<EntryStore> m_store;
    RegistryTrigger::Ptr m_trigger;
};

} // namespace Kesa::Registry
