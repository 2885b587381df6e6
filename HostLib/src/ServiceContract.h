#pragma once

#include "Data/ResourceBase.h"
#include "Data/ServiceBase.h"

#include <Poco/JSON/Object.h>

#include <map>
#include <string>
#include <vector>

namespace Kesa::Service
{
class ServiceDataAccessPoint;
}

namespace Kesa::Host
{

/// A service as the documents that describe it see it: its names, and the shapes of what it gives and takes, as JSON
/// Schemas. It tells what stands in the data access point at the time.
///
/// Threads: one thread at a time.
class ServiceContract
{
public:
    struct Resource
    {
        std::string name;
        std::string schema;               ///< the name of the schema of its elements
        std::string membersSchema;        ///< that of their members, without id and uri
        std::string path;                 ///< "/service/name", encoded
        std::vector<std::string> members; ///< that the resource declares; empty if it declares none
    };

    /// `version`: of the service's API. Raises Poco::NotFoundException if there is no such service.
    ServiceContract(Service::ServiceDataAccessPoint& data, const std::string& service, const std::string& version);
    ~ServiceContract();

    const std::string& name() const { return m_name; }
    const std::string& path() const { return m_path; } ///< "/service", encoded
    const std::vector<Resource>& resources() const { return m_resources; }
    /// Title, description and version.
    Poco::JSON::Object::Ptr info() const;
    /// By name: of each resource's elements, of lists of services and resources, of the paging block and of errors.
    Poco::JSON::Object::Ptr answerSchemas() const { return m_answerSchemas; }
    /// By name: of what a client gives for a resource's element.
    Poco::JSON::Object::Ptr requestSchemas() const { return m_requestSchemas; }

    typedef std::map<std::string, std::string> Words;
    /// The JSON object `text`, with every `<word>` replaced by the text that stands for it.
    static Poco::JSON::Object::Ptr json(std::string text, const Words& words = {});

private:
    void addResource(const Data::ResourceBase& resource);

    std::string m_name;
    std::string m_path;
    std::string m_description;
    std::string m_version;
    std::vector<Resource> m_resources;
    Poco::JSON::Object::Ptr m_answerSchemas;
    Poco::JSON::Object::Ptr m_requestSchemas;
};

} // namespace Kesa::Host
