#include <Data/MicroServiceInfo.h>
#include <Data/ServiceRegistryConnection.h>
#include <JSONTools.h>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

using Kesa::MicroServiceInfo;
using namespace Kesa::Data;

namespace
{

const std::string ID = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
const std::string FULL = R"({"apiVersions":["1.0","2.0"],"description":"Sells boxes","host":"127.0.0.1","id":")" + ID +
                         R"(","name":"shop","port":8080,"ports":{"admin":9000},"uri":"/shop"})";

std::unique_ptr<MicroServiceInfo> read(const std::string& json)
{
    Poco::JSON::Object::Ptr object;
    EXPECT_TRUE(Kesa::Util::JSONTools::parseJSONString(json, object)) << json;
    return std::unique_ptr<MicroServiceInfo>(MicroServiceInfo::FromJson(object));
}

std::string write(const MicroServiceInfo& entry)
{
    std::ostringstream out;
    entry.toJSON(0)->stringify(out);
    return out.str();
}

/// A service that keeps none of what its operations tell as an attribute.
class Shop: public GenericObject<ServiceBase>
{
public:
    Shop(): GenericObject<ServiceBase>(7) {}
    std::string getName() const override { return "shop"; }
    Poco::URI getUri() const override { return Poco::URI("/shop"); }
    std::string getHost() const override { return "127.0.0.1"; }
    std::string getDescription() const override { return "Sells boxes"; }
    std::vector<std::string> getApiVersions() const override { return {"1.0", "2.0"}; }
    Poco::UUID getRegistryId() const override { return m_id; }
    Poco::UInt16 getPort() const override { return 8080; }
    std::map<std::string, Poco::UInt16> getPorts() const override { return {{"admin", 9000}}; }
    void setRegistryId(const Poco::UUID& id) override { m_id = id; }

    Poco::UUID m_id;
};

TEST(MicroServiceInfoTest, TellsWhatTheEntryHolds)
{
    const auto entry = read(FULL);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->getName(), "shop");
    EXPECT_EQ(entry->getId(), Poco::UUID(ID));
    EXPECT_EQ(entry->getRegistryId(), Poco::UUID(ID));
    EXPECT_EQ(entry->getIdString(), ID);
    EXPECT_EQ(entry->getUri().toString(), "/shop");
    EXPECT_EQ(entry->getHost(), "127.0.0.1");
    EXPECT_EQ(entry->getPort(), 8080);
    EXPECT_EQ(entry->getPorts(), (std::map<std::string, Poco::UInt16>{{"admin", 9000}}));
    EXPECT_EQ(entry->getAllPorts(), (std::vector<Poco::UInt16>{8080, 9000}));
    EXPECT_EQ(entry->getApiVersions(), (std::vector<std::string>{"1.0", "2.0"}));
    EXPECT_EQ(entry->getDescription(), "Sells boxes");
    EXPECT_TRUE(entry->getResources().empty());
}

TEST(MicroServiceInfoTest, WrittenAndReadAgainItIsTheSame)
{
    for (const std::string& json:
         {FULL, std::string(R"({"host":"h","name":"n","port":1,"uri":"/n"})"),
          std::string(R"({"big":18446744073709551615,"deep":{"a":[1,{"b":null}]},"host":"h","list":[],"name":"n",)"
                      R"("nothing":null,"number":-5,"port":65535,"ratio":0.5,"text":"x","truth":true,"uri":"/n"})")})
    {
        const auto entry = read(json);
        ASSERT_TRUE(entry) << json;
        EXPECT_EQ(write(*entry), json);
        const std::unique_ptr<MicroServiceInfo> again(MicroServiceInfo::FromJson(entry->toJSON(0)));
        ASSERT_TRUE(again) << json;
        EXPECT_TRUE(*again == *entry);
        EXPECT_EQ(write(*again), json);
    }
}

TEST(MicroServiceInfoTest, UnknownMembersKeepTheirTypes)
{
    const auto entry = read(R"({"host":"h","name":"n","port":1,"uri":"/n","a":1,"b":18446744073709551615,"c":1.5,)"
                            R"("d":true,"e":"x","f":[1],"g":{"h":1},"i":null})");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->getAttribute("a")->type(), typeid(long));
    EXPECT_EQ(entry->getAttribute("b")->type(), typeid(unsigned long));
    EXPECT_EQ(entry->getAttribute("c")->type(), typeid(double));
    EXPECT_EQ(entry->getAttribute("d")->type(), typeid(bool));
    EXPECT_EQ(entry->getAttribute("e")->type(), typeid(std::string));
    EXPECT_TRUE(entry->getAttribute("f")->isArray());
    EXPECT_FALSE(entry->getAttribute("g")->isArray());
    EXPECT_TRUE(entry->hasValue("i"));
    EXPECT_TRUE(entry->getValue("i")->asGeneric().isEmpty());
}

