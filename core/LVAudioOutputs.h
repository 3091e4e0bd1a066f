#pragma once
// The sound output devices a movie's sound can play through ("audioOutputDevice").
#include <QString>

#include <vector>

struct LVAudioOutputDevice {
    QString name;        // what the user picks and the preference stores
    QString deviceClass; // as the media framework reports it ("Audio/Sink")
};

// The devices GStreamer's device monitor finds for the class "Audio/Sink"; empty (and a
// log line naming the call) when the monitor cannot start.
std::vector<LVAudioOutputDevice> LVListAudioOutputDevices();
