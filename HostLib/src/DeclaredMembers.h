#pragma once

#include "Export.h"
#include "Mutex.h"

#include <map>
#include <memory>
#include <set>
#include <string>

namespace Kesa::Command
{
class RequestBase;
}

namespace Kesa::Host
{

/// The members that resources declare for their elements: those under `properties` where getSpecification()
/// is the text of a JSON Schema object. A resource where it is anything else declares none, and every name is fine.
///
/// Threads: every operation from any thread.
class KESA_API DeclaredMembers
{
public:
    static constexpr std::size_t MAX_KEPT = 256; ///< schemas kept in parsed form: more than a service has

    /// The first name in the request's fields, order or search that `schemaText` does not declare, empty if there
    /// is none. `id`, `uri` and `name` belong to every element.
    std::string unknownMember(const std::string& schemaText, const Command::RequestBase& request)
        KESA_EXCLUDES(m_mutex);

private:
    typedef std::set<std::string> Names;

    std::shared_ptr<const Names> namesOf(const std::string& schemaText) KESA_EXCLUDES(m_mutex);

    /// Guards the kept names; nothing else is taken under it.
    Util::FastMutex m_mutex;
    std::map<std::string, std::shared_ptr<const Names>> m_kept KESA_GUARDED_BY(m_mutex); ///< null: declares none
};

} // namespace Kesa::Host
