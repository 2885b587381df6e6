kesa_service_test(ServiceStoreTest
    SubscriptionRequestTest.cpp
    GroupedSubscriptionListTest.cpp
    SubscriptionTreeNodeTest.cpp
    SubscriptionTreeTest.cpp
    SubscriptionTreeStormTest.cpp
    SubscriptionMatchingTest.cpp)
