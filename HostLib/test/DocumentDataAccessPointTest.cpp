#include "DataStores.h"
#include "StoreFolder.h"

#include <Data/ElementGeneric.h>

#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <limits>

using namespace DataStores;
using namespace Kesa::Data;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

struct Kind
{
    std::string name;
    std::function<Store::Ptr(const Store::Limits&)> create;
};

/// The same behaviour, wherever the documents are kept.
class DocumentDataAccessPointTest: public testing::TestWithParam<Kind>
{
protected:
    void SetUp() override
    {
        m_store = GetParam().create(Store::Limits());
        declareShop(*m_store);
    }

    ElementBase::Ptr insertBox(const std::string& id, const std::string& members)
    {
        const UpdateResult result = m_store->insertElement(Poco::URI("/shop/boxes/" + id), object(members));
        EXPECT_EQ(result.value(), UpdateResult::OK) << result.message();
        return m_store->getElement("shop", "boxes", id);
    }
    std::string box(const std::string& id = ID) { return textOf(m_store->getElement("shop", "boxes", id)); }

    Store::Ptr m_store;
};

TEST_P(DocumentDataAccessPointTest, GivesWhatIsDeclaredInItsOrder)
{
    m_store->addService("bank");
    const auto services = m_store->getServices();
    ASSERT_EQ(services.size(), 2U);
    EXPECT_EQ(services[0]->getName(), "shop");
    EXPECT_EQ(services[0]->getDescription(), "Sells boxes");
    EXPECT_EQ(services[0]->getUri().toString(), "/shop");
    EXPECT_EQ(services[1]->getName(), "bank");
    const auto resources = m_store->getResources("shop");
    ASSERT_EQ(resources.size(), 2U);
    EXPECT_EQ(resources[0]->getName(), "boxes");
    EXPECT_EQ(resources[0]->getDescription(), "Boxes of all sizes");
    EXPECT_EQ(resources[0]->getUri().toString(), "/shop/boxes");
    EXPECT_EQ(resources[1]->getName(), "orders");
    EXPECT_TRUE(m_store->getResources("bank").empty());
    EXPECT_EQ(m_store->getService("shop")->toJSON(0)->getValue<std::string>("description"), "Sells boxes");
    EXPECT_FALSE(m_store->getService("bank")->toJSON(0)->has("description"));
    EXPECT_EQ(m_store->getResource("shop", "boxes")->getId(), resources[0]->getId());
    EXPECT_NE(resources[0]->getId(), resources[1]->getId());
}

TEST_P(DocumentDataAccessPointTest, WhatIsNotThereIsNull)
{
    EXPECT_TRUE(m_store->getService("bank").isNull());
    EXPECT_TRUE(m_store->getResource("shop", "coins").isNull());
    EXPECT_TRUE(m_store->getResource("bank", "boxes").isNull());
    EXPECT_TRUE(m_store->getResources("bank").empty());
    EXPECT_TRUE(m_store->getElements("shop", "coins").empty());
    EXPECT_TRUE(m_store->getElement("shop", "boxes", ID).isNull());
    EXPECT_TRUE(m_store->getElement("shop", "boxes", "no id").isNull());
    EXPECT_TRUE(m_store->getElement("shop", "coins", Poco::UUID(ID)).isNull());
    EXPECT_TRUE(m_store->getElement(XObjectId(0)).isNull());
    for (const char* url: {"/", "/shop", "/shop/boxes", "/shop/boxes/$id", "/shop/boxes/a/b"})
        EXPECT_TRUE(m_store->getElement(Poco::URI(url)).isNull()) << url;
}

TEST_P(DocumentDataAccessPointTest, DeclarationsThatCannotBeAreRefused)
{
    for (const char* name: {"", "top shelf", "a/b", "$id", ".", "..", ".hidden", "\xc3\xa4"})
    {
        EXPECT_THROW(m_store->addService(name), Poco::InvalidArgumentException) << name;
        EXPECT_THROW(m_store->addResource("shop", name), Poco::InvalidArgumentException) << name;
    }
    EXPECT_THROW(m_store->addService(std::string(65, 'a')), Poco::InvalidArgumentException);
    EXPECT_NO_THROW(m_store->addService(std::string(64, 'a')));
    EXPECT_THROW(m_store->addService("shop"), Poco::ExistsException);
    EXPECT_THROW(m_store->addResource("shop", "boxes"), Poco::ExistsException);
    EXPECT_THROW(m_store->addResource("bank", "coins"), Poco::NotFoundException);
    for (const char* text: {"no JSON", "[]", R"({"properties":[]})", R"({"properties":{"a":"integer"}})"})
        EXPECT_THROW(m_store->addResource("shop", "coins", "", text), Poco::InvalidArgumentException) << text;
    EXPECT_TRUE(m_store->getResource("shop", "coins").isNull());
}

