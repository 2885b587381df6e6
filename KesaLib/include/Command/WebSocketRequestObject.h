#pragma once

#include "RequestBase.h"

#include <Poco/Clock.h>
#include <Poco/JSON/Object.h>
#include <Poco/Optional.h>

#include <cstdint>
#include <string>

namespace Kesa::Command
{

/// One decoded message of a websocket client: a request whose URL is the message's event.
///
/// A message is one JSON object. It is valid if `type` and a non-empty `event` are texts, `interval` is an integer from
/// 1 and `updateLimit` one from 0, both up to MAX_MILLISECONDS, `authorization` a text, `autosubscribe` true or false
/// and `data` an object; all but the first two may be absent. An invalid object is safe to read.
///
/// A subscription keeps its message for as long as it lives, so a client's message is bounded: the event by
/// MAX_EVENT_LENGTH, the whole by MAX_VALUES and MAX_TEXT. The whole of a data message has no bound, since nobody keeps
/// it, nor has a request that is built in code.
///
/// Ownership: copies share the JSON until copyAndInitFromJsonObject gives an object its own.
/// Errors:    no text and no JSON makes a constructor raise.
/// Threads:   one object may be read by many threads at once.
class KESA_API WebSocketRequestObject: public RequestBase
{
public:
    typedef std::string Type;
    typedef std::string JsonFieldName;
    typedef int64_t milliseconds;

    static const Type TYPE_SUBSCRIBE;
    static const Type TYPE_UNSUBSCRIBE;
    static const Type TYPE_DATA;

    static const JsonFieldName FIELD_TYPE;
    static const JsonFieldName FIELD_EVENT;
    static const JsonFieldName FIELD_SUBSCRIPTION_INTERVAL;
    static const JsonFieldName FIELD_SUBSCRIPTION_UPDATE_LIMIT;
    static const JsonFieldName FIELD_AUTHORIZATION;
    static const JsonFieldName FIELD_AUTOSUBSCRIBE;
    static const JsonFieldName FIELD_DATA;
    static const JsonFieldName FIELD_ERROR;

    /// The update limit of a request that gives none: fast enough for a screen, slow enough for a network.
    static constexpr milliseconds DEFAULT_UPDATE_LIMIT = 100;
    /// The longest interval and update limit, about 24 days.
    static constexpr milliseconds MAX_MILLISECONDS = 2147483647;
    /// The longest event of a client's message in bytes, about what HTTP servers take as a URL.
    static constexpr std::size_t MAX_EVENT_LENGTH = 8192;
    /// The most values in a client's message at all depths, and the most bytes of its names and texts together:
    /// many times what a request needs, and less than half a megabyte that a subscription keeps, whatever was sent.
    static constexpr std::size_t MAX_VALUES = 200;
    static constexpr std::size_t MAX_TEXT = 16384;

    /// Decodes a client's text.
    explicit WebSocketRequestObject(const std::string& text);
    /// The same from a decoded object, which is shared; null gives an invalid request.
    explicit WebSocketRequestObject(const Poco::JSON::Object::Ptr& object);
    /// Builds a request in code, with a JSON object of these members. A null `authorization` means none. The rules of a
    /// client's message hold, so a value out of range makes the request invalid.
    WebSocketRequestObject(const Type& type, const std::string& event, const Poco::Optional<long>& interval,
                           const Poco::Optional<long>& updateLimit, const std::string* authorization,
                           bool autosubscribe);
    WebSocketRequestObject(const WebSocketRequestObject& other);
    WebSocketRequestObject(WebSocketRequestObject&& other) noexcept;
    ~WebSocketRequestObject() override;
    WebSocketRequestObject& operator=(const WebSocketRequestObject& other);
    WebSocketRequestObject& operator=(WebSocketRequestObject&& other) noexcept;

    bool isValid() const { return m_isValid; }
    const Type& getType() const { return m_type; }
    /// The event as a URL; empty where the event's text is none.
    const Poco::URI& getEvent() const { return m_event; }
    /// Replaces the event alone: path and criteria keep what the message held.
    void setEvent(const Poco::URI& event);
    /// The event as the client wrote it, or the text of a different one given by setEvent.
    const std::string& getEventText() const { return m_eventText; }
    /// What makes the request invalid, as a sentence for the client; empty for a valid one.
    const std::string& getProblem() const { return m_problem; }

    bool hasAuthorization() const { return !m_authorization.empty(); }
    const std::string& getAuthorization() const { return m_authorization; }
    bool isAutosubscribe() const { return m_autosubscribe; }

    bool hasInterval() const { return m_interval.isSpecified(); }
    /// Raises Poco::NullValueException without an interval.
    milliseconds getInterval() const { return m_interval.value(); }
    /// The interval in microseconds. Raises Poco::NullValueException without an interval.
    Poco::Clock::ClockDiff getIntervalTimeSpan() const { return getInterval() * 1000; }
    bool hasUpdateLimit() const { return m_updateLimit.isSpecified(); }
    /// The update limit, DEFAULT_UPDATE_LIMIT if the request gives none.
    milliseconds getUpdateLimit() const { return m_updateLimit.value(DEFAULT_UPDATE_LIMIT); }
    /// The same in microseconds.
    Poco::Clock::ClockDiff getUpdateLimitTimeSpan() const { return getUpdateLimit() * 1000; }

    /// The JSON of the message, null when there is none. Borrowed: it lives as long as this object.
    const Poco::JSON::Object* getJson() const { return m_data.get(); }

protected:
    /// An invalid request without JSON.
    WebSocketRequestObject();
    /// Fills this object from a deep copy of `object`, which it shares with nobody.
    void copyAndInitFromJsonObject(const Poco::JSON::Object& object);
    /// Fills this object from `object` and shares it.
    void initFromJsonObject(const Poco::JSON::Object::Ptr& object);

private:
    void parse(const std::string& text);
    void readMessage(const Poco::JSON::Object::Ptr& object);
    void readObject(const Poco::JSON::Object::Ptr& object, std::size_t longestEvent);
    bool readMembers(std::size_t longestEvent);
    void parseEvent();
    bool readText(const JsonFieldName& field, std::string& text);
    bool readMilliseconds(const JsonFieldName& field, milliseconds smallest, Poco::Optional<long>& target);
    bool readAutosubscribe();
    bool checkData();
    bool fail(const std::string& problem);

    bool m_isValid = false;
    Poco::JSON::Object::Ptr m_data;
    Type m_type;
    Poco::URI m_event;
    Poco::Optional<long> m_interval;
    Poco::Optional<long> m_updateLimit;
    std::string m_authorization;
    bool m_autosubscribe = false;
    std::string m_eventText;
    std::string m_problem;
};

} // namespace Kesa::Command
