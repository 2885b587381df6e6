#pragma once

#include "AttributeValuePlain.h"
#include "GenericObject.h"
#include "ResourceBase.h"
#include "ServiceBase.h"

namespace Kesa
{

/// The entry of a service at the registry: what a client needs to reach it.
///
/// As JSON: `id`, `name`, `uri`, `host`, `port`, `ports` (an object of name to number), `apiVersions` (an array of
/// text), `description`, and whatever else the registry holds.
///
/// Ownership: copies share their attributes.
/// Errors:    Poco::InvalidAccessException where an attribute is absent or of another type.
/// Threads:   no locks.
class KESA_API MicroServiceInfo: public Data::GenericObject<Data::ServiceBase>
{
public:
    typedef Poco::SharedPtr<MicroServiceInfo> Ptr;

    static const std::string KEY_HOST;
    static const std::string KEY_PORT;
    static const std::string KEY_PORTS;
    static const std::string KEY_API_VERSIONS;
    static const std::string KEY_DESCRIPTION;

    /// An entry without attributes.
    explicit MicroServiceInfo(Data::XObjectId id = Data::INVALID_XOBJ_ID);
    /// The entry of `service`: copies of its attributes, and name, URI, host and ports, API versions and description as
    /// its operations give them. Raises what those operations raise.
    explicit MicroServiceInfo(const Data::ServiceBase& service);
    MicroServiceInfo(const MicroServiceInfo& other);
    MicroServiceInfo(MicroServiceInfo&& other) noexcept;
    MicroServiceInfo& operator=(const MicroServiceInfo& other);
    MicroServiceInfo& operator=(MicroServiceInfo&& other) noexcept;
    ~MicroServiceInfo() override;

    std::string getHost() const override;
    /// Empty if there is none.
    std::string getDescription() const override;
    /// Empty if there are none.
    std::vector<std::string> getApiVersions() const override;
    /// The attribute `id`.
    Poco::UUID getRegistryId() const override;
    /// Raises Poco::InvalidAccessException also for a number that is no port.
    Poco::UInt16 getPort() const override;
    /// Empty if there are none.
    std::map<std::string, Poco::UInt16> getPorts() const override;
    void setRegistryId(const Poco::UUID& id) override;
    /// None: the entry of a service does not hold its resources.
    virtual std::vector<Data::ResourceBase::Ptr> getResources() const;

    /// The text of the id.
    std::string getIdString() const;

    /// A note of the holder's own, empty at first: which of a process's services the entry stands for, say. No
    /// attribute, and not part of the JSON.
    const std::string& label() const { return m_label; }
    void setLabel(const std::string& label) { m_label = label; }

    /// The entry that `object` stands for; the caller owns it. Null if `object` is null, lacks `name`, `uri`, `host` or
    /// `port`, or has a member of a wrong type or value. Members of other names are kept. Never raises.
    static MicroServiceInfo* FromJson(const Poco::JSON::Object::Ptr& object);

private:
    std::string m_label;
};

} // namespace Kesa
