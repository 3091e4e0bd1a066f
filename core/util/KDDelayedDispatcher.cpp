#include "core/util/KDDelayedDispatcher.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <vector>

namespace {

struct PendingCall {
    const void* target;
    std::string selector;
    const void* object;
    KDDelayedDispatcher::Action action;
};

std::vector<PendingCall>& pendingCalls()
{
    static std::vector<PendingCall> calls = [] {
        std::vector<PendingCall> list;
        list.reserve(5);
        return list;
    }();
    return calls;
}

} // namespace

void KDDelayedDispatcher::dispatch(const void* target, const std::string& selector, const void* object,
                                   Action action)
{
    auto& calls = pendingCalls();
    for (const auto& call : calls) {
        if (call.target == target && call.object == object && call.selector == selector) return;
    }
    calls.push_back({target, selector, object, std::move(action)});
    if (calls.size() == 1) {
        if (auto* app = QCoreApplication::instance()) {
            QMetaObject::invokeMethod(app, [] { flush(); }, Qt::QueuedConnection);
        }
    }
}

void KDDelayedDispatcher::dispatch(const void* target, const std::string& selector, Action action)
{
    dispatch(target, selector, nullptr, std::move(action));
}

void KDDelayedDispatcher::flush()
{
    std::vector<PendingCall> running;
    running.swap(pendingCalls());
    for (auto& call : running) call.action();
}

size_t KDDelayedDispatcher::pendingCount()
{
    return pendingCalls().size();
}
