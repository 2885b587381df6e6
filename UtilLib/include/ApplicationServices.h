#pragma once

#include "ServiceLocator.h"

/// The typed access to the process's one ServiceLocator. Any thread.
class KESA_API ApplicationServices
{
public:
    /// The locator; null after setLocator(nullptr).
    static ServiceLocator* getLocator();
    /// Replaces the locator; it stays the caller's. Null leaves the process without one.
    static void setLocator(ServiceLocator* locator);

    /// The object registered for T, or null.
    template <class T>
    static Poco::SharedPtr<T> getService()
    {
        ServiceLocator* locator = getLocator();
        return locator ? locator->getService<T>() : Poco::SharedPtr<T>();
    }

    /// Registers `service` under T, beside others that stand there already. A null pointer and an object that is
    /// registered already are left out. False only without a locator.
    template <class T>
    static bool registerService(Poco::SharedPtr<T> service)
    {
        ServiceLocator* locator = getLocator();
        if (!locator)
            return false;
        if (service.isNull() || locator->getService<T>() == service)
            return true;
        locator->insert(&typeid(T), Poco::Any(service));
        return true;
    }

    /// Removes every entry of T. True when an entry went.
    template <class T>
    static bool unregisterService()
    {
        ServiceLocator* locator = getLocator();
        bool removed = false;
        while (locator && locator->erase(&typeid(T)))
            removed = true;
        return removed;
    }
};
