#include <VersionCheck.h>

#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/SocketAddress.h>

#include <gtest/gtest.h>

#include <sstream>
#include <type_traits>

using Kesa::Service::VersionCheck;
typedef VersionCheck::VersionTuple VersionTuple;
typedef std::vector<std::string> Versions;

namespace
{

/// A request of which only the head is looked at.
class HeadOfRequest: public Poco::Net::HTTPServerRequest
{
public:
    HeadOfRequest() = default;
    explicit HeadOfRequest(const std::string& accept) { set("accept", accept); }

    std::istream& stream() override { return m_body; }
    const Poco::Net::SocketAddress& clientAddress() const override { return m_address; }
    const Poco::Net::SocketAddress& serverAddress() const override { return m_address; }
    const Poco::Net::HTTPServerParams& serverParams() const override { throw Poco::NotImplementedException(); }
    Poco::Net::HTTPServerResponse& response() const override { throw Poco::NotImplementedException(); }
    bool secure() const override { return false; }

private:
    std::istringstream m_body;
    Poco::Net::SocketAddress m_address;
};

std::string vendorType(const std::string& version)
{
    return "application/vnd.kesa.v" + version + "+json";
}

/// The versions behind the pointers that the other overloads take.
std::vector<Poco::SharedPtr<std::string>> shared(const Versions& versions)
{
    std::vector<Poco::SharedPtr<std::string>> pointers;
    for (const std::string& version: versions)
        pointers.push_back(new std::string(version));
    return pointers;
}

std::string textOf(const VersionTuple& version)
{
    return std::to_string(version.majorNo) + "." + std::to_string(version.minorNo) + "." +
           std::to_string(version.patchNo);
}

struct Check
{
    std::string name;
    std::string accept; ///< empty: no such header
    Versions versions;
    bool outcome;
};

class AcceptedVersionTest: public testing::TestWithParam<Check>
{
};

TEST_P(AcceptedVersionTest, IsServedOrNot)
{
    const HeadOfRequest request = GetParam().accept.empty() ? HeadOfRequest() : HeadOfRequest(GetParam().accept);
    EXPECT_EQ(VersionCheck::acceptedVersionMatches(request, GetParam().versions), GetParam().outcome);
    EXPECT_EQ(VersionCheck::acceptedVersionMatches(request, shared(GetParam().versions)), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, AcceptedVersionTest,
    testing::Values(Check{"NoHeader", "", {"1.2.3"}, true}, Check{"NoHeaderNoVersions", "", {}, true},
                    Check{"NoHeaderTwoVersions", "", {"1.2.3", "2.0.0"}, true},
                    Check{"OtherTypesNoVersions", "text/html, application/json", {}, true},
                    Check{"OtherTypesTwoVersions", "*/*", {"1.2.3", "2.0.0"}, true},
                    Check{"NumberTooLarge", vendorType("1.2.4294967296"), {"9.9.9"}, true},
                    Check{"NumberTooLargeNoVersions", vendorType("99999999999.0.0"), {}, true},
                    Check{"ServiceVersionIsNoTriple", vendorType("1.2.3"), {"v1.2.3"}, false},
                    Check{"ServiceVersionIsEmpty", vendorType("1.2.3"), {""}, false},
                    Check{"SamePatch", vendorType("1.2.3"), {"1.2.3"}, true},
                    Check{"NewerPatchOfService", vendorType("1.2.3"), {"1.2.4"}, true},
                    Check{"OlderPatchOfService", vendorType("1.2.3"), {"1.2.2"}, false},
                    Check{"OtherMinor", vendorType("1.3.0"), {"1.2.9"}, false},
                    Check{"OlderMinor", vendorType("1.2.0"), {"1.3.0"}, false},
                    Check{"OtherMajor", vendorType("2.0.0"), {"1.9.9"}, false},
                    Check{"OlderMajor", vendorType("1.9.9"), {"2.9.9"}, false},
                    Check{"LargestNumber", vendorType("1.2.4294967295"), {"1.2.4294967295"}, true},
                    Check{"BehindAnotherType", "text/html;q=0.9, " + vendorType("1.2.3") + ";q=0.5", {"1.2.2"}, false},
                    Check{"OnlyTheFirstOfTwoFits", vendorType("1.2.3") + ", " + vendorType("9.9.9"), {"1.2.3"}, true},
                    Check{"OnlyTheSecondOfTwoFits", vendorType("9.9.9") + ", " + vendorType("1.2.3"), {"1.2.3"}, false},
                    Check{"OtherLetterCase", "application/vnd.Kesa.v9.9.9+json", {"1.2.3"}, true},
                    Check{"WithoutSuffix", "application/vnd.kesa.v9.9.9", {"1.2.3"}, true},
                    Check{"TwoNumbers", vendorType("9.9"), {"1.2.3"}, true},
                    Check{"InsideAnotherWord", "x" + vendorType("9.9.9") + "x", {"1.2.3"}, false}),
    [](const auto& row) { return row.param.name; });

TEST(VersionCheckTest, VersionOfARequestToAServiceWithoutVersionsRaises)
{
    const HeadOfRequest request(vendorType("1.2.3"));
    for (const bool isShared: {false, true})
        try
        {
            if (isShared)
                VersionCheck::acceptedVersionMatches(request, shared({}));
            else
                VersionCheck::acceptedVersionMatches(request, Versions());
            FAIL();
        }
        catch (const Poco::RuntimeException& exception)
        {
            EXPECT_EQ(exception.message(), "Service does not support any API versions");
        }
}

TEST(VersionCheckTest, VersionOfARequestToAServiceOfTwoVersionsRaises)
{
    const HeadOfRequest request(vendorType("1.2.3"));
    for (const bool isShared: {false, true})
        try
        {
            if (isShared)
                VersionCheck::acceptedVersionMatches(request, shared({"1.2.3", "2.0.0"}));
            else
                VersionCheck::acceptedVersionMatches(request, Versions{"1.2.3", "2.0.0"});
            FAIL();
        }
        catch (const Poco::NotImplementedException& exception)
        {
            EXPECT_EQ(exception.message(), "Handling of multiple API versions simultaneously not implemented");
        }
}

struct Text
{
    std::string text;
    bool isVersion;
    std::string version; ///< afterwards, from 7.8.9 before
};

class VersionStringTest: public testing::TestWithParam<Text>
{
};

TEST_P(VersionStringTest, IsReadOrNot)
{
    VersionTuple version(7, 8, 9);
    EXPECT_EQ(VersionCheck::parseVersionString(GetParam().text, version), GetParam().isVersion);
    EXPECT_EQ(textOf(version), GetParam().version);

    VersionTuple ofService(7, 8, 9);
    EXPECT_EQ(VersionCheck::parseServiceVersion(Versions{GetParam().text}, ofService), GetParam().isVersion);
    EXPECT_EQ(textOf(ofService), GetParam().version);
    VersionTuple ofSharedText(7, 8, 9);
    EXPECT_EQ(VersionCheck::parseServiceVersion(shared({GetParam().text}), ofSharedText), GetParam().isVersion);
    EXPECT_EQ(textOf(ofSharedText), GetParam().version);
}

INSTANTIATE_TEST_SUITE_P(Texts, VersionStringTest,
                         testing::Values(Text{"1.2.3", true, "1.2.3"}, Text{"1.2.3.", true, "1.2.3"},
                                         Text{"0.0.4294967295", true, "0.0.4294967295"}, Text{"1.2", false, "7.8.9"},
                                         Text{"1.2.3.4", false, "7.8.9"}, Text{"", false, "7.8.9"},
                                         Text{"1..3", false, "1.8.9"}, Text{"v1.2.3", false, "7.8.9"},
                                         Text{"1.2.x", false, "1.2.9"}, Text{"1.2.4294967296", false, "1.2.9"},
                                         Text{"1.2.3..", false, "7.8.9"}, Text{"-1.2.3", false, "7.8.9"}));

TEST(VersionCheckTest, VersionIsReadFromTheFirstVendorTypeOfTheFirstHeader)
{
    VersionTuple version;
    EXPECT_EQ(textOf(version), "0.0.0");
    EXPECT_FALSE(VersionCheck::getVersionFromRequest(HeadOfRequest(), version));
    EXPECT_FALSE(VersionCheck::getVersionFromRequest(HeadOfRequest("application/json"), version));
    HeadOfRequest request("text/html;level=1, " + vendorType("1.22.333") + "; q=0.3, " + vendorType("4.5.6"));
    request.add("Accept", vendorType("7.8.9"));
    EXPECT_TRUE(VersionCheck::getVersionFromRequest(request, version));
    EXPECT_EQ(textOf(version), "1.22.333");
}

TEST(VersionCheckTest, OlderPatchOfTheSameMinorIsServed)
{
    EXPECT_TRUE(VersionTuple(1, 2, 3).isPatchCompatibleTo(VersionTuple(1, 2, 3)));
    EXPECT_TRUE(VersionTuple(1, 2, 3).isPatchCompatibleTo(VersionTuple(1, 2, 4)));
    EXPECT_FALSE(VersionTuple(1, 2, 3).isPatchCompatibleTo(VersionTuple(1, 2, 2)));
    EXPECT_FALSE(VersionTuple(1, 2, 3).isPatchCompatibleTo(VersionTuple(1, 3, 3)));
    EXPECT_FALSE(VersionTuple(1, 2, 3).isPatchCompatibleTo(VersionTuple(2, 2, 3)));
}

TEST(VersionCheckTest, BodyForARefusedVersionIsOneFixedText)
{
    EXPECT_EQ(VersionCheck::msgVersionNotImplemented,
              "{\"type\":\"error\",\"code\":404,\"message\":\"Requested version not implemented\"}");
}

TEST(VersionCheckTest, IsNotCopiedByOthers)
{
    static_assert(std::is_default_constructible_v<VersionCheck>);
    static_assert(!std::is_copy_constructible_v<VersionCheck> && !std::is_copy_assignable_v<VersionCheck>);
}

} // namespace
