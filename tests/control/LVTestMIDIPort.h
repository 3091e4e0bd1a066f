#pragma once
// MIDI messages from their three bytes, and a port that hands the hub whatever a test sends,
// from whichever thread sends it.
#include "control/midi/LVMIDIPort.h"

#include <utility>

inline LVMIDIMessage lvMIDIMessage(uint8_t status, uint8_t data1, uint8_t data2)
{
    LVMIDIMessage message;
    message.status = status;
    message.data1 = data1;
    message.data2 = data2;
    return message;
}

class LVTestMIDIPort : public LVMIDIPort {
public:
    void start(Sink sink) override { sink_ = std::move(sink); }
    bool isAvailable() const override { return true; }
    void send(std::vector<LVMIDIMessage> batch) { sink_(std::move(batch)); }

private:
    Sink sink_;
};
