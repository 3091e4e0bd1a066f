#pragma once
// Studio buttons answer their MIDI keys: each button with a key holds one registration
// with the hub, made when the key becomes non-zero and cancelled when it goes back to 0
// or the button leaves the studio. A matching message toggles the button like a click.
#include "control/midi/LVMIDI.h"

#include <QObject>
#include <QPointer>

#include <map>

class LVStudio;
class LVStudioButton;

class LVStudioMIDIKeys : public QObject {
    Q_OBJECT
public:
    // Both must outlive this object.
    LVStudioMIDIKeys(LVStudio& studio, LVMIDI& hub);
    ~LVStudioMIDIKeys() override;

    size_t registrationCount() const { return handles_.size(); }

private:
    void midiKeyChanged(LVStudioButton* button);
    void cancel(LVStudioButton* button);

    struct Registration {
        LVMIDI::Handle handle;
        QMetaObject::Connection destroyed;
    };
    LVMIDI& hub_;
    std::map<LVStudioButton*, Registration> handles_;
};
