#pragma once

#include "Channel.h"

#include <Mutex.h>

namespace Kesa::Net
{

/// A websocket that no manager serves: writes go straight to it and block, one after the other.
class KESA_API UnservedSocket: public Channel
{
public:
    explicit UnservedSocket(const Socket& socket);

    /// Raises what the socket raises, and Poco::Net::WebSocketException when the text did not leave whole.
    void write(const std::string& text) override;
    void write(const std::shared_ptr<const std::string>& text, Poco::UInt64 number) override;

    /// False for ever: nobody watches the socket.
    bool hasEnded() const override { return false; }

    /// Sends a close frame with code 1000.
    void shutdown() override;

private:
    Kesa::Util::FastMutex m_mutex; // one frame at a time on the socket; taken alone
};

} // namespace Kesa::Net