TEST_P(DocumentDataAccessPointTest, ResourceKeepsItsSpecification)
{
    const std::string schemaText = R"({"properties":{"size":{"type":"integer"}}})";
    m_store->addResource("shop", "coins", "", schemaText);
    EXPECT_EQ(m_store->getResource("shop", "coins")->getSpecification(), schemaText);
    EXPECT_EQ(m_store->getResource("shop", "boxes")->getSpecification(), "");
}

TEST_P(DocumentDataAccessPointTest, InsertedElementIsFoundByEveryForm)
{
    const ElementBase::Ptr element = insertBox(ID, R"({"name":"small"})");
    const std::string text = boxText(ID, R"({"name":"small"})");
    EXPECT_EQ(textOf(element), text);
    EXPECT_EQ(textOf(m_store->getElement(element->getXObjectId())), text);
    EXPECT_EQ(textOf(m_store->getElement(Poco::URI("/shop/boxes/" + ID))), text);
    EXPECT_EQ(textOf(m_store->getElement(Poco::URI("http://there:80/shop/boxes/" + ID + "?$fields=name"))), text);
    EXPECT_EQ(textOf(m_store->getElement("shop", "boxes", Poco::UUID(ID))), text);
    EXPECT_EQ(element->service(), "shop");
    EXPECT_EQ(element->resource(), "boxes");
    EXPECT_EQ(element->getId(), Poco::UUID(ID));
    EXPECT_EQ(element->getUri().toString(), "/shop/boxes/" + ID);
    EXPECT_TRUE(m_store->getElement("shop", "orders", ID).isNull());
}

TEST_P(DocumentDataAccessPointTest, NewElementWithoutAnIdGetsOne)
{
    const UpdateResult first = m_store->insertElement("shop", "boxes", object(R"({"name":"a"})"));
    const UpdateResult second = m_store->insertElement("shop", "boxes", object(R"({"name":"a"})"));
    ASSERT_EQ(first.value(), UpdateResult::OK);
    ASSERT_FALSE(second.created.isNull());
    EXPECT_NE(first.created->getId(), second.created->getId());
    EXPECT_EQ(textOf(first.created), boxText(first.created->getId().toString(), R"({"name":"a"})"));
    EXPECT_EQ(m_store->getElement("shop", "boxes", first.created->getId()).get(), first.created.get());
}

TEST_P(DocumentDataAccessPointTest, IdIsKnownInItsUsualFormOnly)
{
    insertBox(ID, "{}");
    const std::string capitals = Poco::toUpper(ID);
    EXPECT_TRUE(m_store->getElement("shop", "boxes", capitals).isNull());
    EXPECT_EQ(m_store->updateElement("shop", "boxes", capitals, object(R"({"a":1})")).value(), UpdateResult::NOT_FOUND);
    EXPECT_EQ(m_store->deleteElement("shop", "boxes", capitals).value(), UpdateResult::NOT_FOUND);
    EXPECT_EQ(m_store->deleteElement("shop", "boxes", "no id").value(), UpdateResult::NOT_FOUND);
    EXPECT_FALSE(m_store->getElement("shop", "boxes", Poco::UUID(capitals)).isNull());
}

