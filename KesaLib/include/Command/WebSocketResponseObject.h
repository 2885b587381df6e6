#pragma once

#include "ResponseObject.h"
#include "WebSocketRequestObject.h"

#include <Poco/Types.h>
#include <Poco/URI.h>

#include <memory>

namespace Kesa::Command
{

/// A reply or notification on a websocket: a response with a type and an event, one text message.
///
/// Threads: as StatusObject; sharedText() and toJsonString() may be called by many threads at once.
class KESA_API WebSocketResponseObject: public ResponseObject
{
public:
    typedef Poco::SharedPtr<WebSocketResponseObject> Ptr;
    typedef WebSocketRequestObject::Type Type;

    static const Type TYPE_SUBSCRIBE;
    static const Type TYPE_UNSUBSCRIBE;
    static const Type TYPE_DATA;
    static const Type TYPE_ERROR;

    /// Selects a standard error reply.
    enum RequestError
    {
        alreadyConnected = 0,
        notARootURL = 1,
        noData = 2,
        badData = 3,
        invalideSubscriptionExpansionLevel = 4,
        unableToUnsubscribe = 5
    };

    /// An empty message, to be filled by fromJsonString.
    WebSocketResponseObject();
    /// The acknowledgement of `request`: its type and event with the status "ok".
    explicit WebSocketResponseObject(const WebSocketRequestObject& request);
    /// A standard error reply. An empty `message` is replaced by one that tells the client what was wrong.
    WebSocketResponseObject(const WebSocketRequestObject& request, RequestError error, const std::string& message);
    /// An error reply with a status of the caller's.
    WebSocketResponseObject(const WebSocketRequestObject& request, Poco::UInt16 status, const std::string& message);
    /// A data message for the event of `request`.
    WebSocketResponseObject(const WebSocketRequestObject& request, const Poco::JSON::Array::Ptr& data);
    WebSocketResponseObject(const WebSocketResponseObject& other);
    ~WebSocketResponseObject() override;
    WebSocketResponseObject& operator=(const WebSocketResponseObject& other);

    void setType(const Type& type);
    Type getType() const;
    void setEvent(Poco::URI event);
    /// The event, an empty URL if there is none.
    Poco::URI getEvent() const;
    void setMessage(const std::string& message);
    std::string getMessage() const;
    /// Milliseconds since the process's time origin, 0 if there is no time stamp.
    Poco::Int64 getTimestamp() const;
    /// Makes this the standard error message for `error`.
    void setError(RequestError error, const std::string& message);

    using ResponseObject::setData;
    /// Shares the data of `source`; without any, or for null, the data is removed.
    void setData(const ResponseObject* source);
    /// The data as it stands in the document, empty if there is none.
    Poco::Dynamic::Var getData() const;
    /// Removes the paging block.
    void resetPagingObject();

    /// The whole message as one JSON text, valid whatever the document holds.
    std::string toJsonString() const;
    /// Replaces the content by that of `text`. False, with isValid() false and an empty document, if it is no JSON
    /// object.
    bool fromJsonString(const std::string& text);
    /// False after fromJsonString met a text that is no message.
    bool isValid() const { return m_isValid; }

    /// Makes the document this object's own, called once when a load ends: whatever part somebody else still holds is
    /// replaced by a deep copy, so that the author of the data can neither hide a change nor alter what is queued. From
    /// then on the document must only be changed through this class.
    void takeSnapshot();
    /// The text of toJsonString(), shared. After takeSnapshot() it is made once and kept until the message changes.
    std::shared_ptr<const std::string> sharedText() const;

protected:
    bool m_isValid = true;
};

} // namespace Kesa::Command
