#pragma once
// The video nodes other programs publish (class Video/Source), kept up to date by a registry
// watch on its own thread.
#include "render/pipewire/LVPipeWire.h"

#include <QString>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

struct pw_registry;

struct LVPipeWireNode {
    uint32_t id = 0;
    QString name;        // node.name: what a reader connects to and a setup stores
    QString description; // node.description (else node.nick, else the name): what a user sees
    bool operator==(const LVPipeWireNode&) const = default;
};

class LVPipeWireNodeWatch {
public:
    // Null, with the failing call and its error in error, when PipeWire cannot be reached.
    static std::unique_ptr<LVPipeWireNodeWatch> create(QString* error);
    ~LVPipeWireNodeWatch();
    LVPipeWireNodeWatch(const LVPipeWireNodeWatch&) = delete;
    LVPipeWireNodeWatch& operator=(const LVPipeWireNodeWatch&) = delete;

    // The video nodes announced now, in the order they appeared; our own node left out.
    std::vector<LVPipeWireNode> nodes() const;
    // Called on the watch's thread after every change of the list.
    void setChangeHandler(std::function<void()> handler);
    // Waits until the daemon has told us every node that existed when this was called, so a
    // list read afterwards is complete; false when the daemon does not answer in time.
    bool sync(int limitMs);

private:
    LVPipeWireNodeWatch() = default;
    static void onGlobal(void* self, uint32_t id, uint32_t permissions, const char* type, uint32_t version,
                         const spa_dict* props);
    static void onGlobalRemove(void* self, uint32_t id);
    static void onDone(void* self, uint32_t id, int seq);
    void changed();

    std::unique_ptr<LVPipeWireConnection> connection_;
    pw_registry* registry_ = nullptr;
    spa_hook registryListener_{};
    spa_hook coreListener_{};
    int doneSeq_ = -1;

    mutable std::mutex mutex_;
    std::vector<LVPipeWireNode> nodes_;
    std::function<void()> handler_;
};
