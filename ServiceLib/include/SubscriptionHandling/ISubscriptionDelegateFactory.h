#pragma once

#include "Export.h"
#include "SubscriptionInterfaces.h"

#include <Poco/Delegate.h>

namespace Kesa::Service
{

/// Hands the data source to those who serve requests, so that they never depend on the concrete trigger.
class KESA_API ISubscriptionDelegateFactory
{
public:
    virtual ~ISubscriptionDelegateFactory();

    /// The data source for new subscriptions; not owned.
    virtual ISubscriptionInterface* getSource() const = 0;
    /// A delegate that binds sendUpdate() of getSource(), for a service's own events of SubscriptionObject*.
    virtual Poco::Delegate<ISubscriptionInterface, SubscriptionObject*, false> createDelegate();
};

/// The factory whose source is one given object, in practice the service's SubscriptionTrigger.
class KESA_API DefaultSubscriptionDelegateFactory: public ISubscriptionDelegateFactory
{
public:
    /// Borrows the source for as long as it lives.
    explicit DefaultSubscriptionDelegateFactory(ISubscriptionInterface* source);

    /// A null source is a fault of the program: ends in Poco::Bugcheck.
    ISubscriptionInterface* getSource() const override;

private:
    ISubscriptionInterface* m_subscriptionInterface;
};

} // namespace Kesa::Service
