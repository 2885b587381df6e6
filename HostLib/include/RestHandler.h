#pragma once

#include "Export.h"

#include <memory>
#include <string>
#include <vector>

namespace Poco::Net
{
class HTTPServerRequest;
class HTTPServerResponse;
} // namespace Poco::Net

namespace Kesa::Host
{

/// Answers HTTP requests on the service's URLs.
///
/// | Method and URL                          | Does                                                               |
/// |-----------------------------------------|--------------------------------------------------------------------|
/// | GET of root, service, resource, element | reads, as `$fields`, `$sortby`, `$q`, `key=value`, `$offset`,      |
/// |                                         | `$limit` and `$expand` ask: `{"status":"ok","data":...}`, `paging` |
/// | HEAD                                    | as GET, without a body                                             |
/// | POST on a resource                      | a new element, whose id the service chooses: 201 with `Location`   |
/// | PUT on an element                       | a new element under that id: 201; 409 if there is one              |
/// | POST on an element                      | update of the members given: 200                                   |
/// | DELETE on an element                    | 200; with `$fields` only those members go                          |
/// | OPTIONS                                 | the methods that the URL knows, in `Allow`                         |
/// | GET of `/service/$spec`                 | the service's OpenAPI document as it stands, or with               |
/// |                                         | `format=asyncapi` the AsyncAPI document of its websocket           |
///
/// A whole element comes with an `ETag`, and `If-Match` and `If-None-Match` hold for it. Whatever fails is answered
/// with an error document. Writing needs a DataAccessTrigger: the data of any other trigger are only read.
///
/// Ownership: owns nothing; finds the trigger through the locator for every request.
/// Threads:   handle() on several threads at once; the data source is called on them.
/// Errors:    what a client did wrong is answered with an error document; an exception of the data goes to the caller.
class KESA_API RestHandler
{
public:
    struct Options
    {
        /// The version of its API that the service speaks, as "1.2.3". A client that asks for another one in its
        /// `Accept` header is refused with 404; with an empty list, or more than one entry, with 501.
        std::vector<std::string> apiVersions;
        /// How many threads may wait for long bodies at once; 0: half of FrontDoor::DEFAULT_THREADS.
        unsigned bodyWaiters = 0;
    };

    RestHandler();
    explicit RestHandler(const Options& options);
    ~RestHandler();
    RestHandler(const RestHandler&) = delete;
    RestHandler& operator=(const RestHandler&) = delete;

    /// Sends the answer, whatever the request was.
    void handle(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response) const;

private:
    struct Parts;

    const std::unique_ptr<Parts> m_parts;
};

} // namespace Kesa::Host
