#pragma once
// Our frame as a PipeWire video node (class Video/Source) that other programs and the camera
// portal can read. The render loop hands frames over without ever waiting: the newest frame
// waits in a three-slot mailbox and the node's own thread copies it into PipeWire's buffer.
#include "render/pipewire/LVPipeWire.h"

#include <QString>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <pipewire/stream.h>

class LVPipeWireOutput {
public:
    // Connects and publishes the node at once. When PipeWire cannot be reached this is said
    // once in the log and every frame is dropped.
    explicit LVPipeWireOutput(QString nodeName = QLatin1String(LVPipeWireOwnNodeName), QString description = {});
    ~LVPipeWireOutput();
    LVPipeWireOutput(const LVPipeWireOutput&) = delete;
    LVPipeWireOutput& operator=(const LVPipeWireOutput&) = delete;

    // B,G,R,A bytes, rows stride bytes apart, top row first. Any thread; never waits: a frame
    // pushed while another thread is pushing is dropped. A new size renegotiates the node.
    void pushFrame(const uint8_t* bgra, int width, int height, int stride);

    struct Counts {
        uint64_t pushed = 0;
        // Copied into a buffer of the node.
        uint64_t delivered = 0;
        // Replaced by a newer frame before the node's thread took it, or no free buffer.
        uint64_t dropped = 0;
    };
    Counts counts() const;
    // False when PipeWire could not be reached or the connection ended.
    bool isAlive() const;
    // The node exists in the daemon: the first frame fixed its size and PipeWire took it.
    bool isPublished() const { return published_; }
    QString nodeName() const { return nodeName_; }

private:
    struct Slot {
        std::vector<uint8_t> pixels; // tightly packed rows
        int width = 0;
        int height = 0;
    };
    static constexpr uint32_t kFresh = 4; // flag beside the slot index in middle_

    void connectStream(const spa_pod* format);
    // The node's thread.
    static void onWake(void* self, uint64_t count);
    static void onProcess(void* self);
    static void onParamChanged(void* self, uint32_t id, const spa_pod* param);
    static void onStateChanged(void* self, pw_stream_state oldState, pw_stream_state state, const char* error);
    void takeNewest();
    void announceSize(int width, int height);

    const QString nodeName_;
    const QString description_;
    std::unique_ptr<LVPipeWireConnection> connection_;
    pw_stream* stream_ = nullptr;
    spa_source* wake_ = nullptr;
    spa_hook streamListener_{};

    // The mailbox: the writer fills back_, the node's thread reads front_, middle_ passes
    // frames between them.
    Slot slots_[3];
    std::mutex writer_;
    uint32_t back_ = 0;
    std::atomic<uint32_t> middle_{1};
    uint32_t front_ = 2;

    // The node's thread only.
    int announcedWidth_ = 0;
    int announcedHeight_ = 0;
    int negotiatedWidth_ = 0;
    int negotiatedHeight_ = 0;
    bool frontSent_ = true;
    bool streamErrorLogged_ = false;

    std::atomic<bool> published_{false};
    std::atomic<uint64_t> pushed_{0};
    std::atomic<uint64_t> delivered_{0};
    std::atomic<uint64_t> dropped_{0};
};
