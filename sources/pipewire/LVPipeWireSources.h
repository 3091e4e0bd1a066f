#pragma once
// The video nodes other programs publish, as the main thread sees them, and one grabber per
// node shared by every source that shows it. A node that leaves keeps its grabber, which holds
// the last picture, turns black, and picks the node up again when it comes back.
#include "render/pipewire/LVPipeWireNodeWatch.h"
#include "sources/webcam/LVCamGrabber.h"

#include <vector>

class LVPipeWireSources {
public:
    // The nodes present now, in the order they appeared, our own left out. The first call
    // starts the watch; changes arrive through the main thread's event loop.
    static const std::vector<LVPipeWireNode>& nodes();
    // Changes whenever a node joins or leaves the list.
    static uint64_t listGeneration();
    // The grabber reading the node with this name, made on first use; it waits for the node
    // while it is not there.
    static LVCamGrabber::Ref grabberFor(const QString& name, const QString& description);
    // Asks the daemon for the current list and takes it in at once; false when it does not
    // answer in time.
    static bool refresh(int limitMs = 2000);
    // Stops the watch; grabbers live on with the sources that hold them.
    static void shutdown();
};
