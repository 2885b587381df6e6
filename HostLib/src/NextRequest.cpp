#include "NextRequest.h"

#include "DoorConnection.h"

#include <array>
#include <poll.h>
#include <sys/socket.h>

namespace Kesa::Host
{

namespace
{

bool isReadable(int descriptor)
{
    pollfd poller{descriptor, POLLIN, 0};
    return ::poll(&poller, 1, NextRequest::PATIENCE) == 1 && poller.revents == POLLIN;
}

/// True if a thread need not wait for anything of the request.
bool isWhole(DoorConnection& connection, const RequestHead& head)
{
    return !head.expectsContinue && !head.chunked && connection.door().hasArrived(head.length + head.bodyLength);
}

} // namespace

bool NextRequest::arrives(DoorConnection& connection)
{
    if (connection.closes || !connection.door().flush() || connection.door().failed() ||
        !isReadable(connection.descriptor()))
        return false;
    connection.reset();
    connection.isReused = true;
    std::array<char, RequestHeadParser::MAX_HEAD> buffer;
    const ssize_t count = ::recv(connection.descriptor(), buffer.data(), buffer.size(), MSG_PEEK | MSG_DONTWAIT);
    if (count <= 0)
        return false;
    connection.hasBegun = true;
    const std::string_view text(buffer.data(), static_cast<std::size_t>(count));
    return connection.parser.parse(text) == RequestHeadParser::State::Complete &&
           isWhole(connection, connection.parser.head());
}

} // namespace Kesa::Host
