#pragma once

#include <Export.h>
#include <Mutex.h>

#include <Poco/JSON/Object.h>

#include <memory>
#include <string>

namespace Kesa::Command
{

/// The text of a response's document, made once and shared by all who send it. The text of the data is kept apart, so
/// that a response that carries the same data under another event does not write it again.
///
/// Nothing is kept before settle(): until then the document may still be changed by others who hold parts of it.
///
/// Threads: get() from many threads at once; nothing else while another thread uses the object.
class KESA_API ResponseText
{
public:
    typedef std::shared_ptr<const std::string> Text;

    ResponseText() = default;
    ResponseText(const ResponseText& other);
    ResponseText& operator=(const ResponseText& other);

    /// Nobody else holds a part of the document from now on, so that its text may be kept.
    void settle();
    /// A member other than the data is another one now.
    void memberChanged();
    /// The data is another one now, held by others too.
    void dataChanged();

    /// The text of `document`.
    Text get(const Poco::JSON::Object& document) const KESA_EXCLUDES(m_mutex);

private:
    Text writeLocked(const Poco::JSON::Object& document) const KESA_REQUIRES(m_mutex);
    void appendDataLocked(std::string& text, const Poco::Dynamic::Var& data) const KESA_REQUIRES(m_mutex);

    /// Guards the two texts against concurrent get().
    mutable Util::FastMutex m_mutex;
    mutable Text m_whole KESA_GUARDED_BY(m_mutex);
    mutable Text m_data KESA_GUARDED_BY(m_mutex);
    bool m_settled = false;
};

} // namespace Kesa::Command