TEST_P(DocumentDataAccessPointTest, InsertIsRefusedWhereThereIsNoPlace)
{
    insertBox(ID, R"({"name":"first"})");
    const auto insert = [&](const std::string& url)
    { return m_store->insertElement(Poco::URI(url), object(R"({"name":"second"})")); };
    EXPECT_EQ(insert("/shop/boxes/" + ID).value(), UpdateResult::DUPLICATE);
    EXPECT_THAT(insert("/shop/boxes/" + ID).message(), HasSubstr(ID));
    EXPECT_EQ(insert("/shop/coins/" + ID).value(), UpdateResult::NOT_FOUND);
    EXPECT_EQ(insert("/bank/boxes/" + ID).value(), UpdateResult::NOT_FOUND);
    for (const std::string& url: {std::string("/shop/boxes/box"), "/shop/boxes/" + Poco::toUpper(OTHER_ID),
                                  "/shop/boxes/" + OTHER_ID + "x", std::string("/shop/boxes"), std::string("/")})
        EXPECT_EQ(insert(url).value(), UpdateResult::INVALID_REQUEST) << url;
    EXPECT_EQ(m_store->insertElement("shop", "coins", object("{}")).value(), UpdateResult::NOT_FOUND);
    EXPECT_EQ(m_store->insertElement("shop", "boxes", nullptr).value(), UpdateResult::INVALID_OBJECT);
    EXPECT_EQ(m_store->insertElement(Poco::URI("/shop/boxes/" + OTHER_ID), nullptr).value(),
              UpdateResult::INVALID_OBJECT);
    EXPECT_THAT(namesIn(*m_store, "boxes"), ElementsAre("first"));
}

TEST_P(DocumentDataAccessPointTest, IdAndUriAreTheStoresToSet)
{
    EXPECT_EQ(m_store->insertElement("shop", "boxes", object(R"({"id":"mine"})")).value(),
              UpdateResult::INVALID_OBJECT);
    EXPECT_EQ(m_store->insertElement("shop", "boxes", object(R"({"uri":7})")).value(), UpdateResult::INVALID_OBJECT);
    EXPECT_THAT(m_store->insertElement("shop", "boxes", object(R"({"uri":7})")).message(), HasSubstr("'uri'"));
    const std::string both = R"({"id":")" + ID + R"(","uri":"/shop/boxes/)" + ID + R"(","name":"a"})";
    insertBox(ID, both);
    EXPECT_EQ(m_store->updateElement("shop", "boxes", ID, object(both)).value(), UpdateResult::NO_UPDATE);
    EXPECT_EQ(m_store->updateElement("shop", "boxes", ID, object(R"({"id":null})")).value(),
              UpdateResult::INVALID_OBJECT);
    EXPECT_EQ(m_store->updateElement("shop", "boxes", ID, object(R"({"id":")" + OTHER_ID + R"("})")).value(),
              UpdateResult::INVALID_OBJECT);
    EXPECT_EQ(box(), boxText(ID, R"({"name":"a"})"));
}

TEST_P(DocumentDataAccessPointTest, UpdateSetsTheMembersGivenAndLetsTypesChange)
{
    insertBox(ID, R"({"name":"a","size":7,"tags":["x"],"deep":{"a":1,"b":2}})");
    const auto update = [&](const std::string& members)
    { return m_store->updateElement("shop", "boxes", ID, object(members)); };
    EXPECT_EQ(update(R"({"size":"big","new":null,"deep":{"a":3}})").value(), UpdateResult::OK);
    EXPECT_EQ(box(), boxText(ID, R"({"name":"a","size":"big","tags":["x"],"deep":{"a":3},"new":null})"));
    EXPECT_TRUE(update(R"({"size":[]})").created.isNull());
    EXPECT_EQ(box(), boxText(ID, R"({"name":"a","size":[],"tags":["x"],"deep":{"a":3},"new":null})"));
}

TEST_P(DocumentDataAccessPointTest, UpdateThatChangesNothingSaysSo)
{
    const ElementBase::Ptr before = insertBox(ID, R"({"a":1,"b":{"y":[1,2.5],"x":"t"}})");
    for (const char* members: {"{}", R"({"a":1})", R"({"b":{"x":"t","y":[1,2.5]}})", R"({"a":1.0})"})
        EXPECT_EQ(m_store->updateElement("shop", "boxes", ID, object(members)).value(), UpdateResult::NO_UPDATE)
            << members;
    EXPECT_EQ(m_store->updateElement(*before).value(), UpdateResult::NO_UPDATE);
    EXPECT_EQ(m_store->getElement("shop", "boxes", ID), before);
    EXPECT_EQ(m_store->updateElement("shop", "boxes", ID, object(R"({"a":"1"})")).value(), UpdateResult::OK);
}

