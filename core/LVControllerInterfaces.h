#pragma once
// How the application controller reaches the parts that live above it (studio, outputs,
// user menu) or below it behind a platform boundary (the frame transport). The composition
// root plugs implementations in; a missing one is simply skipped in the frame.
#include "core/LVProxy.h"
#include "render/LVOutputDriver.h"

#include <QString>

#include <cstdint>

// The studio's two steps in every frame.
class LVStudioHooks {
public:
    virtual ~LVStudioHooks() = default;
    // Renders the studio's Preview bus before the live chain.
    virtual void doit() = 0;
    // Blends towards the outgoing picture while a transition runs.
    virtual void applyTransition() = 0;
    virtual void applicationWillTerminate() = 0;
};

// The full-screen output on a chosen display: a driver in the frame's output list.
class LVFullScreenOutput : public LVOutputDriver {
public:
    // Escape only ends a full-screen preview that covers the main screen.
    virtual bool isOnMainScreen() const = 0;
};

// The second published output (a video node other programs can read), made on the first frame
// that needs it and kept for the process. Called on an output thread of its own, one frame at a
// time; it must not block.
class LVSecondOutput {
public:
    virtual ~LVSecondOutput() = default;
    // B,G,R,A bytes, top row first, rows stride bytes apart.
    virtual void pushFrame(const unsigned char* bgra, int width, int height, int stride) = 0;
};

// Key presses that the controller does not handle itself (the user menu's shortcuts).
class LVKeyDispatcher {
public:
    virtual ~LVKeyDispatcher() = default;
    // Qt key code and modifiers; answers true when a shortcut took the key.
    virtual bool dispatchWithEvent(int key, int modifiers) = 0;
};

// The automation timelines, owned by the controller and started once at launch.
class LVTimeLineOwner {
public:
    virtual ~LVTimeLineOwner() = default;
    virtual void startup() = 0;
};

// Kinds that accept dropped files implement these, so the controller can hand them over
// without knowing the kind.
class LVMoviePlaylist {
public:
    virtual ~LVMoviePlaylist() = default;
    virtual void addMoviePathToPlayList(const QString& path) = 0;
};

class LVFileDropReceiver {
public:
    virtual ~LVFileDropReceiver() = default;
    virtual void addFileDrop(const QString& path) = 0;
};

// Effects that hold a second source of their own (picture-in-picture).
class LVOtherSourceHolder {
public:
    virtual ~LVOtherSourceHolder() = default;
    virtual LVEffectRef getOtherEffect() const = 0;
    virtual void setOtherEffect(LVEffectRef effect) = 0;
};

// Time as the render loop sees it.
class LVClock {
public:
    virtual ~LVClock() = default;
    // Monotonic seconds: frame scheduling.
    virtual double now() const = 0;
    // Wall-clock seconds since the epoch: the frame time effects animate with.
    virtual double absoluteTime() const = 0;
};

LVClock& LVSystemClock();