TEST(MicroServiceInfoTest, EntryWithoutOptionalMembersHasNone)
{
    const auto entry = read(R"({"host":"h","name":"n","port":1,"uri":"/n"})");
    ASSERT_TRUE(entry);
    EXPECT_FALSE(entry->hasValue("id"));
    EXPECT_TRUE(entry->getPorts().empty());
    EXPECT_TRUE(entry->getApiVersions().empty());
    EXPECT_EQ(entry->getDescription(), "");
}

class RefusedEntryTest: public testing::TestWithParam<const char*>
{
};

TEST_P(RefusedEntryTest, GivesNull)
{
    EXPECT_FALSE(read(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(
    MissingOrWrong, RefusedEntryTest,
    testing::Values(
        "{}", R"({"host":"h","port":1,"uri":"/n"})", R"({"host":"h","name":"n","port":1})",
        R"({"name":"n","port":1,"uri":"/n"})", R"({"host":"h","name":"n","uri":"/n"})",
        R"({"host":"h","name":5,"port":1,"uri":"/n"})", R"({"host":5,"name":"n","port":1,"uri":"/n"})",
        R"({"host":"h","name":"n","port":"1","uri":"/n"})", R"({"host":"h","name":"n","port":1.0,"uri":"/n"})",
        R"({"host":"h","name":"n","port":true,"uri":"/n"})", R"({"host":"h","name":"n","port":0,"uri":"/n"})",
        R"({"host":"h","name":"n","port":-1,"uri":"/n"})", R"({"host":"h","name":"n","port":65536,"uri":"/n"})",
        R"({"host":"h","name":"n","port":18446744073709551615,"uri":"/n"})",
        R"({"host":"h","name":"n","port":1,"uri":5})", R"({"host":"h","name":"n","port":1,"uri":"http://a:b:c"})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","id":"seven"})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","id":7})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","id":null})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","id":"6ba7b810-9dad-11d1-80b4-00c04fd430c8x"})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","id":"6ba7b8109dad11d180b400c04fd430c8"})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","id":"{6ba7b810-9dad-11d1-80b4-00c04fd430c8}"})",
        R"({"host":"h","name":"n","port":[1],"uri":"/n"})", R"({"host":"h","name":"n","port":null,"uri":"/n"})",
        R"({"host":"h","name":null,"port":1,"uri":"/n"})", R"({"host":"h","name":{},"port":1,"uri":"/n"})",
        R"({"host":"h","name":"n","port":1,"uri":null})", R"({"host":"h","name":"n","port":1,"uri":"/n","ports":null})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","ports":{"a":0}})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","ports":{"a":true}})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","apiVersions":null})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","apiVersions":["1",null]})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","description":1})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","ports":[1]})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","ports":{"a":"1"}})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","ports":{"a":70000}})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","apiVersions":"1"})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","apiVersions":[1]})",
        R"({"host":"h","name":"n","port":1,"uri":"/n","description":null})",
        R"({"host":null,"name":"n","port":1,"uri":"/n"})"));

TEST(MicroServiceInfoTest, NullObjectGivesNull)
{
    EXPECT_EQ(MicroServiceInfo::FromJson(Poco::JSON::Object::Ptr()), nullptr);
}

TEST(MicroServiceInfoTest, SharesNothingWithTheObjectThatItWasReadFrom)
{
    Poco::JSON::Object::Ptr object;
    ASSERT_TRUE(Kesa::Util::JSONTools::parseJSONString(FULL, object));
    const std::unique_ptr<MicroServiceInfo> entry(MicroServiceInfo::FromJson(object));
    object->getObject("ports")->set("admin", 1);
    EXPECT_EQ(entry->getPorts().at("admin"), 9000);
    entry->toJSON(0)->getObject("ports")->set("admin", 1);
    EXPECT_EQ(entry->getPorts().at("admin"), 9000);
}

TEST(MicroServiceInfoTest, PortThatIsNoIntegerGivesNull)
{
    Poco::JSON::Object::Ptr object;
    ASSERT_TRUE(Kesa::Util::JSONTools::parseJSONString(FULL, object));
    object->set("port", 8080.5);
    EXPECT_EQ(MicroServiceInfo::FromJson(object), nullptr);
    object->set("port", Poco::UInt16(8080));
    const std::unique_ptr<MicroServiceInfo> entry(MicroServiceInfo::FromJson(object));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->getPort(), 8080);
}

TEST(MicroServiceInfoTest, IdIsReadWhateverTheCaseOfItsDigits)
{
    const auto entry =
        read(R"({"host":"h","id":"6BA7B810-9DAD-11D1-80B4-00C04FD430C8","name":"n","port":1,"uri":"/n"})");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->getIdString(), ID);
}

