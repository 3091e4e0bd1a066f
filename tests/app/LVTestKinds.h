#pragma once
// Effect kinds for controller tests: each records its calls in a shared log and paints a
// known colour into a known part of the frame, so order and placement can be checked.
#include "core/LVControllerInterfaces.h"
#include "core/LVEffect.h"
#include "core/Lumaveil.h"
#include "render/LVContext.h"

#include <QColor>
#include <QStringList>

#include <functional>
#include <memory>

inline QStringList& testLog()
{
    static QStringList log;
    return log;
}

// Fills a rectangle of the frame (x, y from the bottom-left, in pixels) with a colour.
inline void fillFrameRect(LVContext& context, int x, int y, int w, int h, QColor color)
{
    context.framebuffer();
    glEnable(GL_SCISSOR_TEST);
    glScissor(x, y, w, h);
    glClearColor(float(color.redF()), float(color.greenF()), float(color.blueF()), 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
}

class LVRecordingEffect : public LVEffect {
public:
    explicit LVRecordingEffect(const LVEffectDescriptor& descriptor) : descriptor_(descriptor) {}
    const LVEffectDescriptor& descriptor() const override { return descriptor_; }
    void preDoit() override { testLog().append(name() + QStringLiteral(".preDoit")); }
    void doit() override
    {
        testLog().append(name() + QStringLiteral(".doit"));
        if (paint) paint(*context());
        if (onDoit) onDoit();
    }

    void setAudioDevice(const QString& device) override
    {
        testLog().append(name() + QStringLiteral(".audio=") + device);
    }

    std::function<void(LVContext&)> paint;
    std::function<void()> onDoit;

private:
    const LVEffectDescriptor& descriptor_;
};

class LVTestMovieSource : public LVRecordingEffect, public LVMoviePlaylist {
public:
    using LVRecordingEffect::LVRecordingEffect;
    void addMoviePathToPlayList(const QString& path) override { playlist.append(path); }
    QStringList playlist;
};

class LVTestSlideShow : public LVRecordingEffect, public LVFileDropReceiver {
public:
    using LVRecordingEffect::LVRecordingEffect;
    void addFileDrop(const QString& path) override { files.append(path); }
    QStringList files;
};

class LVTestPip : public LVRecordingEffect, public LVOtherSourceHolder {
public:
    using LVRecordingEffect::LVRecordingEffect;
    LVEffectRef getOtherEffect() const override { return other; }
    void setOtherEffect(LVEffectRef effect) override { other = std::move(effect); }
    LVEffectRef other;
};

// Registers the test kinds once: sources "Red Source", "Blue Source", "Movie", "Slide Show";
// effects "Marker", "Image Overlay" (with an "Image" parameter) and "PIP".
void LVRegisterTestKinds();

// A new, initialised effect of the named test kind.
template <class T = LVRecordingEffect>
std::shared_ptr<T> makeTestEffect(const QString& className, LVContext* context)
{
    const LVEffectDescriptor* descriptor = LVEffectClasses::classNamed(className);
    auto handle = LVMakeEffectHandle(descriptor->make());
    handle->initWithContext(context);
    return std::dynamic_pointer_cast<T>(handle);
}
