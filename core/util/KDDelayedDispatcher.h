#pragma once
// A coalescing queue of deferred calls on the main thread. The render loop flushes it
// at the start of every frame, and the event loop flushes it on its next turn, so any
// number of requests made in between (for example slider drags) run once.
#include <functional>
#include <string>

class KDDelayedDispatcher {
public:
    using Action = std::function<void()>;

    // Queues action unless an entry with the same target, selector and object (compared
    // by identity; a null object equals a null object) is already pending. The action's
    // captures keep whatever it needs alive until it runs.
    static void dispatch(const void* target, const std::string& selector, const void* object, Action action);
    static void dispatch(const void* target, const std::string& selector, Action action);

    // Runs every pending call in queue order, then empties the queue. Calls queued while
    // flushing wait for the next flush.
    static void flush();

    static size_t pendingCount();
};
