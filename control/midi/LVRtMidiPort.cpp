#include "control/midi/LVRtMidiPort.h"

#include "core/util/LVLog.h"

#include <alsa/asoundlib.h>
#include <rtmidi/RtMidi.h>

#include <algorithm>
#include <chrono>

namespace {

constexpr auto rescanInterval = std::chrono::seconds(2);
constexpr const char* clientName = "Lumaveil";

// ALSA prints its own line when the sequencer device is missing; ours says it better.
void quietAlsa(const char*, int, const char*, int, const char*, ...) {}

void logSourceError(RtMidiError::Type type, const std::string& text, void*)
{
    if (type == RtMidiError::WARNING || type == RtMidiError::DEBUG_WARNING) return;
    LVLog("MIDI input: %s", text.c_str());
}

} // namespace

struct LVRtMidiPort::OpenSource {
    std::string name;
    std::unique_ptr<RtMidiIn> input;
};

LVRtMidiPort::LVRtMidiPort()
{
    // Asked first, because RtMidi prints its own lines when the sequencer is missing.
    snd_lib_error_set_handler(quietAlsa);
    snd_seq_t* sequencer = nullptr;
    const int status = snd_seq_open(&sequencer, "default", SND_SEQ_OPEN_INPUT, 0);
    if (sequencer) snd_seq_close(sequencer);
    snd_lib_error_set_handler(nullptr);
    if (status < 0) {
        LVLog("MIDI: no MIDI input available, studio buttons will not answer MIDI keys (ALSA sequencer: %s)",
              snd_strerror(status));
        return;
    }
    try {
        probe_ = std::make_unique<RtMidiIn>(RtMidi::LINUX_ALSA, clientName);
    } catch (const RtMidiError& error) {
        LVLog("MIDI: no MIDI input available, studio buttons will not answer MIDI keys (%s)", error.what());
    }
}

LVRtMidiPort::~LVRtMidiPort()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (scanner_.joinable()) scanner_.join();
    // Closing joins RtMidi's input threads, so no callback outlives the sink.
    sources_.clear();
}

void LVRtMidiPort::start(Sink sink)
{
    if (!probe_ || scanner_.joinable()) return;
    sink_ = std::move(sink);
    scanner_ = std::thread([this] { scanLoop(); });
}

void LVRtMidiPort::onMessage(double timeStamp, std::vector<unsigned char>* bytes, void* userData)
{
    auto* port = static_cast<LVRtMidiPort*>(userData);
    if (auto message = LVMIDIMessage::fromBytes(*bytes, timeStamp)) port->sink_({*message});
}

void LVRtMidiPort::scanLoop()
{
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        lock.unlock();
        refreshSources();
        lock.lock();
        wake_.wait_for(lock, rescanInterval, [this] { return stopping_; });
    }
}

void LVRtMidiPort::refreshSources()
{
    std::vector<std::string> names;
    try {
        const unsigned count = probe_->getPortCount();
        for (unsigned i = 0; i < count; ++i) names.push_back(probe_->getPortName(i));
    } catch (const RtMidiError& error) {
        LVLog("MIDI: listing input sources failed: %s", error.what());
        return;
    }
    // Sources that went away are closed, so they are opened afresh when they return.
    std::erase_if(sources_, [&](const std::unique_ptr<OpenSource>& source) {
        return std::find(names.begin(), names.end(), source->name) == names.end();
    });
    for (unsigned i = 0; i < names.size(); ++i) {
        const bool open = std::any_of(sources_.begin(), sources_.end(),
                                      [&](const auto& source) { return source->name == names[i]; });
        if (open) continue;
        auto source = std::make_unique<OpenSource>();
        source->name = names[i];
        try {
            source->input = std::make_unique<RtMidiIn>(RtMidi::LINUX_ALSA, clientName);
            source->input->setErrorCallback(logSourceError, nullptr);
            source->input->setCallback(onMessage, this);
            source->input->ignoreTypes(true, true, true);
            source->input->openPort(i, "Input " + names[i]);
        } catch (const RtMidiError& error) {
            LVLog("MIDI: opening input source %s failed: %s", names[i].c_str(), error.what());
            continue;
        }
        LVLog("MIDI: listening to %s", names[i].c_str());
        sources_.push_back(std::move(source));
    }
}
