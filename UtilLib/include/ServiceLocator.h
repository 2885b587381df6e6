#pragma once

#include "Export.h"
#include "Mutex.h"

#include <Poco/Any.h>
#include <Poco/SharedPtr.h>

#include <typeinfo>
#include <utility>
#include <vector>

/// Maps a type to a shared object. May hold several entries for one type; find() yields the oldest.
///
/// Ownership: shares what is inserted until it is erased.
/// Threads:   every operation from any thread. No object is destroyed under the lock.
class KESA_API ServiceLocator
{
public:
    /// True with `out` set if an entry for the type exists.
    bool find(const std::type_info* key, Poco::Any& out) const;
    /// Adds an entry. `value` holds a Poco::SharedPtr of the type.
    void insert(const std::type_info* key, Poco::Any value);
    /// Removes one entry of the type; true if it removed one.
    bool erase(const std::type_info* key);

    /// The object registered for T, or null.
    template <class T>
    Poco::SharedPtr<T> getService()
    {
        Poco::Any entry;
        if (!find(&typeid(T), entry))
            return Poco::SharedPtr<T>();
        const auto* service = Poco::AnyCast<Poco::SharedPtr<T>>(&entry);
        return service ? *service : Poco::SharedPtr<T>();
    }

private:
    /// Compared by == and not by address: a program with hidden visibility has a type_info object of its own.
    typedef std::pair<const std::type_info*, Poco::Any> Entry;

    mutable Kesa::Util::FastMutex m_mutex;
    std::vector<Entry> m_entries KESA_GUARDED_BY(m_mutex);
};