TEST(MicroServiceInfoTest, IsBuiltFromAService)
{
    Shop service;
    service.setAttribute(
        new Attribute<AttributeValueStringable<std::string>>(7, "owner", AttributeValueStringable<std::string>("me")));
    MicroServiceInfo entry(service);
    EXPECT_EQ(write(entry),
              R"({"apiVersions":["1.0","2.0"],"description":"Sells boxes","host":"127.0.0.1","name":"shop",)"
              R"("owner":"me","port":8080,"ports":{"admin":9000},"uri":"/shop"})");
    EXPECT_NE(entry.getAttribute("owner"), service.getAttribute("owner")) << "the attributes are copies";
    EXPECT_EQ(entry.getXObjectId(), 7);
    EXPECT_EQ(entry.getAttribute("name")->parent(), 7);
    EXPECT_EQ(entry.getAllPorts(), (std::vector<Poco::UInt16>{8080, 9000}));
}

TEST(MicroServiceInfoTest, ServicesOperationsCountMoreThanItsAttributes)
{
    Shop service;
    service.setAttribute(
        new Attribute<AttributeValuePlain<unsigned long>>(7, "port", AttributeValuePlain<unsigned long>(1)));
    EXPECT_EQ(MicroServiceInfo(service).getPort(), 8080);
}

TEST(MicroServiceInfoTest, ServiceWithoutANameGivesNoEntry)
{
    const MicroServiceInfo service;
    EXPECT_THROW(MicroServiceInfo(static_cast<const ServiceBase&>(service)), Poco::InvalidAccessException);
}

TEST(MicroServiceInfoTest, ReadsPortsOfEitherInteger)
{
    MicroServiceInfo entry;
    entry.setAttribute(new Attribute<AttributeValuePlain<long>>(0, "port", AttributeValuePlain<long>(8080)));
    EXPECT_EQ(entry.getPort(), 8080);
    entry.setAttribute(
        new Attribute<AttributeValuePlain<unsigned long>>(0, "port", AttributeValuePlain<unsigned long>(8081)));
    EXPECT_EQ(entry.getPort(), 8081);
    entry.setAttribute(new Attribute<AttributeValuePlain<long>>(0, "port", AttributeValuePlain<long>(65536)));
    EXPECT_THROW(entry.getPort(), Poco::InvalidAccessException);
    entry.removeValue("port");
    EXPECT_THROW(entry.getPort(), Poco::InvalidAccessException);
}

TEST(MicroServiceInfoTest, AttributesOfTheWrongTypeRaise)
{
    MicroServiceInfo entry;
    for (const char* name: {"ports", "apiVersions", "port"})
        entry.setAttribute(
            new Attribute<AttributeValueStringable<std::string>>(0, name, AttributeValueStringable<std::string>("x")));
    entry.setAttribute(new Attribute<AttributeValuePlain<long>>(0, "description", AttributeValuePlain<long>(1)));
    EXPECT_THROW(entry.getPorts(), Poco::InvalidAccessException);
    EXPECT_THROW(entry.getApiVersions(), Poco::InvalidAccessException);
    EXPECT_THROW(entry.getPort(), Poco::InvalidAccessException);
    EXPECT_THROW(entry.getDescription(), Poco::InvalidAccessException);
    EXPECT_THROW(entry.getHost(), Poco::InvalidAccessException);
    EXPECT_THROW(entry.getIdString(), Poco::InvalidAccessException);
}

TEST(MicroServiceInfoTest, RegistrysIdBecomesTheId)
{
    MicroServiceInfo entry;
    entry.setRegistryId(Poco::UUID(ID));
    EXPECT_EQ(entry.getIdString(), ID);
    EXPECT_EQ(entry.getAttribute("id")->type(), typeid(Poco::UUID));
}

TEST(MicroServiceInfoTest, LivesInVectors)
{
    std::vector<MicroServiceInfo> entries;
    for (int i = 0; i < 20; ++i)
    {
        MicroServiceInfo entry(*read(FULL));
        entry.setLabel(std::to_string(i));
        entries.push_back(std::move(entry));
    }
    entries.erase(entries.begin() + 3);
    EXPECT_EQ(entries[3].label(), "4");
    EXPECT_EQ(entries[3].getName(), "shop");
    entries[0] = entries[1];
    EXPECT_EQ(entries[0].label(), "1");
    EXPECT_EQ(write(entries[0]), FULL) << "a label is no part of the JSON";
}

TEST(ServiceRegistryConnectionTest, KnowsWhereTheRegistryListens)
{
    EXPECT_EQ(Kesa::ServiceRegistryConnection::ADDRESS, "127.0.0.1");
    EXPECT_EQ(Kesa::ServiceRegistryConnection::PORT, 8910);
}

} // namespace
