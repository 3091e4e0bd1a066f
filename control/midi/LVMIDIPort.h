#pragma once
// Where MIDI input comes from: every input source of the system, or a test port.
#include "control/midi/LVMIDIMessage.h"

#include <functional>
#include <vector>

class LVMIDIPort {
public:
    // Called from any thread with the messages of one delivery, in arrival order.
    using Sink = std::function<void(std::vector<LVMIDIMessage>)>;

    virtual ~LVMIDIPort() = default;
    // Starts delivering; the port stops calling sink before its destructor returns.
    virtual void start(Sink sink) = 0;
    // False when the system offers no MIDI at all (the reason was logged once).
    virtual bool isAvailable() const = 0;
};
