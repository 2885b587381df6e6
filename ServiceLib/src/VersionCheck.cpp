#include "VersionCheck.h"

#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/NumberParser.h>
#include <Poco/RegularExpression.h>

#include <sstream>

namespace Kesa
{

const std::string Service::VersionCheck::msgVersionNotImplemented =
    R"({"type":"error","code":404,"message":"Requested version not implemented"})";

namespace
{
const std::string msgErrorNoApiVersion = "Service does not support any API versions";
const std::string msgErrorMultipleApiVersions = "Handling of multiple API versions simultaneously not implemented";
const std::string acceptHeaderString = "Accept";
const Poco::RegularExpression acceptApplicationPattern(R"(application/vnd\.kesa\.v\d+\.\d+\.\d+\+json)", 0, true);
const Poco::RegularExpression versionTriplePattern(R"(\d+\.\d+\.\d+)", 0, true);

/// The pieces between the dots; a dot at the end has none behind it.
void splitString(const std::string& text, std::vector<std::string>& pieces)
{
    std::istringstream stream(text);
    std::string piece;
    while (std::getline(stream, piece, '.'))
        pieces.push_back(piece);
}

const std::string& textOf(const std::string& version)
{
    return version;
}

const std::string& textOf(const Poco::SharedPtr<std::string>& version)
{
    return *version;
}

template <class Text>
bool parseOnlyVersion(const std::vector<Text>& supported, Service::VersionCheck::VersionTuple& version)
{
    if (supported.empty())
        throw Poco::RuntimeException(msgErrorNoApiVersion);
    if (supported.size() > 1)
        throw Poco::NotImplementedException(msgErrorMultipleApiVersions);
    return Service::VersionCheck::parseVersionString(textOf(supported.front()), version);
}

template <class Text>
bool isServed(const Poco::Net::HTTPServerRequest& request, const std::vector<Text>& serviceVersions)
{
    Service::VersionCheck::VersionTuple requestedVersion;
    if (!Service::VersionCheck::getVersionFromRequest(request, requestedVersion))
        return true;
    Service::VersionCheck::VersionTuple serviceVersion;
    return Service::VersionCheck::parseServiceVersion(serviceVersions, serviceVersion) &&
           requestedVersion.isPatchCompatibleTo(serviceVersion);
}
} // namespace

namespace Service
{

VersionCheck::VersionTuple::VersionTuple() = default;

VersionCheck::VersionTuple::VersionTuple(unsigned int major, unsigned int minor, unsigned int patch)
    : majorNo(major), minorNo(minor), patchNo(patch)
{
}

bool VersionCheck::VersionTuple::isPatchCompatibleTo(const VersionTuple& other) const
{
    return majorNo == other.majorNo && minorNo == other.minorNo && patchNo <= other.patchNo;
}

bool VersionCheck::parseVersionString(const std::string& versionString, VersionTuple& version)
{
    std::vector<std::string> pieces;
    splitString(versionString, pieces);
    return pieces.size() == 3 && Poco::NumberParser::tryParseUnsigned(pieces[0], version.majorNo) &&
           Poco::NumberParser::tryParseUnsigned(pieces[1], version.minorNo) &&
           Poco::NumberParser::tryParseUnsigned(pieces[2], version.patchNo);
}

bool VersionCheck::getVersionFromRequest(const Poco::Net::HTTPServerRequest& request, VersionTuple& version)
{
    if (!request.has(acceptHeaderString))
        return false;
    std::string mediaType;
    if (acceptApplicationPattern.extract(request.get(acceptHeaderString), mediaType) != 1)
        return false;
    std::string triple;
    return versionTriplePattern.extract(mediaType, triple) == 1 && parseVersionString(triple, version);
}

bool VersionCheck::parseServiceVersion(const std::vector<Poco::SharedPtr<std::string>>& supportedServiceVersions,
                                       VersionTuple& version)
{
    return parseOnlyVersion(supportedServiceVersions, version);
}

bool VersionCheck::parseServiceVersion(const std::vector<std::string>& supportedServiceVersions, VersionTuple& version)
{
    return parseOnlyVersion(supportedServiceVersions, version);
}

bool VersionCheck::acceptedVersionMatches(const Poco::Net::HTTPServerRequest& request,
                                          const std::vector<Poco::SharedPtr<std::string>>& serviceVersions)
{
    return isServed(request, serviceVersions);
}

bool VersionCheck::acceptedVersionMatches(const Poco::Net::HTTPServerRequest& request,
                                          const std::vector<std::string>& serviceVersions)
{
    return isServed(request, serviceVersions);
}

} // namespace Service

} // namespace Kesa
