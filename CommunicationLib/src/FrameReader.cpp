#include "FrameReader.h"

#include "LimitsAndTimes.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace Kesa::Net
{

namespace
{

/// Size of a client's header of a frame with a payload of this length: wslay refuses longer forms.
std::size_t headerSize(std::uint64_t payload)
{
    constexpr std::size_t BASIC_AND_MASK = 6;
    if (payload < 126)
        return BASIC_AND_MASK;
    return BASIC_AND_MASK + (payload <= 0xFFFF ? 2 : 8);
}

/// The codes that RFC 6455 and its registry let an endpoint send.
bool mayBeSent(unsigned int code)
{
    if (code == 1004 || code == 1005 || code == 1006)
        return false;
    return (code >= 1000 && code <= 1014) || (code >= 3000 && code <= 4999);
}

} // namespace

FrameReader::Sink::~Sink() = default;

FrameReader::FrameReader()
{
    const wslay_frame_callbacks callbacks = {nullptr, &onRead, nullptr};
    if (wslay_frame_context_init(&m_context, &callbacks, this) != 0)
        throw std::bad_alloc();
}

FrameReader::~FrameReader()
{
    wslay_frame_context_free(m_context);
}

void FrameReader::feed(const char* data, std::size_t size, Sink& sink)
{
    m_sink = &sink;
    m_input = data;
    m_inputSize = size;
    m_unfinished += size;
    while (!m_ended)
    {
        wslay_frame_iocb frame = {};
        const ssize_t result = wslay_frame_recv(m_context, &frame);
        if (result == WSLAY_ERR_WANT_READ)
            break;
        if (result < 0)
            return fail(CLOSE_PROTOCOL_ERROR, "a frame header that is not allowed");
        if (!m_inFrame)
            beginFrame(frame);
        if (!m_ended)
            takePayload(frame);
        if (!m_ended && m_frameLeft == 0)
            endFrame(frame);
    }
}

bool FrameReader::isInside() const
{
    return m_unfinished > 0 || m_inMessage;
}

void FrameReader::fail(unsigned short code, const char* why)
{
    m_ended = true;
    m_sink->onFailure(code, why);
}

void FrameReader::beginFrame(const wslay_frame_iocb& frame)
{
    m_inFrame = true;
    m_frameLeft = frame.payload_length;
    if (frame.rsv != WSLAY_RSV_NONE)
        return fail(CLOSE_PROTOCOL_ERROR, "a frame with reserved bits");
    if (!frame.mask)
        return fail(CLOSE_PROTOCOL_ERROR, "a frame that is not masked");
    switch (frame.opcode)
    {
    case WSLAY_CONTINUATION_FRAME:
    case WSLAY_TEXT_FRAME:
    case WSLAY_BINARY_FRAME:
        return beginMessage(frame);
    case WSLAY_CONNECTION_CLOSE:
    case WSLAY_PING:
    case WSLAY_PONG:
        return m_control.clear();
    default:
        return fail(CLOSE_PROTOCOL_ERROR, "a frame with a reserved opcode");
    }
}

void FrameReader::beginMessage(const wslay_frame_iocb& frame)
{
    const bool isContinued = frame.opcode == WSLAY_CONTINUATION_FRAME;
    if (isContinued != m_inMessage)
        return fail(CLOSE_PROTOCOL_ERROR, isContinued ? "a continuation of no message" : "a message inside a message");
    if (frame.opcode == WSLAY_BINARY_FRAME)
        return fail(CLOSE_UNSUPPORTED_DATA, "binary messages are not supported");
    if (frame.payload_length > MAX_MESSAGE - m_announced)
        return fail(CLOSE_TOO_BIG, "a message of more than 1 MiB");
    m_inMessage = true;
    m_announced += frame.payload_length;
}

void FrameReader::takePayload(const wslay_frame_iocb& frame)
{
    const char* const data = reinterpret_cast<const char*>(frame.data);
    m_frameLeft -= frame.data_length;
    if (wslay_is_ctrl_frame(frame.opcode))
        m_control.append(data, frame.data_length);
    else if (m_checker.take(data, frame.data_length))
        m_message.append(data, frame.data_length);
    else
        fail(CLOSE_INVALID_TEXT, "text that is not UTF-8");
}

void FrameReader::endFrame(const wslay_frame_iocb& frame)
{
    m_inFrame = false;
    m_unfinished -= headerSize(frame.payload_length) + frame.payload_length;
    if (frame.opcode == WSLAY_CONNECTION_CLOSE)
        endConnection();
    else if (frame.opcode == WSLAY_PING)
        m_sink->onPing(std::move(m_control));
    else if (frame.opcode != WSLAY_PONG && frame.fin)
        endMessage();
}

void FrameReader::endMessage()
{
    if (!m_checker.isWhole())
        return fail(CLOSE_INVALID_TEXT, "text that ends inside a character");
    std::string text;
    text.swap(m_message);
    m_inMessage = false;
    m_announced = 0;
    m_sink->onMessage(std::move(text));
}

void FrameReader::endConnection()
{
    constexpr std::size_t CODE_SIZE = 2;
    unsigned int code = CLOSE_NO_CODE;
    if (m_control.size() == 1)
        return fail(CLOSE_PROTOCOL_ERROR, "a close frame with half a code");
    if (m_control.size() >= CODE_SIZE)
    {
        code = static_cast<unsigned char>(m_control[0]) << 8 | static_cast<unsigned char>(m_control[1]);
        if (!mayBeSent(code))
            return fail(CLOSE_PROTOCOL_ERROR, "a close code that is not allowed");
        Utf8Checker reason;
        if (!reason.take(m_control.data() + CODE_SIZE, m_control.size() - CODE_SIZE) || !reason.isWhole())
            return fail(CLOSE_INVALID_TEXT, "a close reason that is not UTF-8");
    }
    m_ended = true;
    m_sink->onClose(static_cast<unsigned short>(code));
}

ssize_t FrameReader::onRead(std::uint8_t* buffer, std::size_t size, int, void* self)
{
    FrameReader& reader = *static_cast<FrameReader*>(self);
    const std::size_t taken = std::min(size, reader.m_inputSize);
    if (taken == 0)
        return -1; // wants more than there is
    std::memcpy(buffer, reader.m_input, taken);
    reader.m_input += taken;
    reader.m_inputSize -= taken;
    return static_cast<ssize_t>(taken);
}

} // namespace Kesa::Net
