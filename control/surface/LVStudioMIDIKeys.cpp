#include "control/surface/LVStudioMIDIKeys.h"

#include "studio/LVStudio.h"

LVStudioMIDIKeys::LVStudioMIDIKeys(LVStudio& studio, LVMIDI& hub) : hub_(hub)
{
    connect(&studio, &LVStudio::studioButtonAdded, this, &LVStudioMIDIKeys::midiKeyChanged);
    connect(&studio, &LVStudio::buttonMidiKeyChanged, this, &LVStudioMIDIKeys::midiKeyChanged);
    connect(&studio, &LVStudio::studioButtonRemoved, this, &LVStudioMIDIKeys::cancel);
    for (const LVStudioButtonRef& button : studio.studioButtons()) midiKeyChanged(button.get());
}

LVStudioMIDIKeys::~LVStudioMIDIKeys()
{
    for (const auto& [button, registration] : handles_) {
        disconnect(registration.destroyed);
        hub_.cancelRegistrationForMIDIMessages(registration.handle);
    }
}

void LVStudioMIDIKeys::midiKeyChanged(LVStudioButton* button)
{
    if (button->midiKey() == 0) return cancel(button);
    // One registration per button: it compares against whatever the key is now.
    if (handles_.count(button)) return;
    QPointer<LVStudioButton> weak(button);
    Registration& registration = handles_[button];
    registration.handle = hub_.registerForMIDIMessages([weak](const LVMIDIMessage& message) {
        if (weak && message.encodedKeyValue() == weak->midiKey()) weak->doNormalToggle();
    });
    // A button that goes without leaving the studio first still drops its registration.
    registration.destroyed = connect(button, &QObject::destroyed, this, [this, button] { cancel(button); });
}

void LVStudioMIDIKeys::cancel(LVStudioButton* button)
{
    const auto it = handles_.find(button);
    if (it == handles_.end()) return;
    disconnect(it->second.destroyed);
    hub_.cancelRegistrationForMIDIMessages(it->second.handle);
    handles_.erase(it);
}
