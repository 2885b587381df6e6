#pragma once

#include "Export.h"

namespace Kesa::Host
{

struct DoorConnection;

/// The next request of a busy client, which a pool's thread takes on without the loop: the way through the loop costs
/// more than a small answer does.
struct KESA_API NextRequest
{
    static constexpr int PATIENCE = 2; ///< ms: a client that sends its requests one after the other needs less

    /// Waits a moment for the next request on a connection whose last one was answered. True if it is here as a whole,
    /// its short body included, and well-formed. Otherwise the loop goes on with the connection from where it stands:
    /// nothing of the request has been consumed.
    static bool arrives(DoorConnection& connection);
};

} // namespace Kesa::Host
