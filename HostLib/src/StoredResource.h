#pragma once

#include "StoredElement.h"

#include "Data/ResourceBase.h"
#include "Mutex.h"

#include <unordered_map>

namespace Kesa::Host
{

/// A resource of a store, with its present elements in the order of their numbers.
///
/// Threads: any, at once.
class StoredResource: public Data::GenericObject<Data::ResourceBase>
{
public:
    typedef Poco::SharedPtr<StoredResource> Ptr;

    StoredResource(const std::string& service, const std::string& name, const std::string& description,
                   const std::string& schemaText, Data::XObjectId number);
    ~StoredResource() override;

    std::string getDescription() const override { return m_description; }
    const std::string& getSpecification() const override { return m_specification; }
    bool hasElement(Data::XObjectId number) const override;
    Data::ElementBase::Ptr getElement(Data::XObjectId number) const override;
    Data::ElementCollection getElements() const override;

    const std::string& name() const { return m_name; }
    const std::string& path() const { return m_path; } ///< "/service/name"
    /// The element of this id, null if there is none.
    StoredElement::Ptr find(const std::string& id) const;
    std::size_t count() const;
    /// Puts `element` in the place of the one with its number, else at the end.
    void put(const StoredElement::Ptr& element);
    /// Takes the element of this id out; nothing if there is none.
    void remove(const std::string& id);

private:
    /// Where the element of this number stands, or the next one.
    Data::ElementCollection::iterator position(Data::XObjectId number) KESA_REQUIRES(m_lock);

    const std::string m_name;
    const std::string m_path;
    const std::string m_description;
    const std::string m_specification;
    /// Guards the elements, which the two containers hold alike.
    mutable Util::RWLock m_lock;
    Data::ElementCollection m_elements KESA_GUARDED_BY(m_lock); ///< by number
    std::unordered_map<std::string, StoredElement::Ptr> m_byId KESA_GUARDED_BY(m_lock);
};

} // namespace Kesa::Host
