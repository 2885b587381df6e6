kesa_service_test(ServiceDataAccessTest
    QueryResponseTest.cpp
    ServiceDataAccessPointTest.cpp
    VersionCheckTest.cpp)
