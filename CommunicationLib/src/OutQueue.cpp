#include "OutQueue.h"

#include "LimitsAndTimes.h"

#include <algorithm>

#include <sys/uio.h>

namespace Kesa::Net
{

FrameHeader::FrameHeader(Opcode opcode, std::size_t payloadSize): bytes{}, size(2)
{
    constexpr unsigned char FINAL = 0x80;
    std::size_t lengthBytes = 0;
    unsigned char shortLength = static_cast<unsigned char>(payloadSize);
    if (payloadSize > 0xFFFF)
    {
        shortLength = 127;
        lengthBytes = 8;
    }
    else if (payloadSize > 125)
    {
        shortLength = 126;
        lengthBytes = 2;
    }
    bytes[0] = static_cast<char>(FINAL | opcode);
    bytes[1] = static_cast<char>(shortLength);
    for (std::size_t i = 0; i < lengthBytes; ++i)
        bytes[size + i] = static_cast<char>(Poco::UInt64(payloadSize) >> (8 * (lengthBytes - 1 - i)));
    size += lengthBytes;
}

bool OutQueue::pushText(const Text& text, Poco::UInt64 number, std::size_t sent)
{
    Frame* old = sent == 0 ? replaceable(number) : nullptr;
    const std::size_t frames = m_frames.size() + (old ? 0 : 1);
    const std::size_t bytes = m_bytes - (old ? old->left() : 0) + text->size();
    if (frames > 1 && bytes + frames * FRAME_COST > MAX_WAITING)
        return false;
    if (old)
        replace(*old, FrameHeader::TEXT, text);
    else
    {
        Frame& frame = push(FrameHeader::TEXT, text, number, sent);
        if (number != 0)
            m_byNumber[number] = &frame;
    }
    return true;
}

void OutQueue::pushPong(const std::string& payload)
{
    const Text text = std::make_shared<const std::string>(payload);
    if (m_pong && m_pong->sent == 0)
        replace(*m_pong, FrameHeader::PONG, text);
    else
        m_pong = &push(FrameHeader::PONG, text, 0, 0);
}

void OutQueue::pushPing()
{
    push(FrameHeader::PING, std::make_shared<const std::string>(), 0, 0);
}

void OutQueue::pushClose(unsigned short code, const std::string& reason)
{
    constexpr std::size_t LONGEST_REASON = 123;
    std::string payload;
    if (code != CLOSE_NO_CODE)
    {
        payload += static_cast<char>(code >> 8);
        payload += static_cast<char>(code & 0xFF);
        payload.append(reason, 0, LONGEST_REASON);
    }
    push(FrameHeader::CLOSE, std::make_shared<const std::string>(payload), 0, 0);
}

OutQueue::Frame& OutQueue::push(FrameHeader::Opcode opcode, const Text& payload, Poco::UInt64 number, std::size_t sent)
{
    m_frames.push_back(Frame{FrameHeader(opcode, payload->size()), payload, sent, number});
    m_bytes += m_frames.back().left();
    return m_frames.back();
}

void OutQueue::replace(Frame& frame, FrameHeader::Opcode opcode, const Text& payload)
{
    m_bytes -= frame.left();
    frame.header = FrameHeader(opcode, payload->size());
    frame.payload = payload;
    m_bytes += frame.left();
}

OutQueue::Frame* OutQueue::replaceable(Poco::UInt64 number)
{
    const auto found = m_byNumber.find(number);
    return found != m_byNumber.end() && found->second->sent == 0 ? found->second : nullptr;
}

int OutQueue::gather(iovec* buffers, int count, std::size_t bytes) const
{
    int used = 0;
    std::size_t gathered = 0;
    for (const Frame& frame: m_frames)
    {
        if (used + 2 > count || gathered >= bytes)
            break;
        if (frame.sent < frame.header.size)
            buffers[used++] = {const_cast<char*>(frame.header.bytes) + frame.sent, frame.header.size - frame.sent};
        const std::size_t sentOfPayload = frame.sent > frame.header.size ? frame.sent - frame.header.size : 0;
        if (sentOfPayload < frame.payload->size())
            buffers[used++] = {const_cast<char*>(frame.payload->data()) + sentOfPayload,
                               frame.payload->size() - sentOfPayload};
        gathered += frame.left();
    }
    return used;
}

void OutQueue::pop(std::size_t count)
{
    m_bytes -= count;
    while (count > 0)
    {
        Frame& first = m_frames.front();
        const std::size_t left = first.left();
        if (count < left)
        {
            first.sent += count;
            return;
        }
        count -= left;
        forgetFirst();
    }
}

void OutQueue::forgetFirst()
{
    Frame& first = m_frames.front();
    const auto found = m_byNumber.find(first.number);
    if (found != m_byNumber.end() && found->second == &first)
        m_byNumber.erase(found);
    if (m_pong == &first)
        m_pong = nullptr;
    m_frames.pop_front();
}

void OutQueue::clear()
{
    m_frames.clear();
    m_byNumber.clear();
    m_pong = nullptr;
    m_bytes = 0;
}

} // namespace Kesa::Net
