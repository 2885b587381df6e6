#pragma once

#include "Export.h"
#include "Utf8Checker.h"

#include <wslay/wslay.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace Kesa::Net
{

/// Turns the bytes that a client sends into events, by the rules of RFC 6455 for a server. Knows no socket. wslay reads
/// the frames; what they mean to each other and to their content is decided here.
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
    static ssize_t onRead(std::uint8_t* buffer, std::size_t size, int, void* self);

    void beginFrame(const wslay_frame_iocb& frame);
    void beginMessage(const wslay_frame_iocb& frame);
    void takePayload(const wslay_frame_iocb& frame);
    void endFrame(const wslay_frame_iocb& frame);
    void endMessage();
    void endConnection();
    void fail(unsigned short code, const char* why);

    wslay_frame_context_ptr m_context = nullptr;
    Sink* m_sink = nullptr;        // set during feed()
    const char* m_input = nullptr; // what feed() was given and wslay has not fetched yet
    std::size_t m_inputSize = 0;
    std::size_t m_unfinished = 0;  // bytes taken that belong to no complete frame
    bool m_inFrame = false;        // the header of a frame is known and its end has not come
    std::uint64_t m_frameLeft = 0; // bytes of its payload that have not come
    bool m_inMessage = false;      // a message has begun and its last frame is not there
    std::uint64_t m_announced = 0; // its size as told by its frames' headers so far
    std::string m_message;         // its payload so far
    Utf8Checker m_checker;         // has seen that payload
    std::string m_control;         // the payload so far of a control frame
    bool m_ended = false;          // a close frame or a violation was seen
};

} // namespace Kesa::Net
