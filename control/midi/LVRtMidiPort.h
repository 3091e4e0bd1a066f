#pragma once
// MIDI input from every source of the ALSA sequencer, through RtMidi. Sources that appear
// later are picked up by a rescan every two seconds on the port's own thread.
#include "control/midi/LVMIDIPort.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class RtMidiIn;

class LVRtMidiPort : public LVMIDIPort {
public:
    // Opens the sequencer; when there is none, logs once why MIDI is unavailable.
    LVRtMidiPort();
    ~LVRtMidiPort() override;

    void start(Sink sink) override;
    bool isAvailable() const override { return probe_ != nullptr; }

private:
    struct OpenSource;
    static void onMessage(double timeStamp, std::vector<unsigned char>* bytes, void* userData);
    void scanLoop();
    void refreshSources();

    std::unique_ptr<RtMidiIn> probe_;
    Sink sink_;
    // Touched only by the scanning thread (and the destructor after joining it).
    std::vector<std::unique_ptr<OpenSource>> sources_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread scanner_;
};
