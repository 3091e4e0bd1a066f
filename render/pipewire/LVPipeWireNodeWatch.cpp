#include "render/pipewire/LVPipeWireNodeWatch.h"

#include <pipewire/pipewire.h>

#include <algorithm>
#include <cstring>

std::unique_ptr<LVPipeWireNodeWatch> LVPipeWireNodeWatch::create(QString* error)
{
    std::unique_ptr<LVPipeWireNodeWatch> watch(new LVPipeWireNodeWatch);
    watch->connection_ = LVPipeWireConnection::connect("lv-pipewire-nodes", error);
    if (!watch->connection_) return nullptr;
    static const pw_registry_events registryEvents = [] {
        pw_registry_events e{};
        e.version = PW_VERSION_REGISTRY_EVENTS;
        e.global = &LVPipeWireNodeWatch::onGlobal;
        e.global_remove = &LVPipeWireNodeWatch::onGlobalRemove;
        return e;
    }();
    static const pw_core_events coreEvents = [] {
        pw_core_events e{};
        e.version = PW_VERSION_CORE_EVENTS;
        e.done = &LVPipeWireNodeWatch::onDone;
        return e;
    }();
    watch->connection_->lock();
    watch->registry_ = pw_core_get_registry(watch->connection_->core(), PW_VERSION_REGISTRY, 0);
    if (watch->registry_) {
        pw_registry_add_listener(watch->registry_, &watch->registryListener_, &registryEvents, watch.get());
        pw_core_add_listener(watch->connection_->core(), &watch->coreListener_, &coreEvents, watch.get());
    }
    watch->connection_->unlock();
    if (!watch->registry_) {
        if (error) *error = QStringLiteral("pw_core_get_registry: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return nullptr;
    }
    return watch;
}

LVPipeWireNodeWatch::~LVPipeWireNodeWatch()
{
    if (!connection_) return;
    connection_->lock();
    if (registry_) {
        spa_hook_remove(&registryListener_);
        spa_hook_remove(&coreListener_);
        pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
    }
    connection_->unlock();
    connection_.reset();
}

std::vector<LVPipeWireNode> LVPipeWireNodeWatch::nodes() const
{
    std::lock_guard lock(mutex_);
    return nodes_;
}

void LVPipeWireNodeWatch::setChangeHandler(std::function<void()> handler)
{
    std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
}

bool LVPipeWireNodeWatch::sync(int limitMs)
{
    connection_->lock();
    const int seq = pw_core_sync(connection_->core(), PW_ID_CORE, 0);
    bool answered = true;
    timespec deadline;
    pw_thread_loop_get_time(connection_->loop(), &deadline, int64_t(limitMs) * SPA_NSEC_PER_MSEC);
    while (doneSeq_ != seq && connection_->isAlive()) {
        if (pw_thread_loop_timed_wait_full(connection_->loop(), &deadline) != 0) {
            answered = false;
            break;
        }
    }
    answered = answered && doneSeq_ == seq;
    connection_->unlock();
    return answered;
}

void LVPipeWireNodeWatch::onDone(void* data, uint32_t id, int seq)
{
    auto* self = static_cast<LVPipeWireNodeWatch*>(data);
    if (id != PW_ID_CORE) return;
    self->doneSeq_ = seq;
    pw_thread_loop_signal(self->connection_->loop(), false);
}

void LVPipeWireNodeWatch::onGlobal(void* data, uint32_t id, uint32_t, const char* type, uint32_t, const spa_dict* props)
{
    auto* self = static_cast<LVPipeWireNodeWatch*>(data);
    if (!props || std::strcmp(type, PW_TYPE_INTERFACE_Node) != 0) return;
    const char* mediaClass = spa_dict_lookup(props, PW_KEY_MEDIA_CLASS);
    if (!mediaClass || std::strcmp(mediaClass, "Video/Source") != 0) return;
    const char* name = spa_dict_lookup(props, PW_KEY_NODE_NAME);
    if (!name || std::strcmp(name, LVPipeWireOwnNodeName) == 0) return;
    const char* description = spa_dict_lookup(props, PW_KEY_NODE_DESCRIPTION);
    if (!description) description = spa_dict_lookup(props, PW_KEY_NODE_NICK);
    {
        std::lock_guard lock(self->mutex_);
        self->nodes_.push_back({id, QString::fromUtf8(name), QString::fromUtf8(description ? description : name)});
    }
    self->changed();
}

void LVPipeWireNodeWatch::onGlobalRemove(void* data, uint32_t id)
{
    auto* self = static_cast<LVPipeWireNodeWatch*>(data);
    {
        std::lock_guard lock(self->mutex_);
        const auto gone = std::remove_if(self->nodes_.begin(), self->nodes_.end(),
                                         [id](const LVPipeWireNode& node) { return node.id == id; });
        if (gone == self->nodes_.end()) return;
        self->nodes_.erase(gone, self->nodes_.end());
    }
    self->changed();
}

void LVPipeWireNodeWatch::changed()
{
    std::function<void()> handler;
    {
        std::lock_guard lock(mutex_);
        handler = handler_;
    }
    if (handler) handler();
}
