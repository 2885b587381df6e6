#pragma once

#include "Export.h"

#include <Poco/SharedPtr.h>

#include <string>
#include <vector>

namespace Poco::Net
{
class HTTPServerRequest;
}

namespace Kesa::Service
{

/// Reads the API version that a client asks for in the header "Accept", as the vendor media type
/// `application/vnd.kesa.v1.2.3+json`, and decides whether a service can serve it. A request that names no usable
/// version is always accepted.
///
/// Threads: stateless; any thread.
class KESA_API VersionCheck
{
public:
    /// An API version.
    struct KESA_API VersionTuple
    {
        unsigned int majorNo = 0;
        unsigned int minorNo = 0;
        unsigned int patchNo = 0;

        VersionTuple();
        VersionTuple(unsigned int major, unsigned int minor, unsigned int patch);

        /// True if a client of this version is served by a service of the version `other`: the same major and minor
        /// number, and a patch level that is not above the service's.
        bool isPatchCompatibleTo(const VersionTuple& other) const;
    };

    VersionCheck() = default;

    /// The body of an answer to a client whose version is not served.
    static const std::string msgVersionNotImplemented;

    /// Reads three numbers with dots between them. False for anything else; the numbers before the one that could not
    /// be read are then set all the same.
    static bool parseVersionString(const std::string& versionString, VersionTuple& version);
    /// The version of the first vendor media type in the header "Accept". False if there is none that can be read.
    static bool getVersionFromRequest(const Poco::Net::HTTPServerRequest& request, VersionTuple& version);
    /// The version of a service, which has to be the only one in the list; false if it is no version. Raises
    /// Poco::RuntimeException for an empty list, Poco::NotImplementedException for more than one. The pointers are not
    /// null.
    static bool parseServiceVersion(const std::vector<Poco::SharedPtr<std::string>>& supportedServiceVersions,
                                    VersionTuple& version);
    static bool parseServiceVersion(const std::vector<std::string>& supportedServiceVersions, VersionTuple& version);
    /// Whether a service of `serviceVersions` may serve the request. Raises as parseServiceVersion does, but only if
    /// the request names a version.
    static bool acceptedVersionMatches(const Poco::Net::HTTPServerRequest& request,
                                       const std::vector<Poco::SharedPtr<std::string>>& serviceVersions);
    static bool acceptedVersionMatches(const Poco::Net::HTTPServerRequest& request,
                                       const std::vector<std::string>& serviceVersions);

private:
    VersionCheck(const VersionCheck&) = default;
    VersionCheck& operator=(const VersionCheck&) = default;
};

} // namespace Kesa::Service
