#pragma once
// What the PipeWire output and the node watch share: one library set-up per process and one
// connection per user (its own loop thread), failures logged with the call that failed.
#include <QString>

#include <atomic>
#include <memory>
#include <pipewire/core.h>
#include <string>

struct pw_thread_loop;
struct pw_context;
struct pw_core;

// The name our own video node carries; the node lists leave it out so the output is never fed
// back into itself.
inline constexpr const char* LVPipeWireOwnNodeName = "Lumaveil";

// A started loop thread with a connected core. Every pw_* call on these objects except
// signalling an event needs the loop lock.
class LVPipeWireConnection {
public:
    // Null, with the failing call and its error in error, when PipeWire cannot be reached.
    static std::unique_ptr<LVPipeWireConnection> connect(const char* threadName, QString* error);
    ~LVPipeWireConnection();
    LVPipeWireConnection(const LVPipeWireConnection&) = delete;
    LVPipeWireConnection& operator=(const LVPipeWireConnection&) = delete;

    pw_thread_loop* loop() const { return loop_; }
    pw_core* core() const { return core_; }
    void lock();
    void unlock();
    // False once the daemon went away or refused us; said once in the log.
    bool isAlive() const { return alive_; }

private:
    LVPipeWireConnection() = default;
    static void onCoreError(void* self, uint32_t id, int seq, int res, const char* message);

    std::string name_;
    std::atomic<bool> alive_{true};
    spa_hook coreListener_{};
    pw_thread_loop* loop_ = nullptr;
    pw_context* context_ = nullptr;
    pw_core* core_ = nullptr;
};
