#include "ApplicationServices.h"

#include <atomic>

namespace
{
/// Never destroyed, so that services may still unregister while static objects go.
std::atomic<ServiceLocator*>& currentLocator()
{
    static std::atomic<ServiceLocator*> locator{new ServiceLocator};
    return locator;
}
} // namespace

ServiceLocator* ApplicationServices::getLocator()
{
    return currentLocator();
}

void ApplicationServices::setLocator(ServiceLocator* locator)
{
    currentLocator() = locator;
}
