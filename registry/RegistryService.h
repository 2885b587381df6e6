#pragma once

#include "EntryStore.h"
#include "LivenessChecker.h"
#include "RegistryTrigger.h"

#include <GenericServiceBootstrap.h>

#include <memory>
#include <string>
#include <vector>

namespace Kesa::Registry
{

/// The registry: its entries, kept over a restart if it has a file, told to those who follow them, and removed when
/// their services no longer answer.
///
/// Ownership: owns all its parts.
/// Threads:   startup() and shutdown() from one thread at a time; add(), remove() and entries() from any, between them.
class RegistryService: public Kesa::Service::GenericServiceBootstrap
{
public:
    explicit RegistryService(std::unique_ptr<EntryStore> store, const LivenessChecker::Options& checks = {});
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
    void removeDead(const std::vector<std::string>& ids);

    const std::unique_ptr<EntryStore> m_store;
    RegistryTrigger::Ptr m_trigger;
    const LivenessChecker::Options m_checks;
    std::unique_ptr<LivenessChecker> m_checker; ///< null while the service is stopped
};

} // namespace Kesa::Registry
