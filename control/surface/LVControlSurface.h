#pragma once
// Everything that drives Lumaveil from outside the process, as the composition root starts
// it: the MIDI hub with studio buttons answering their keys, and the control socket with
// the chain's and the studio's commands. Runs on the main thread.
#include "control/midi/LVMIDI.h"
#include "control/remote/LVControlCommands.h"
#include "control/remote/LVControlServer.h"

#include <memory>

class LVStudio;
class LVStudioMIDIKeys;
class Lumaveil;

class LVControlSurface {
public:
    // studio may be null (a run without the studio): its commands then say how to get one.
    // A socket that cannot be served is logged and the rest runs on.
    LVControlSurface(Lumaveil& app, LVStudio* studio, std::unique_ptr<LVMIDIPort> midiPort, const QString& socketPath,
                     LVControlLimits limits = {});
    ~LVControlSurface();

    // MIDI from the ALSA sequencer, the socket at its standard place.
    static std::unique_ptr<LVControlSurface> start(Lumaveil& app, LVStudio* studio);

    LVControlServer& server() { return server_; }
    LVControlCommands& commands() { return commands_; }
    LVMIDI& midi() { return *midi_; }
    bool isListening() const { return listening_; }

private:
    LVControlCommands commands_;
    LVControlServer server_;
    std::unique_ptr<LVMIDI> midi_;
    std::unique_ptr<LVStudioMIDIKeys> midiKeys_;
    bool listening_ = false;
};
