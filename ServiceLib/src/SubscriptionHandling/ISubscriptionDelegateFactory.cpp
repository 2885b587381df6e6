#include <SubscriptionHandling/ISubscriptionDelegateFactory.h>

#include <Poco/Bugcheck.h>

namespace Kesa::Service
{

ISubscriptionDataSource::~ISubscriptionDataSource() = default;

ISubscriptionInterface::~ISubscriptionInterface() = default;

ISubscriptionDelegateFactory::~ISubscriptionDelegateFactory() = default;

Poco::Delegate<ISubscriptionInterface, SubscriptionObject*, false> ISubscriptionDelegateFactory::createDelegate()
{
    return Poco::Delegate<ISubscriptionInterface, SubscriptionObject*, false>(getSource(),
                                                                              &ISubscriptionInterface::sendUpdate);
}

DefaultSubscriptionDelegateFactory::DefaultSubscriptionDelegateFactory(ISubscriptionInterface* source)
    : m_subscriptionInterface(source)
{
}

ISubscriptionInterface* DefaultSubscriptionDelegateFactory::getSource() const
{
    if (!m_subscriptionInterface)
        Poco::Bugcheck::bugcheck("SubscriptionTrigger not available", __FILE__, __LINE__);
    return m_subscriptionInterface;
}

} // namespace Kesa::Service
