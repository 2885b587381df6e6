#include "FrameReader.h"

#include "LimitsAndTimes.h"

#include <Poco/UTF8Encoding.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace Kesa::Net
{

namespace
{

/// Size of the shortest header of a client's frame with a payload of this length; longer forms are a violation.
std::size_t headerSize(std::uint64_t payload)
{
    constexpr std::size_t BASIC_AND_MASK = 6;
    if (payload < 126)
        return BASIC_AND_MASK;
    return BASIC_AND_MASK + (payload <= 0xFFFF ? 2 : 8);
}

const char* violationText(unsigned short code)
{
    switch (code)
    {
    case CLOSE_INVALID_TEXT:
        return "text that is not valid UTF-8";
    case CLOSE_TOO_BIG:
        return "message too big";
    default:
        return "protocol error";
    }
}

bool isUtf8(const unsigned char* bytes, int size)
{
    const Poco::UTF8Encoding encoding;
    for (int at = 0; at < size; at += encoding.sequenceLength(bytes + at, size - at))
        if (encoding.queryConvert(bytes + at, size - at) < 0)
            return false;
    return true;
}

} // namespace

FrameReader::Sink::~Sink() = default;

FrameReader::FrameReader()
{
    const wslay_event_callbacks callbacks = {&onRead,       &onSend,     nullptr,      &onFrameStart,
                                             &onFrameChunk, &onFrameEnd, &onMessageEnd};
    if (wslay_event_context_server_init(&m_context, &callbacks, this) != 0)
        throw std::bad_alloc();
    wslay_event_config_set_no_buffering(m_context,
                                        1); // a buffer that grows with what arrived, not with what was announced
}

FrameReader::~FrameReader()
{
    wslay_event_context_free(m_context);
}

void FrameReader::feed(const char* data, std::size_t size, Sink& sink)
{
    if (m_ended)
        return;
    m_sink = &sink;
    m_input = data;
    m_inputSize = size;
    m_unfinished += size;
    const int result = wslay_event_recv(m_context);
    checkForViolation(result);
    m_sink = nullptr;
}

bool FrameReader::isInside() const
{
    return m_unfinished > 0 || m_inMessage;
}

/// wslay answers pings, closes and violations by itself; the answers are ours to write, so its own are thrown away, but
/// for the code of its close frame.
void FrameReader::checkForViolation(int result)
{
    if (result == WSLAY_ERR_NOMEM)
        throw std::bad_alloc();
    if (wslay_event_want_write(m_context) && wslay_event_send(m_context) == WSLAY_ERR_NOMEM)
        throw std::bad_alloc();
    if (m_ended || wslay_event_get_read_enabled(m_context))
        return;
    unsigned short code = result == 0 ? wslay_event_get_status_code_sent(m_context) : 0;
    if (code != CLOSE_INVALID_TEXT && code != CLOSE_TOO_BIG)
        code = CLOSE_PROTOCOL_ERROR; // a violation inside a frame's header leaves wslay's code empty
    fail(code, violationText(code));
}

void FrameReader::fail(unsigned short code, const char* why)
{
    m_ended = true;
    wslay_event_shutdown_read(m_context);
    m_sink->onFailure(code, why);
}

void FrameReader::beginFrame(const wslay_event_on_frame_recv_start_arg& frame)
{
    m_frameSize = headerSize(frame.payload_length) + frame.payload_length;
    m_inControlFrame = wslay_is_ctrl_frame(frame.opcode);
    if (m_inControlFrame || m_ended)
        return;
    m_inMessage = true;
    if (frame.opcode == WSLAY_BINARY_FRAME)
        return fail(CLOSE_UNSUPPORTED_DATA, "binary messages are not supported");
    if (frame.payload_length > MAX_MESSAGE - m_announced)
        return fail(CLOSE_TOO_BIG, violationText(CLOSE_TOO_BIG));
    m_announced += frame.payload_length;
}

void FrameReader::endMessage(const wslay_event_on_msg_recv_arg& message)
{
    if (m_ended)
        return;
    if (message.opcode == WSLAY_TEXT_FRAME)
    {
        m_inMessage = false;
        m_announced = 0;
        std::string text;
        text.swap(m_message);
        m_sink->onMessage(std::move(text));
    }
    else if (message.opcode == WSLAY_PING)
        m_sink->onPing(std::string(reinterpret_cast<const char*>(message.msg), message.msg_length));
    else if (message.opcode == WSLAY_CONNECTION_CLOSE)
        endConnection(message);
}

/// Checks what wslay leaves unchecked: a payload of half a code, and a reason that arrives in pieces.
void FrameReader::endConnection(const wslay_event_on_msg_recv_arg& message)
{
    constexpr std::size_t CODE_SIZE = 2;
    if (message.msg_length == 0)
    {
        m_ended = true;
        return m_sink->onClose(CLOSE_NO_CODE);
    }
    if (message.msg_length < CODE_SIZE)
        return fail(CLOSE_PROTOCOL_ERROR, "a close frame with half a code");
    if (!isUtf8(message.msg + CODE_SIZE, static_cast<int>(message.msg_length - CODE_SIZE)))
        return fail(CLOSE_INVALID_TEXT, violationText(CLOSE_INVALID_TEXT));
    m_ended = true;
    m_sink->onClose(message.status_code);
}

ssize_t FrameReader::onRead(wslay_event_context_ptr context, std::uint8_t* buffer, std::size_t size, int, void* self)
{
    FrameReader& reader = *static_cast<FrameReader*>(self);
    const std::size_t taken = std::min(size, reader.m_inputSize);
    if (taken == 0)
    {
        wslay_event_set_error(context, WSLAY_ERR_WOULDBLOCK);
        return -1;
    }
    std::memcpy(buffer, reader.m_input, taken);
    reader.m_input += taken;
    reader.m_inputSize -= taken;
    return static_cast<ssize_t>(taken);
}

ssize_t FrameReader::onSend(wslay_event_context_ptr, const std::uint8_t*, std::size_t size, int, void*)
{
    return static_cast<ssize_t>(size);
}

void FrameReader::onFrameStart(wslay_event_context_ptr, const wslay_event_on_frame_recv_start_arg* frame, void* self)
{
    static_cast<FrameReader*>(self)->beginFrame(*frame);
}

void FrameReader::onFrameChunk(wslay_event_context_ptr, const wslay_event_on_frame_recv_chunk_arg* chunk, void* self)
{
    FrameReader& reader = *static_cast<FrameReader*>(self);
    if (!reader.m_inControlFrame && !reader.m_ended)
        reader.m_message.append(reinterpret_cast<const char*>(chunk->data), chunk->data_length);
}

void FrameReader::onFrameEnd(wslay_event_context_ptr, void* self)
{
    FrameReader& reader = *static_cast<FrameReader*>(self);
    reader.m_unfinished -= reader.m_frameSize;
}

void FrameReader::onMessageEnd(wslay_event_context_ptr, const wslay_event_on_msg_recv_arg* message, void* self)
{
    static_cast<FrameReader*>(self)->endMessage(*message);
}

} // namespace Kesa::Net
