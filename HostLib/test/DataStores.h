#pragma once

#include "InMemoryDataAccessPoint.h"
#include "SqliteDataAccessPoint.h"

#include <Poco/JSON/Parser.h>

#include <gtest/gtest.h>

#include <string>

/// What the tests of all stores say again and again.
namespace DataStores
{

typedef Kesa::Host::DocumentDataAccessPoint Store;
typedef Store::UpdateResult UpdateResult;

const std::string ID = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
const std::string OTHER_ID = "6ba7b811-9dad-11d1-80b4-00c04fd430c8";

inline Poco::JSON::Object::Ptr object(const std::string& text)
{
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

inline std::string textOf(const Kesa::Data::XObjectBase::Ptr& element)
{
    std::ostringstream text;
    if (!element.isNull())
        element->toJSON(0)->stringify(text);
    return text.str();
}

/// What the element `id` of /shop/boxes reads like with these members beside its id and URI.
inline std::string boxText(const std::string& id, const std::string& members)
{
    Poco::JSON::Object::Ptr box = object(members);
    box->set("id", id).set("uri", "/shop/boxes/" + id);
    std::ostringstream text;
    box->stringify(text);
    return text.str();
}

/// The members `name` of the elements of a resource, in their order.
inline std::vector<std::string> namesIn(Store& store, const std::string& resource)
{
    std::vector<std::string> names;
    for (const auto& element: store.getElements("shop", resource))
        names.push_back(element->getName());
    return names;
}

inline void declareShop(Store& store)
{
    store.addService("shop", "Sells boxes");
    store.addResource("shop", "boxes", "Boxes of all sizes");
    store.addResource("shop", "orders");
}

} // namespace DataStores
