#pragma once

#include "Export.h"

#include <string>
#include <vector>

namespace Poco::Net
{
class HTTPMessage;
}

namespace Kesa::Host
{

/// The conditions `If-Match` and `If-None-Match` of a request.
///
/// Threads: one object may be read by many threads at once.
class KESA_API ConditionalRequest
{
public:
    enum class Verdict
    {
        PROCEED,
        NOT_MODIFIED, ///< 304: the client has this state already
        FAILED        ///< 412: the state is another one than the client thinks
    };

    explicit ConditionalRequest(const Poco::Net::HTTPMessage& request);

    /// False if there is no condition, so that nobody needs the state's tag.
    bool isConditional() const { return m_match.isGiven || m_noneMatch.isGiven; }
    /// `etag`: the tag of the state that is there, empty if it has none; `exists` tells whether there is a state.
    Verdict judgeRead(bool exists, const std::string& etag) const;
    Verdict judgeWrite(bool exists, const std::string& etag) const;

    /// The tag of a state: strong, from its text alone, so that it is the same after a restart.
    static std::string tagOf(const std::string& text);

private:
    /// One of the two fields.
    struct Tags
    {
        bool isGiven = false;
        bool isAny = false;              ///< "*"
        std::vector<std::string> strong; ///< with their quotes
        std::vector<std::string> weak;   ///< without the W/

        void read(const Poco::Net::HTTPMessage& request, const std::string& field);
        void readList(const std::string& list);
    };

    bool matchFails(bool exists, const std::string& etag) const;
    bool noneMatchFails(bool exists, const std::string& etag) const;

    Tags m_match;
    Tags m_noneMatch;
};

} // namespace Kesa::Host