TEST_P(DocumentDataAccessPointTest, EveryFormOfUpdateReachesTheElement)
{
    const XObjectId number = insertBox(ID, "{}")->getXObjectId();
    EXPECT_EQ(m_store->updateElement(number, object(R"({"a":1})")).value(), UpdateResult::OK);
    EXPECT_EQ(m_store->updateElement(Poco::URI("/shop/boxes/" + ID), object(R"({"b":2})")).value(), UpdateResult::OK);
    EXPECT_EQ(m_store->updateElement("shop", "boxes", Poco::UUID(ID), object(R"({"c":3})")).value(), UpdateResult::OK);
    EXPECT_EQ(box(), boxText(ID, R"({"a":1,"b":2,"c":3})"));
    EXPECT_EQ(m_store->getElement("shop", "boxes", ID)->getXObjectId(), number);
}

TEST_P(DocumentDataAccessPointTest, UpdateOfWhatIsNotThereIsNotFound)
{
    insertBox(ID, "{}");
    EXPECT_EQ(m_store->updateElement("shop", "boxes", OTHER_ID, object("{}")).value(), UpdateResult::NOT_FOUND);
    EXPECT_EQ(m_store->updateElement("shop", "coins", ID, object("{}")).value(), UpdateResult::NOT_FOUND);
    EXPECT_EQ(m_store->updateElement("shop", "boxes", "no id", object("{}")).value(), UpdateResult::NOT_FOUND);
    EXPECT_EQ(m_store->updateElement(Poco::URI("/shop"), object("{}")).value(), UpdateResult::NOT_FOUND);
    EXPECT_EQ(m_store->updateElement(XObjectId(0), object("{}")).value(), UpdateResult::NOT_FOUND);
    EXPECT_EQ(m_store->updateElement(ElementGeneric("shop", "boxes", "x", OTHER_ID, 1)).value(),
              UpdateResult::NOT_FOUND);
    EXPECT_EQ(m_store->updateElement("shop", "boxes", ID, nullptr).value(), UpdateResult::INVALID_OBJECT);
}

TEST_P(DocumentDataAccessPointTest, WholeElementReplacesTheOldOne)
{
    const ElementBase::Ptr old = insertBox(ID, R"({"name":"a","size":7,"deep":{"a":[null]}})");
    ElementGeneric changed(*old);
    EXPECT_TRUE(changed.removeValue("size"));
    EXPECT_EQ(m_store->updateElement(changed).value(), UpdateResult::OK);
    EXPECT_EQ(box(), boxText(ID, R"({"name":"a","deep":{"a":[null]}})"));
    EXPECT_EQ(textOf(old), boxText(ID, R"({"name":"a","size":7,"deep":{"a":[null]}})"));
}

TEST_P(DocumentDataAccessPointTest, ElementOfTheProgramIsInserted)
{
    ElementGeneric given("shop", "boxes", "given", ID, 7);
    const UpdateResult result = m_store->insertElement(given);
    ASSERT_EQ(result.value(), UpdateResult::OK);
    EXPECT_EQ(textOf(result.created), boxText(ID, R"({"name":"given"})"));
    EXPECT_EQ(m_store->insertElement(given).value(), UpdateResult::DUPLICATE);
    given.removeValue("id");
    EXPECT_EQ(m_store->insertElement(given).value(), UpdateResult::OK);
    EXPECT_EQ(m_store->insertElement(ElementGeneric("shop", "coins", "given", ID, 7)).value(), UpdateResult::NOT_FOUND);
    EXPECT_THAT(namesIn(*m_store, "boxes"), ElementsAre("given", "given"));
}

TEST_P(DocumentDataAccessPointTest, EveryFormOfDeleteReachesTheElement)
{
    const std::vector<std::function<UpdateResult(const ElementBase::Ptr&)>> forms = {
        [&](const auto& element) { return m_store->deleteElement(*element); },
        [&](const auto& element) { return m_store->deleteElement(element->getXObjectId()); },
        [&](const auto& element) { return m_store->deleteElement(element->getUri()); },
        [&](const auto& element) { return m_store->deleteElement("shop", "boxes", element->getId()); },
        [&](const auto&) { return m_store->deleteElement("shop", "boxes", ID); }};
    for (const auto& form: forms)
    {
        const ElementBase::Ptr element = insertBox(ID, "{}");
        EXPECT_EQ(form(element).value(), UpdateResult::OK);
        EXPECT_EQ(box(), "");
        EXPECT_TRUE(m_store->getElement(element->getXObjectId()).isNull());
        EXPECT_EQ(form(element).value(), UpdateResult::NOT_FOUND);
    }
    EXPECT_TRUE(m_store->getElements("shop", "boxes").empty());
}

