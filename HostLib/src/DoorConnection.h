#pragma once

#include "DoorSocket.h"
#include "RequestHead.h"

#include <Poco/Clock.h>
#include <Poco/Net/StreamSocket.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Kesa::Host
{

class ConnectionCaps;

/// One client's connection while it is the front door's: with the loop while it waits for a request or sends, with a
/// pool thread while its request is handled. Counted in the caps for as long as it lives.
///
/// Threads: one thread at a time; whoever holds the unique pointer.
struct DoorConnection
{
    enum class Phase
    {
        Reading,  ///< waits for a request head, and for a short body
        Writing,  ///< the answer is not wholly sent
        Lingering ///< all is sent; what the client still sends is thrown away until it closes
    };

    /// `peer` has entered the caps, which are borrowed.
    DoorConnection(std::uint64_t number, const Poco::Net::StreamSocket& doorSocket, std::string peer,
                   ConnectionCaps& caps);
    ~DoorConnection();
    DoorConnection(const DoorConnection&) = delete;
    DoorConnection& operator=(const DoorConnection&) = delete;

    DoorSocket& door() { return *DoorSocket::of(socket); }
    int descriptor() { return socket.impl()->sockfd(); }
    /// Makes ready for the next request.
    void reset();

    const std::uint64_t id;
    Poco::Net::StreamSocket socket; ///< its implementation is a DoorSocket
    const std::string address;      ///< the client's, without port
    Phase phase = Phase::Reading;
    RequestHeadParser parser;
    std::size_t skipped = 0;   ///< bytes of empty lines before the request
    bool hasBegun = false;     ///< a byte of the request is here
    bool isReused = false;     ///< it has carried a request before
    bool isHeadWhole = false;  ///< only the body is waited for
    bool isWatched = false;    ///< the loop's epoll knows the descriptor
    bool isTaken = false;      ///< a websocket has the socket now: it is not touched any more
    bool closes = false;       ///< no further request: close once all is sent
    std::size_t discarded = 0; ///< bytes thrown away while lingering
    Poco::Clock deadline{0};   ///< when the present phase ends by itself
    Poco::Clock answerEnd{0};  ///< when the answer must have been taken

private:
    ConnectionCaps& m_caps;
};

} // namespace Kesa::Host
