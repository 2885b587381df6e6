kesa_service_test(ServiceFrontTest
    SubscriptionEventFilterTest.cpp
    SubscriptionEventsTest.cpp
    SubscriptionTriggerTest.cpp)
