#include <Command/Query/AnyValueSearch.h>
#include <Data/AttributeValueBase.h>

#include <Poco/Clock.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <gtest/gtest.h>

using Kesa::Command::AnyValueSearch;
using Poco::Dynamic::Var;

namespace
{

struct Search
{
    const char* pattern;
    const char* text;
    bool found;
};

std::ostream& operator<<(std::ostream& out, const Search& search)
{
    return out << search.pattern << " in " << search.text;
}

class AnyValueSearchTexts: public testing::TestWithParam<Search>
{
};

TEST_P(AnyValueSearchTexts, AreFoundAnywhereWhateverTheLetterCase)
{
    EXPECT_EQ(AnyValueSearch(GetParam().pattern).match(Var(std::string(GetParam().text))), GetParam().found);
}

INSTANTIATE_TEST_SUITE_P(
    Table, AnyValueSearchTexts,
    testing::Values(Search{"text", "some Text here", true}, Search{"TEXT", "context", true},
                    Search{"text", "tex", false}, Search{"\xC3\xA4rger", "\xC3\x84RGER", true},
                    Search{"a*c", "xxAbbbC", true}, Search{"a*c", "ca", false}, Search{"*", "", true},
                    Search{"*", "anything", true}, Search{"**a**", "xxaxx", true}, Search{"a%2Ac", "abc", true},
                    Search{"a%2ac", "abc", true}, Search{"a*b*c", "a b c", true}, Search{"a*b*c", "a c b", false},
                    Search{"a*a", "a", false}, Search{"a*a", "aa", true}, Search{".", "x", false},
                    Search{".", "a.b", true}, Search{"(", "f(x)", true}, Search{"\\E", "a\\eb", true},
                    Search{"[a-z]", "b", false}, Search{"a\nb*", "A\nB", true}, Search{"a*b", "a\nb", true},
                    Search{"^a", "a", false}, Search{"a$", "a", false}, Search{"a_b c", "A_B C", true},
                    Search{"x{2}", "xx", false}));

TEST(AnyValueSearchTest, EmptyTextIsInvalidAndMatchesEverything)
{
    const AnyValueSearch search("");
    EXPECT_FALSE(search.isValid());
    EXPECT_TRUE(search.match(Var("x")));
}

TEST(AnyValueSearchTest, OverlongAndBrokenTextsAreInvalid)
{
    EXPECT_TRUE(AnyValueSearch(std::string(1024, 'a')).isValid());
    EXPECT_FALSE(AnyValueSearch(std::string(1025, 'a')).isValid());
    EXPECT_FALSE(AnyValueSearch("a\xFF").isValid());
    EXPECT_TRUE(AnyValueSearch(std::string(1024, '\x01')).isValid());
}

TEST(AnyValueSearchTest, KeepsItsTextAsItWasGiven)
{
    EXPECT_EQ(AnyValueSearch("a*B").getQueryValue(), "a*B");
}

TEST(AnyValueSearchTest, FindsANulCharacter)
{
    const AnyValueSearch search(std::string("a\0b", 3));
    EXPECT_TRUE(search.match(Var(std::string("xa\0bx", 5))));
    EXPECT_FALSE(search.match(Var(std::string("xa"))));
}

TEST(AnyValueSearchTest, ScalarsOfOtherTypesAreSearchedAsJsonWritesThem)
{
    EXPECT_TRUE(AnyValueSearch("23").match(Var(12345)));
    EXPECT_TRUE(AnyValueSearch("1.5").match(Var(1.5)));
    EXPECT_TRUE(AnyValueSearch("TRUE").match(Var(true)));
    EXPECT_FALSE(AnyValueSearch("1").match(Var(true)));
    EXPECT_TRUE(AnyValueSearch("null").match(Var()));
}

TEST(AnyValueSearchTest, LooksIntoObjectsAndArraysAtAnyDepthButNotAtNames)
{
    Poco::JSON::Object::Ptr inner = new Poco::JSON::Object;
    inner->set("name", "needle");
    Poco::JSON::Array::Ptr array = new Poco::JSON::Array;
    array->add(1);
    array->add(inner);
    Poco::JSON::Object byValue;
    byValue.set("list", array);
    EXPECT_TRUE(AnyValueSearch("needle").match(Var(byValue)));
    EXPECT_TRUE(AnyValueSearch("needle").match(Var(array)));
    EXPECT_FALSE(AnyValueSearch("list").match(Var(byValue)));
    EXPECT_FALSE(AnyValueSearch("needle").match(Var(Poco::JSON::Object::Ptr(new Poco::JSON::Object))));
}

TEST(AnyValueSearchTest, NestWithoutEndIsSearchedToABound)
{
    Poco::JSON::Array::Ptr cycle = new Poco::JSON::Array;
    cycle->add(cycle);
    EXPECT_FALSE(AnyValueSearch("x").match(Var(cycle)));
    cycle->clear();
}

TEST(AnyValueSearchTest, BrokenUtf8InAValueIsSearchedAllTheSame)
{
    EXPECT_TRUE(AnyValueSearch("tail").match(Var(std::string("\xFF\xC3 tail"))));
    EXPECT_TRUE(AnyValueSearch("\xEF\xBF\xBD").match(Var(std::string("\xFF"))));
}

TEST(AnyValueSearchTest, ManyWildcardsCostLinearTime)
{
    std::string pattern;
    for (int i = 0; i < 512; ++i)
        pattern += "a*";
    const std::string text = std::string(100000, 'a') + std::string(100, 'b');
    const Poco::Clock begin;
    EXPECT_TRUE(AnyValueSearch(pattern).match(Var(text)));
    EXPECT_FALSE(AnyValueSearch(pattern.substr(0, 1000) + "c").match(Var(text)));
    EXPECT_LT(begin.elapsed(), 10 * Poco::Clock::resolution()) << "backtracking would take longer than the universe";
}

/// An attribute's value that is read as a generic one.
class TextValue: public Kesa::Data::AttributeValueBase
{
public:
    explicit TextValue(const std::string& text): m_text(text) {}
    const std::type_info& type() const override { return typeid(std::string); }
    Kesa::Data::GenericValue asGeneric() const override { return m_text; }
    Var toJSON(int) const override { return m_text; }
    bool isXObjReference() const override { return false; }
    bool isArray() const override { return false; }
    bool setValue(const AttributeValueBase&) override { return false; }
    int compare(const AttributeValueBase&) const override { return 0; }

private:
    std::string m_text;
};

TEST(AnyValueSearchTest, AttributeValuesAreSearchedAsGenericOnes)
{
    EXPECT_TRUE(AnyValueSearch("needle").match(TextValue("a Needle")));
    EXPECT_FALSE(AnyValueSearch("needle").match(TextValue("hay")));
    EXPECT_TRUE(TextValue("x").convert<TextValue>() != nullptr);
}

} // namespace
