#include "render/pipewire/LVPipeWire.h"

#include "core/util/LVLog.h"

#include <pipewire/pipewire.h>

#include <cstring>
#include <mutex>

namespace {

void initOnce()
{
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

QString systemError(const char* call, int error)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(call), QString::fromLocal8Bit(std::strerror(error)));
}

} // namespace

std::unique_ptr<LVPipeWireConnection> LVPipeWireConnection::connect(const char* threadName, QString* error)
{
    initOnce();
    std::unique_ptr<LVPipeWireConnection> connection(new LVPipeWireConnection);
    connection->name_ = threadName;
    connection->loop_ = pw_thread_loop_new(threadName, nullptr);
    if (!connection->loop_) {
        if (error) *error = systemError("pw_thread_loop_new", errno);
        return nullptr;
    }
    connection->context_ = pw_context_new(pw_thread_loop_get_loop(connection->loop_), nullptr, 0);
    if (!connection->context_) {
        if (error) *error = systemError("pw_context_new", errno);
        return nullptr;
    }
    connection->core_ = pw_context_connect(connection->context_, nullptr, 0);
    if (!connection->core_) {
        if (error) *error = systemError("pw_context_connect", errno);
        return nullptr;
    }
    static const pw_core_events events = [] {
        pw_core_events e{};
        e.version = PW_VERSION_CORE_EVENTS;
        e.error = &LVPipeWireConnection::onCoreError;
        return e;
    }();
    pw_core_add_listener(connection->core_, &connection->coreListener_, &events, connection.get());
    if (pw_thread_loop_start(connection->loop_) < 0) {
        if (error) *error = systemError("pw_thread_loop_start", errno);
        return nullptr;
    }
    return connection;
}

LVPipeWireConnection::~LVPipeWireConnection()
{
    if (loop_) pw_thread_loop_stop(loop_);
    if (core_) {
        spa_hook_remove(&coreListener_);
        pw_core_disconnect(core_);
    }
    if (context_) pw_context_destroy(context_);
    if (loop_) pw_thread_loop_destroy(loop_);
}

void LVPipeWireConnection::lock()
{
    pw_thread_loop_lock(loop_);
}

void LVPipeWireConnection::unlock()
{
    pw_thread_loop_unlock(loop_);
}

void LVPipeWireConnection::onCoreError(void* data, uint32_t id, int, int res, const char* message)
{
    auto* self = static_cast<LVPipeWireConnection*>(data);
    // Errors about one object belong to its owner; only the core's own end the connection.
    if (id != PW_ID_CORE) return;
    if (self->alive_.exchange(false))
        LVLog("PipeWire (%s): the connection ended: %s (%s)", self->name_.c_str(), message ? message : "",
              std::strerror(-res));
}
