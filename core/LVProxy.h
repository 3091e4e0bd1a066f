#pragma once
// An owning handle that stands for an effect. When the last outside holder lets go, the
// effect's destruct() runs first, breaking the timers, observers and threads that hold
// the effect itself, and only then is the effect freed.
#include <memory>

template <class T>
class LVProxy {
public:
    explicit LVProxy(std::unique_ptr<T> realMcCoy) : realMcCoy_(std::move(realMcCoy)) {}
    virtual ~LVProxy() = default;
    LVProxy(const LVProxy&) = delete;
    LVProxy& operator=(const LVProxy&) = delete;

    T* realMcCoy() const { return realMcCoy_.get(); }
    T* operator->() const { return realMcCoy_.get(); }

protected:
    std::unique_ptr<T> realMcCoy_;
};

class LVEffect;

class LVEffectProxy : public LVProxy<LVEffect> {
public:
    using LVProxy::LVProxy;
    ~LVEffectProxy() override;
};

// Shared handle to an effect; the chain, the studio, setups and menus all hold these.
using LVEffectRef = std::shared_ptr<LVEffect>;

// Wraps a new effect in its proxy and answers the handle everybody holds.
LVEffectRef LVMakeEffectHandle(std::unique_ptr<LVEffect> effect);
