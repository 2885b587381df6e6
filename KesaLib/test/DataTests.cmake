kesa_test(KesaDataTest
    SOURCES AttributeContainerTest.cpp AttributeTest.cpp AttributeValueTest.cpp DataTypesTest.cpp ElementGenericTest.cpp GenericObjectTest.cpp
            MicroServiceInfoTest.cpp ServiceBaseTest.cpp XObjectBaseTest.cpp
    LIBRARIES Kesa::KesaLib)
