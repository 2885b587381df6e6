#include <Data/AttributeContainer.h>
#include <Data/AttributeValuePlain.h>
#include <Data/AttributeValueStringable.h>

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

using namespace Kesa::Data;

namespace
{

typedef AttributeValueStringable<std::string> Text;
typedef AttributeValuePlain<long> Number;

template <class Action>
std::string refusal(Action action)
{
    try
    {
        action();
    }
    catch (const Poco::InvalidAccessException& exception)
    {
        return exception.message();
    }
    return "no exception";
}

AttributeContainer filled()
{
    AttributeContainer container(7);
    container.setValue("text", Text("a"));
    container.setValue("number", Number(1));
    return container;
}

std::string jsonText(const Poco::JSON::Object::Ptr& object)
{
    std::ostringstream out;
    object->stringify(out);
    return out.str();
}

TEST(AttributeContainerTest, AbsentValueIsNull)
{
    const AttributeContainer container = filled();
    EXPECT_EQ(container.getValue("other"), nullptr);
    EXPECT_TRUE(container.getAttribute("other").isNull());
    EXPECT_FALSE(container.contains("other"));
}

TEST(AttributeContainerTest, TypedReadOfAnAbsentValueRaises)
{
    const AttributeContainer container = filled();
    EXPECT_EQ(refusal([&] { container.getValue<Text>("other"); }), "Attribute other is not set");
}

TEST(AttributeContainerTest, TypedReadOfAnEmptyAttributeRaises)
{
    AttributeContainer container(7);
    container.setAttribute(new Attribute<Text>(7, "empty"));
    EXPECT_TRUE(container.contains("empty"));
    EXPECT_EQ(refusal([&] { container.getValue<Text>("empty"); }), "Attribute empty is not set");
}

TEST(AttributeContainerTest, TypedReadOfAnotherTypeRaises)
{
    const AttributeContainer container = filled();
    EXPECT_EQ(refusal([&] { container.getValue<Number>("text"); }),
              "Invalid type for attribute text in AttributeContainer");
    EXPECT_EQ(container.getValue<Text>("text").get(), "a");
}

TEST(AttributeContainerTest, SetOfAnAbsentValueCreatesTheAttribute)
{
    const AttributeContainer container = filled();
    const AttributeBase::Ptr attribute = container.getAttribute("number");
    EXPECT_EQ(attribute->getName(), "number");
    EXPECT_EQ(attribute->parent(), 7);
    EXPECT_EQ(attribute->type(), typeid(long));
}

TEST(AttributeContainerTest, SetOfAPresentValueKeepsTheAttribute)
{
    AttributeContainer container = filled();
    const AttributeBase::Ptr before = container.getAttribute("number");
    const Number value(2);
    container.setValue("number", value);
    EXPECT_EQ(container.getAttribute("number"), before);
    EXPECT_EQ(container.getValue<Number>("number").get(), 2);
}

TEST(AttributeContainerTest, SetOfAnotherTypeRaisesAndChangesNothing)
{
    AttributeContainer container = filled();
    const AttributeBase::Ptr before = container.getAttribute("number");
    EXPECT_EQ(refusal([&] { container.setValue("number", Text("b")); }),
              "Invalid type for attribute number in AttributeContainer");
    EXPECT_EQ(container.getAttribute("number"), before);
    EXPECT_EQ(container.getValue<Number>("number").get(), 1);
}

TEST(AttributeContainerTest, AttributeIsKeptUnderItsOwnNameWhateverWasThere)
{
    AttributeContainer container = filled();
    container.setAttribute(new Attribute<Text>(7, "number", Text("b")));
    EXPECT_EQ(container.getValue<Text>("number").get(), "b");
    const AttributeBase::Ptr other = new Attribute<Text>(7, "other", Text("c"));
    container.setAttribute(other);
    EXPECT_EQ(container.getAttribute("other"), other);
    EXPECT_EQ(container.size(), 3U);
}

TEST(AttributeContainerTest, NullAttributeIsRefused)
{
    AttributeContainer container = filled();
    const AttributeBase::Ptr null;
    EXPECT_THROW(container.setAttribute(null), Poco::NullPointerException);
    EXPECT_THROW(container.setAttribute(AttributeBase::Ptr()), Poco::NullPointerException);
    EXPECT_EQ(container.size(), 2U);
}

TEST(AttributeContainerTest, RemovesAndClears)
{
    AttributeContainer container = filled();
    EXPECT_TRUE(container.removeValue("text"));
    EXPECT_FALSE(container.removeValue("text"));
    EXPECT_EQ(container.size(), 1U);
    container.clear();
    EXPECT_EQ(container.size(), 0U);
    EXPECT_EQ(container.begin(), container.end());
}

TEST(AttributeContainerTest, IsWalkedInTheOrderOfTheNames)
{
    const AttributeContainer container = filled();
    std::string names;
    for (const auto& named: container)
        names += named.first + " ";
    EXPECT_EQ(names, "number text ");
}

TEST(AttributeContainerTest, CopySharesAndDeepCopySeparates)
{
    AttributeContainer container = filled();
    const AttributeContainer shared(container);
    const AttributeContainer separate = AttributeContainer::deepCopy(container);
    const AttributeContainer moved = AttributeContainer::deepCopy(8, container.getAttributes());
    container.setValue("number", Number(2));
    EXPECT_EQ(shared.getValue<Number>("number").get(), 2);
    EXPECT_EQ(separate.getValue<Number>("number").get(), 1);
    EXPECT_EQ(separate.parent(), 7);
    EXPECT_EQ(moved.parent(), 8);
    EXPECT_EQ(moved.getAttribute("number")->parent(), 8);
}

TEST(AttributeContainerTest, MoveTakesTheAttributesAndTheParent)
{
    AttributeContainer container = filled();
    AttributeContainer moved(std::move(container));
    EXPECT_EQ(moved.parent(), 7);
    EXPECT_EQ(moved.size(), 2U);
    AttributeContainer assigned(1);
    assigned = std::move(moved);
    EXPECT_EQ(assigned.parent(), 7);
    EXPECT_EQ(assigned.size(), 2U);
}

TEST(AttributeContainerTest, JsonHoldsEveryAttribute)
{
    AttributeContainer container = filled();
    container.setValue("truth", AttributeValuePlain<bool>(true));
    container.setValue("none", AttributeValuePlain<double>(std::numeric_limits<double>::infinity()));
    container.setAttribute(new Attribute<Text>(7, "empty"));
    EXPECT_EQ(jsonText(container.toJSON(0)), R"({"empty":null,"none":null,"number":1,"text":"a","truth":true})");
}

TEST(AttributeContainerTest, JsonOfFieldsHoldsThoseThatThereAre)
{
    EXPECT_EQ(jsonText(filled().toJSON({"text", "other"})), R"({"text":"a"})");
    EXPECT_EQ(jsonText(filled().toJSON(std::vector<std::string>())), "{}");
}

} // namespace
