#include <ClientConnectionInformation.h>

#include <gtest/gtest.h>

namespace
{

using Kesa::Net::ClientConnectionInformation;
using Kesa::Net::ClientData;

ClientConnectionInformation clientOf(ClientData::ClientType type)
{
    ClientConnectionInformation client;
    client.clientData.clientType = type;
    return client;
}

struct Kind
{
    ClientData::ClientType type;
    bool isSuperUser, isInternal, isExternal, isLimited;
};

class ClientKinds: public testing::TestWithParam<Kind>
{
};

TEST_P(ClientKinds, DecideTheQueries)
{
    const ClientConnectionInformation client = clientOf(GetParam().type);
    EXPECT_EQ(client.isSuperUser(), GetParam().isSuperUser);
    EXPECT_EQ(client.isSystemInternal(), GetParam().isInternal);
    EXPECT_EQ(client.isSystemExternal(), GetParam().isExternal);
    EXPECT_EQ(client.isWSLimited(), GetParam().isLimited);
}

INSTANTIATE_TEST_SUITE_P(All, ClientKinds,
                         testing::Values(Kind{ClientData::UnknownClient, false, false, true, true},
                                         Kind{ClientData::InternalClient, false, true, false, false},
                                         Kind{ClientData::InternalClientSuperuser, true, true, false, false},
                                         Kind{ClientData::ProxyAppClient, false, false, false, true},
                                         Kind{ClientData::ContainerAppClient, false, false, false, true},
                                         Kind{ClientData::SystemExternalClient, false, false, true, true}));

TEST(ClientConnectionInformationTest, StartsWithNothingKnown)
{
    const ClientConnectionInformation client;
    EXPECT_FALSE(client.isInitialised());
    EXPECT_EQ(client.serverPort, 0);
    EXPECT_EQ(client.connectionState, Kesa::Net::UNSECURE);
    EXPECT_EQ(client.clientData.clientType, ClientData::UnknownClient);
    EXPECT_EQ(client.clientData.internalClientId, 0u);
}

TEST(ClientConnectionInformationTest, IsInitialisedWhenKindAndPortAreKnown)
{
    ClientConnectionInformation client = clientOf(ClientData::InternalClient);
    EXPECT_FALSE(client.isInitialised());
    client.serverPort = 8080;
    EXPECT_TRUE(client.isInitialised());
}

TEST(ClientConnectionInformationTest, TellsAllThatIsKnownInOneLine)
{
    ClientConnectionInformation client = clientOf(ClientData::InternalClient);
    client.clientAddr = Poco::Net::SocketAddress("127.0.0.1", 4711);
    client.serverPort = 8080;
    client.connectionState = Kesa::Net::SECURE_ESTABLISHED;
    client.clientData.internalClientId = 7;
    client.username = "anna";
    client.swid = "viewer-2";
    EXPECT_EQ(client.toString(),
              "127.0.0.1:4711 to port 8080, secure, internal client 7, user anna, software viewer-2");
}

TEST(ClientConnectionInformationTest, NumbersAreTheOnesOfTheWire)
{
    EXPECT_EQ(sizeof(ClientData), 8u);
    EXPECT_EQ(ClientData::SystemExternalClient, 5u);
    EXPECT_EQ(Kesa::Net::SECURE_CONNECTING, 1u);
    EXPECT_EQ(Kesa::Net::SECURE_ESTABLISHED, 2u);
    EXPECT_EQ(sizeof(Kesa::Net::ConnectionState), 4u);
}

} // namespace
