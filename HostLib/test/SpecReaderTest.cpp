#include "InMemoryDataAccessPoint.h"
#include "RestFixture.h"
#include "ServiceContract.h"

using Kesa::Host::InMemoryDataAccessPoint;
using Kesa::Host::ServiceContract;
using Poco::JSON::Object;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

const std::string SPEC = "/shop/$spec";

class SpecReaderTest: public RestFixture
{
protected:
    Object::Ptr openApi() { return parseJson(get(SPEC).body); }
    Object::Ptr asyncApi() { return parseJson(get(SPEC + "?format=asyncapi").body); }
    static Object::Ptr schema(const Object::Ptr& document, const std::string& name)
    {
        return document->getObject("components")->getObject("schemas")->getObject(name);
    }
};

TEST_F(SpecReaderTest, TellsTheUrlsOfTheService)
{
    EXPECT_EQ(openApi()->getValue<std::string>("openapi"), "3.1.0");
    EXPECT_THAT(openApi()->getObject("paths")->getNames(),
                ElementsAre("/", "/shop", "/shop/$spec", "/shop/customers", "/shop/customers/{id}", "/shop/orders",
                            "/shop/orders/{id}"));
}

TEST_F(SpecReaderTest, TellsTheMessagesOfTheWebsocket)
{
    EXPECT_EQ(asyncApi()->getValue<std::string>("asyncapi"), "2.6.0");
    EXPECT_THAT(asyncApi()->getObject("components")->getObject("messages")->getNames(),
                ElementsAre("acknowledgement", "element.customers", "element.orders", "entries", "error",
                            "list.element.customers", "list.element.orders", "subscribe", "unsubscribe"));
}

TEST_F(SpecReaderTest, TheFormatIsOneOfTwo)
{
    EXPECT_EQ(get(SPEC + "?format=openapi").body, get(SPEC).body);
    expectError(get(SPEC + "?format=wsdl"), 400, "openapi or asyncapi");
    expectError(get(SPEC + "?format=openapi&format=asyncapi"), 400, "once");
    expectError(get(SPEC + "?$limit=0"), 400);
}

TEST_F(SpecReaderTest, OnlyAServiceThatIsThereHasOne)
{
    expectError(get("/bank/$spec"), 404, "bank");
    expectError(get("/shop/orders/$spec"), 404);
    expectError(sendBody("POST", SPEC, "{}"), 405);
}

TEST_F(SpecReaderTest, DeclaredMembersAreInTheSchemasAndTheFilter)
{
    const Object::Ptr document = openApi();
    const auto declared = schema(document, "element.customers")->getObject("properties")->getNames();
    EXPECT_THAT(declared, testing::IsSupersetOf({"id", "uri"}));
    EXPECT_GT(declared.size(), 2U);
    const auto given = schema(document, "element.customers.members")->getObject("properties")->getNames();
    EXPECT_EQ(given.size() + 2, declared.size());
    EXPECT_THAT(schema(document, "element.orders")->getObject("properties")->getNames(), ElementsAre("id", "uri"));

    const auto filterOf = [&](const std::string& path)
    {
        const auto parameters = document->getObject("paths")->getObject(path)->getObject("get")->getArray("parameters");
        for (unsigned i = 0; i < parameters->size(); ++i)
            if (parameters->getObject(i)->optValue<std::string>("name", "") == "members")
                return parameters->getObject(i)->getObject("schema");
        return Object::Ptr();
    };
    EXPECT_FALSE(filterOf("/shop/customers")->getValue<bool>("additionalProperties"));
    EXPECT_TRUE(filterOf("/shop/orders")->isObject("additionalProperties"));
}

TEST_F(SpecReaderTest, TheWebsocketIsWhereTheClientReachedTheService)
{
    const auto urlFor = [&](const std::string& version, const std::string& fields)
    {
        TestClient client(door.port());
        client.send("GET " + SPEC + "?format=asyncapi HTTP/" + version + "\r\nConnection: close\r\n" + fields + "\r\n");
        const Object::Ptr servers = parseJson(client.receive().body)->getObject("servers");
        return servers->getObject("service")->getValue<std::string>("url");
    };
    EXPECT_EQ(urlFor("1.1", "Host: shop.example:8080\r\n"), "ws://shop.example:8080");
    EXPECT_EQ(urlFor("1.0", ""), "ws://127.0.0.1:" + std::to_string(door.port()));
}

TEST(ServiceContractTest, TellsWhatStandsThereAtTheTime)
{
    InMemoryDataAccessPoint store;
    store.addService("shop", "Sells \"boxes\"");
    EXPECT_TRUE(ServiceContract(store, "shop", "1.2.3").resources().empty());
    store.addResource("shop", "boxes", "Boxes",
                      R"({"properties":{"size":{"type":"integer"},"id":{"type":"integer"}}})");
    const ServiceContract contract(store, "shop", "1.2.3");
    ASSERT_EQ(contract.resources().size(), 1U);
    EXPECT_EQ(contract.resources()[0].path, "/shop/boxes");
    EXPECT_EQ(contract.info()->getValue<std::string>("version"), "1.2.3");
    EXPECT_EQ(contract.info()->getValue<std::string>("description"), "Sells \"boxes\"");
    const Object::Ptr element = contract.answerSchemas()->getObject("element.boxes");
    EXPECT_EQ(element->getValue<std::string>("description"), "Boxes");
    EXPECT_EQ(element->getObject("properties")->getObject("size")->getValue<std::string>("type"), "integer");
    EXPECT_EQ(element->getObject("properties")->getObject("id")->getValue<std::string>("type"), "string");
    EXPECT_THAT(contract.requestSchemas()->getObject("element.boxes.members")->getObject("properties")->getNames(),
                ElementsAre("size"));
    EXPECT_THROW(ServiceContract(store, "bank", ""), Poco::NotFoundException);
}

TEST(ServiceContractTest, WordsInATextAreEscaped)
{
    const Object::Ptr object = ServiceContract::json(R"({"<a>": "<b> <c>"})", {{"a", "x\"y"}, {"b", "1\n2"}});
    EXPECT_EQ(object->getValue<std::string>("x\"y"), "1\n2 <c>");
}

} // namespace
