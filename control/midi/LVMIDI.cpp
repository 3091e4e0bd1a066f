#include "control/midi/LVMIDI.h"

#include "core/util/LVLog.h"

#include <QMetaObject>
#include <QPointer>

#include <algorithm>

namespace {
LVMIDI* sharedHub = nullptr;
}

LVMIDI::LVMIDI(std::unique_ptr<LVMIDIPort> port) : port_(std::move(port))
{
    if (!sharedHub) sharedHub = this;
    if (!port_) return;
    // Ports call from their own threads; listeners touch the studio, so hop to ours.
    QPointer<LVMIDI> self(this);
    port_->start([self](std::vector<LVMIDIMessage> batch) {
        QMetaObject::invokeMethod(
            self.data(),
            [self, batch = std::move(batch)] {
                if (self) self->takeMIDIMessages(batch);
            },
            Qt::QueuedConnection);
    });
}

LVMIDI::~LVMIDI()
{
    // The port stops delivering first; queued deliveries die with this object.
    port_.reset();
    if (sharedHub == this) sharedHub = nullptr;
}

LVMIDI* LVMIDI::sharedLVMIDI()
{
    return sharedHub;
}

LVMIDI::Handle LVMIDI::registerForMIDIMessages(Listener listener)
{
    Handle handle = std::make_shared<const Listener>(std::move(listener));
    customers_.push_back(handle);
    return handle;
}

void LVMIDI::cancelRegistrationForMIDIMessages(const Handle& handle)
{
    if (!handle) return;
    if (bInDispatch_) {
        toRemove_.push_back(handle);
        return;
    }
    std::erase(customers_, handle);
}

bool LVMIDI::passesFilter(const LVMIDIMessage& message)
{
    if (!message.isVoiceMessage()) return false;
    if (message.kind() == LVMIDIMessage::noteOn) return message.data2 != 0;
    return message.kind() == LVMIDIMessage::controlChange;
}

void LVMIDI::takeMIDIMessages(const std::vector<LVMIDIMessage>& messages)
{
    for (const LVMIDIMessage& message : messages) {
        if (!passesFilter(message)) continue;
        LVLog("%d %d %d %s", message.status, message.data1, message.data2, qPrintable(message.displayText()));
        bInDispatch_ = true;
        // By index: a listener may register another while it runs.
        for (size_t i = 0; i < customers_.size(); ++i) {
            const Handle listener = customers_[i];
            (*listener)(message);
        }
        bInDispatch_ = false;
        for (const Handle& handle : toRemove_) std::erase(customers_, handle);
        toRemove_.clear();
    }
}
