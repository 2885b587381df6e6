#pragma once

#include "Export.h"

#include <wslay/wslay.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace Kesa::Net
{

/// Turns the bytes that a client sends into events, by the rules of RFC 6455 for a server. Knows no socket.
///
/// Ownership: borrows the sink for the time of feed().
/// Threads:   one at a time.
/// Errors:    a violation is an event; after it, and after a close frame, everything that comes is ignored.
///            feed() raises std::bad_alloc when memory is out.
class KESA_API FrameReader
{
public:
    /// Told what arrived, in order.
    class KESA_API Sink
    {
    public:
        virtual ~Sink();

        /// A complete text message; valid UTF-8.
        virtual void onMessage(std::string&& text) = 0;

        /// A ping with 0 to 125 bytes of payload.
        virtual void onPing(std::string&& payload) = 0;

        /// A close frame with its code, CLOSE_NO_CODE when it had none.
        virtual void onClose(unsigned short code) = 0;

        /// The peer broke the rules: the connection is to be closed with this code.
        virtual void onFailure(unsigned short code, const char* why) = 0;
    };

    FrameReader();
    ~FrameReader();
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    /// Takes the next bytes, however they were cut, and reports what they complete.
    void feed(const char* data, std::size_t size, Sink& sink);

    /// True when a frame or a message has begun and is not complete.
    bool isInside() const;

private:
    static ssize_t onRead(wslay_event_context_ptr, std::uint8_t* buffer, std::size_t size, int, void* self);
    static ssize_t onSend(wslay_event_context_ptr, const std::uint8_t*, std::size_t size, int, void* self);
    static void onFrameStart(wslay_event_context_ptr, const wslay_event_on_frame_recv_start_arg*, void* self);
    static void onFrameChunk(wslay_event_context_ptr, const wslay_event_on_frame_recv_chunk_arg*, void* self);
    static void onFrameEnd(wslay_event_context_ptr, void* self);
    static void onMessageEnd(wslay_event_context_ptr, const wslay_event_on_msg_recv_arg*, void* self);

    void beginFrame(const wslay_event_on_frame_recv_start_arg& frame);
    void endMessage(const wslay_event_on_msg_recv_arg& message);
    void endConnection(const wslay_event_on_msg_recv_arg& message);
    void checkForViolation(int result);
    void fail(unsigned short code, const char* why);

    wslay_event_context_ptr m_context = nullptr;
    Sink* m_sink = nullptr;        // set during feed()
    const char* m_input = nullptr; // what feed() was given and wslay has not fetched yet
    std::size_t m_inputSize = 0;
    std::string m_message;        // the payload so far of the data message that is arriving
    std::size_t m_announced = 0;  // its size as told by the frame headers so far
    std::size_t m_frameSize = 0;  // of the frame that is arriving, header included
    std::size_t m_unfinished = 0; // bytes taken that belong to no complete frame
    bool m_inControlFrame = false;
    bool m_inMessage = false; // a data message has begun and its last frame is not there
    bool m_ended = false;     // a close frame or a violation was seen
};

} // namespace Kesa::Net
