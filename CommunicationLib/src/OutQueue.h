#pragma once

#include "Export.h"

#include <Poco/Types.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>

struct iovec;

namespace Kesa::Net
{

/// The header of an outgoing frame of a server: two to ten bytes, never masked.
struct FrameHeader
{
    enum Opcode : unsigned char
    {
        TEXT = 0x1,
        CLOSE = 0x8,
        PING = 0x9,
        PONG = 0xA
    };

    FrameHeader(Opcode opcode, std::size_t payloadSize);

    char bytes[10];
    std::size_t size;
};

/// The frames that wait for one peer, in the order in which they leave.
///
/// Ownership: shares the texts.
/// Threads:   one at a time; the owner's lock guards it.
///
/// Invariants: only frames of which no byte has left are ever replaced; a frame keeps its place when it is replaced;
/// bytes() is the sum of what is left of all frames; a frame with a number that may be replaced is found in m_byNumber.
class KESA_API OutQueue
{
public:
    typedef std::shared_ptr<const std::string> Text;

    bool empty() const { return m_frames.empty(); }

    /// Bytes that wait, headers included.
    std::size_t bytes() const { return m_bytes; }

    /// Takes a text message of which `sent` bytes, header included, have left already; it takes the place of a waiting
    /// one with the same number, but for number 0. False, and nothing is changed, when it would break the bound.
    bool pushText(const Text& text, Poco::UInt64 number, std::size_t sent = 0);

    /// Takes a pong; it takes the place of one that waits.
    void pushPong(const std::string& payload);

    void pushPing();

    /// Takes a close frame; without a payload for CLOSE_NO_CODE. The reason is cut to the 123 bytes that fit.
    void pushClose(unsigned short code, const std::string& reason);

    /// Fills up to `count` buffers with the next bytes, at most about `bytes` of them; returns how many buffers.
    int gather(iovec* buffers, int count, std::size_t bytes) const;

    /// Forgets the first `count` bytes: they have left.
    void pop(std::size_t count);

    void clear();

private:
    struct Frame
    {
        FrameHeader header;
        Text payload;
        std::size_t sent;
        Poco::UInt64 number;

        std::size_t left() const { return header.size + payload->size() - sent; }
    };

    Frame& push(FrameHeader::Opcode opcode, const Text& payload, Poco::UInt64 number, std::size_t sent);
    void replace(Frame& frame, FrameHeader::Opcode opcode, const Text& payload);
    Frame* replaceable(Poco::UInt64 number);
    void forgetFirst();

    std::deque<Frame> m_frames; // a deque: frames stay where they are while others come and go at its ends
    std::unordered_map<Poco::UInt64, Frame*> m_byNumber;
    Frame* m_pong = nullptr; // the pong that waits
    std::size_t m_bytes = 0;
};

} // namespace Kesa::Net
