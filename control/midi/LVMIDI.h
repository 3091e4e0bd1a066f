#pragma once
// The single receiver of all MIDI input: hands every note-on and control change, on the
// main thread, to each registered listener in registration order.
#include "control/midi/LVMIDIMessage.h"
#include "control/midi/LVMIDIPort.h"

#include <QObject>

#include <functional>
#include <memory>
#include <vector>

class LVMIDI : public QObject {
    Q_OBJECT
public:
    using Listener = std::function<void(const LVMIDIMessage&)>;
    // Identifies one registration; cancelling compares by identity.
    using Handle = std::shared_ptr<const Listener>;

    // Starts the port; the first hub made becomes the shared one.
    explicit LVMIDI(std::unique_ptr<LVMIDIPort> port);
    ~LVMIDI() override;

    // The application's hub, or null before the composition root made it.
    static LVMIDI* sharedLVMIDI();

    // Stores a copy of listener; the returned handle cancels it.
    Handle registerForMIDIMessages(Listener listener);
    // At once outside a dispatch; during one, after the current message, so a listener may
    // cancel itself while it runs.
    void cancelRegistrationForMIDIMessages(const Handle& handle);

    // One delivery, on the main thread: filters, logs and dispatches each message in order.
    void takeMIDIMessages(const std::vector<LVMIDIMessage>& messages);

    // Note-ons with a velocity and control changes; note-offs, velocity-0 note-ons and
    // everything else never reach a listener.
    static bool passesFilter(const LVMIDIMessage& message);

    size_t listenerCount() const { return customers_.size(); }
    bool isAvailable() const { return port_ && port_->isAvailable(); }

private:
    std::unique_ptr<LVMIDIPort> port_;
    std::vector<Handle> customers_;
    std::vector<Handle> toRemove_;
    bool bInDispatch_ = false;
};
