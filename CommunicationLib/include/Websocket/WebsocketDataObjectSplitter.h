#pragma once

#include "Export.h"
#include "WebsocketEventPayload.h"

#include <Poco/BasicEvent.h>

namespace Kesa::Net
{

/// Cuts received text into JSON objects.
///
/// Each block stands for itself: white space between objects is skipped, each complete object is handed on alone, and
/// whatever else the block holds is handed on once, as it stands, so that its sender gets an answer. So is an empty
/// block.
///
/// Threads: keeps nothing between calls; any number of threads at a time.
class KESA_API WebsocketDataObjectSplitter
{
public:
    WebsocketDataObjectSplitter();
    ~WebsocketDataObjectSplitter();

    /// Takes one received block and fires DataObjectAvailable, on this thread, for each object in it, in order. What a
    /// handler raises goes to the caller, and the rest of the block is dropped.
    void onDataBlockAvailable(const WebsocketDataEventPayload& payload);

    /// Fired once for each complete JSON object, with the same connection and the object's text in `data`.
    Poco::BasicEvent<const WebsocketDataEventPayload> DataObjectAvailable;
};

} // namespace Kesa::Net
