# The registry's address is fixed, so whatever listens there runs alone.
kesa_test(ServiceRegistryTest
    SOURCES
        HostileRegistryTest.cpp
        RegistryExchangeLimitTest.cpp
        ServiceListTest.cpp
        ServiceRegistrationHelperTest.cpp
        ServiceRegistryTest.cpp
    LIBRARIES Kesa::ServiceLib
    RESOURCE_LOCK kesa-registry-port)

# The monitor's periods are fixed too: these tests take their real time, a minute in all.
kesa_test(ServiceRegistryMonitorTest
    SOURCES SRServiceMonitorTest.cpp
    LIBRARIES Kesa::ServiceLib
    LABELS real-time
    RESOURCE_LOCK kesa-registry-port)