TEST_P(DocumentDataAccessPointTest, ElementsStandInTheOrderOfTheirCreation)
{
    for (const char* name: {"c", "a", "b"})
        m_store->insertElement("shop", "boxes", object("{\"name\":\"" + std::string(name) + "\"}"));
    const ElementCollection elements = m_store->getElements("shop", "boxes");
    m_store->updateElement(elements[0]->getXObjectId(), object(R"({"name":"C"})"));
    EXPECT_THAT(namesIn(*m_store, "boxes"), ElementsAre("C", "a", "b"));
    m_store->deleteElement(*elements[1]);
    m_store->insertElement(*elements[1]);
    EXPECT_THAT(namesIn(*m_store, "boxes"), ElementsAre("C", "b", "a"));
    EXPECT_NE(m_store->getElements("shop", "boxes")[2]->getXObjectId(), elements[1]->getXObjectId());
}

TEST_P(DocumentDataAccessPointTest, ReaderKeepsTheElementThatItHas)
{
    const ElementBase::Ptr before = insertBox(ID, R"({"name":"a"})");
    const ElementCollection list = m_store->getElements("shop", "boxes");
    m_store->updateElement("shop", "boxes", ID, object(R"({"name":"b"})"));
    EXPECT_EQ(before->getName(), "a");
    EXPECT_EQ(list[0]->getName(), "a");
    m_store->deleteElement("shop", "boxes", ID);
    EXPECT_EQ(before->getName(), "a");
}

TEST_P(DocumentDataAccessPointTest, NobodyReachesIntoTheStore)
{
    Poco::JSON::Object::Ptr given = object(R"({"deep":{"a":1}})");
    UpdateResult result = m_store->insertElement(Poco::URI("/shop/boxes/" + ID), given);
    given->getObject("deep")->set("a", 2);
    result.created->toJSON(0)->getObject("deep")->set("a", 3);
    Poco::Dynamic::Var value = result.created->getAttribute("deep")->getValueBase()->asGeneric();
    Poco::JSON::Object::Ptr(value.extract<Poco::JSON::Object::Ptr>())->set("a", 4);
    EXPECT_EQ(box(), boxText(ID, R"({"deep":{"a":1}})"));
    EXPECT_EQ(textOf(result.created), boxText(ID, R"({"deep":{"a":1}})"));
}

TEST_P(DocumentDataAccessPointTest, ResourceShowsItsPresentElements)
{
    const ResourceBase::Ptr boxes = m_store->getResource("shop", "boxes");
    EXPECT_TRUE(boxes->getElements().empty());
    const ElementBase::Ptr element = insertBox(ID, "{}");
    EXPECT_EQ(boxes->getElements().size(), 1U);
    EXPECT_TRUE(boxes->hasElement(element->getXObjectId()));
    EXPECT_EQ(boxes->getElement(element->getXObjectId()), element);
    EXPECT_FALSE(m_store->getResource("shop", "orders")->hasElement(element->getXObjectId()));
    m_store->deleteElement(*element);
    EXPECT_FALSE(boxes->hasElement(element->getXObjectId()));
}

TEST_P(DocumentDataAccessPointTest, ElementShowsItsMembersAsAttributes)
{
    const ElementBase::Ptr element =
        insertBox(ID, R"({"name":"a","n":-1,"u":18446744073709551615,"d":2.5,"b":true,"o":{"x":[1]},"z":null})");
    EXPECT_EQ(element->size(), 9U);
    EXPECT_EQ(element->getAttributes().size(), 9U);
    EXPECT_TRUE(element->hasValue("z"));
    EXPECT_FALSE(element->hasValue("y"));
    EXPECT_EQ(element->getValue("y"), nullptr);
    EXPECT_TRUE(element->getAttribute("y").isNull());
    EXPECT_EQ(element->getAttribute("n")->type(), typeid(long));
    EXPECT_EQ(element->getAttribute("u")->type(), typeid(unsigned long));
    EXPECT_EQ(element->getAttribute("d")->type(), typeid(double));
    EXPECT_EQ(element->getAttribute("b")->type(), typeid(bool));
    EXPECT_EQ(element->getAttribute("id")->type(), typeid(Poco::UUID));
    EXPECT_EQ(element->getAttribute("uri")->type(), typeid(Poco::URI));
    EXPECT_EQ(element->toJSON({"n", "y"})->size(), 1U);
    EXPECT_THROW(m_store->insertElement("shop", "boxes", object("{}")).created->getName(),
                 Poco::InvalidAccessException);
}

