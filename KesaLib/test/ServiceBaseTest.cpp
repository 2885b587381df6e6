#include <Data/MicroServiceInfo.h>

#include <gtest/gtest.h>

using namespace Kesa::Data;

namespace
{

/// A service whose ports a test sets.
class Ports: public Kesa::MicroServiceInfo
{
public:
    Poco::UInt16 getPort() const override { return 80; }
    std::map<std::string, Poco::UInt16> getPorts() const override { return m_ports; }

    std::map<std::string, Poco::UInt16> m_ports;
};

TEST(ServiceBaseTest, AllPortsBeginWithTheServicesOwn)
{
    Ports service;
    EXPECT_EQ(service.getAllPorts(), (std::vector<Poco::UInt16>{80}));
    service.m_ports = {{"secure", 443}, {"admin", 9000}};
    EXPECT_EQ(service.getAllPorts(), (std::vector<Poco::UInt16>{80, 9000, 443}));
}

TEST(ServiceBaseTest, AllPortsHoldEachPortOnce)
{
    Ports service;
    service.m_ports = {{"plain", 80}, {"admin", 9000}, {"ops", 9000}};
    EXPECT_EQ(service.getAllPorts(), (std::vector<Poco::UInt16>{80, 9000}));
}

} // namespace
