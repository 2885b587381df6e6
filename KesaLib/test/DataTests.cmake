kesa_test(KesaDataTest
    SOURCES AttributeContainerTest.cpp AttributeTest.cpp AttributeValueTest.cpp ElementGenericTest.cpp GenericObjectTest.cpp
            MicroServiceInfoTest.cpp ServiceBaseTest.cpp XObjectBaseTest.cpp
    LIBRARIES Kesa::KesaLib)