TEST_P(DocumentDataAccessPointTest, WhatJsonCannotHoldIsNotStoredAsSomethingElse)
{
    Poco::JSON::Object::Ptr strange = new Poco::JSON::Object;
    strange->set("nan", std::nan("")).set("f", 0.25F).set("i", short(-3));
    const UpdateResult result = m_store->insertElement("shop", "boxes", strange);
    EXPECT_EQ(textOf(result.created), boxText(result.created->getId().toString(), R"({"nan":null,"f":0.25,"i":-3})"));

    Poco::JSON::Object::Ptr nest = new Poco::JSON::Object;
    for (int depth = 0; depth < 200; ++depth)
    {
        Poco::JSON::Object::Ptr outer = new Poco::JSON::Object;
        outer->set("inner", nest);
        nest = outer;
    }
    EXPECT_EQ(m_store->insertElement("shop", "boxes", nest).value(), UpdateResult::INVALID_OBJECT);

    Poco::JSON::Object::Ptr zero = object(R"({"list":[{}]})");
    zero->getArray("list")->getObject(0)->set(std::string("a\0b", 3), 1);
    EXPECT_EQ(m_store->insertElement("shop", "boxes", zero).value(), UpdateResult::INVALID_OBJECT);
    EXPECT_THAT(m_store->insertElement("shop", "boxes", zero).message(), HasSubstr("U+0000"));
    EXPECT_EQ(m_store->getElements("shop", "boxes").size(), 1U);
}

TEST_P(DocumentDataAccessPointTest, BoundsAreToldAndNothingChanges)
{
    Store::Limits limits;
    limits.elements = 2;
    limits.documentBytes = 200;
    limits.totalBytes = 450;
    Store::Ptr store = GetParam().create(limits);
    declareShop(*store);
    const auto insert = [&](const std::string& resource, std::size_t length)
    {
        Poco::JSON::Object::Ptr sized = new Poco::JSON::Object;
        sized->set("t", std::string(length, 'x'));
        return store->insertElement("shop", resource, sized);
    };
    EXPECT_EQ(insert("boxes", 200).value(), UpdateResult::INVALID_OBJECT);
    EXPECT_THAT(insert("boxes", 200).message(), HasSubstr("200"));
    const UpdateResult first = insert("boxes", 50);
    ASSERT_EQ(first.value(), UpdateResult::OK);
    ASSERT_EQ(insert("boxes", 50).value(), UpdateResult::OK);
    EXPECT_EQ(insert("boxes", 1).value(), UpdateResult::INVALID_REQUEST);
    EXPECT_THAT(insert("boxes", 1).message(), HasSubstr("/shop/boxes is full"));
    EXPECT_EQ(insert("orders", 50).value(), UpdateResult::INVALID_REQUEST);
    EXPECT_THAT(insert("orders", 50).message(), HasSubstr("The store is full"));
    EXPECT_EQ(
        store->updateElement(first.created->getUri(), object(R"({"t":")" + std::string(190, 'y') + "\"}")).value(),
        UpdateResult::INVALID_OBJECT);
    EXPECT_EQ(store->deleteElement(first.created->getUri()).value(), UpdateResult::OK);
    EXPECT_EQ(insert("orders", 50).value(), UpdateResult::OK);
    EXPECT_EQ(store->getElements("shop", "boxes").size(), 1U);
}

Store::Ptr createInMemory(const Store::Limits& limits)
{
    return new Kesa::Host::InMemoryDataAccessPoint(limits);
}

Store::Ptr createOnSqlite(const Store::Limits& limits)
{
    static const StoreFolder folder;
    return new Kesa::Host::SqliteDataAccessPoint(folder.newFile(), limits);
}

INSTANTIATE_TEST_SUITE_P(Stores, DocumentDataAccessPointTest,
                         testing::Values(Kind{"InMemory", createInMemory}, Kind{"OnSqlite", createOnSqlite}),
                         [](const auto& row) { return row.param.name; });

} // namespace
