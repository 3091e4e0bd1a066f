#pragma once
// The "Desktop" source: a whole display, or a rectangle of it that the user drags over the
// display (the viewport), is the chain's base picture; the rectangle can follow the mouse and
// the arrow can be drawn in. Archives of the older desktop source decode as this one.
#include "core/LVEffect.h"
#include "sources/desktop/DesktopEffectModel.h"
#include "sources/desktop/LVDesktopDrawer.h"
#include "sources/desktop/LVDesktopGrabber.h"
#include "sources/desktop/ViewPort.h"

#include <QRectF>

#include <memory>

class DesktopLion : public LVEffect {
public:
    DesktopLion() = default;
    ~DesktopLion() override;

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }

    void initEffectCommon(LVContext* context) override;
    // A new source shows "This screen", whole.
    void initWithContext(LVContext* context) override;
    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    void encodeWithCoder(LVKeyedArchiver& coder) const override;
    void destruct() override;
    bool setMode(int32_t mode) override;
    void doit() override;
    LVParameterList effectProperties() const override;

    DesktopEffectModel& model() { return model_; }
    const LVScreenRef& selectedScreen() const { return selectedScreen_; }
    // The list entry at index (the display pop-up's action); the separator is ignored.
    void setSelectedScreen(int index);
    void setScreen(const LVScreenRef& screen);
    // In the display's own coordinates, origin at its lower left.
    void setGrabRect(const QRectF& rect);
    QRectF grabRect() const { return grabRect_; }
    QRectF globalGrab() const { return globalGrab_; }
    void fullScreenChanged(bool on);
    void resizableChanged(bool on);
    // 0 hides the viewport, anything else shows it in front.
    void doSelectStart(int value);
    void doSelectChange(bool finished);
    ViewPort* viewPort() const { return viewPort_.get(); }
    LVDesktopGrabber* grabber() const { return grabber_.get(); }
    const LVDesktopDrawer& drawer() const { return drawer_; }

    bool doNotExceedResolution() const;
    void setDoNotExceedResolution(bool on);
    bool willShowMouse() const { return grabber_ && grabber_->willShowMouse(); }
    bool isShowMouse() const { return model_.isShowMouse(); }
    bool isFullScreen() const { return model_.isFullScreen(); }
    bool isFollowMouse() const { return model_.isFollowMouse(); }
    bool isResizable() const { return model_.isResizable(); }
    QString screen() const { return selectedScreen_ ? selectedScreen_->description() : QString(); }
    // Why nothing or a slow picture shows (no X server, no shared memory); empty when all is well.
    QString message() const;

    static constexpr const char* kScreenKey = "screen";
    static constexpr const char* kSelectKey = "select";
    static constexpr const char* kViewPortRectKey = "viewPortRect";

protected:
    void parameterChanged(const QString& key) override;

private:
    void modelChanged(const QString& key, bool on);
    void releaseScreen();
    void followMouse();
    void syncParameters();
    void fallBackToMainScreen();

    DesktopEffectModel model_;
    LVScreenRef selectedScreen_;
    std::unique_ptr<ViewPort> viewPort_;
    std::unique_ptr<LVDesktopGrabber> grabber_;
    LVDesktopDrawer drawer_;
    QRectF grabRect_;
    QRectF globalGrab_;
    bool doNotExceedResolution_ = false;
    bool viewPortShown_ = false;
    bool syncing_ = false;
    QString listError_;
    // What the archive named, kept when the display or X is missing so a re-save loses nothing.
    QString archivedScreen_;
    QRectF archivedRect_;
};

// The render loop's rate, which a launch may set for one run; the stored preference otherwise.
int32_t LVDesktopFrameRate();

// Runs the grabber at the current frame rate while mode is not off, and stops it otherwise.
void LVApplyDesktopGrabberMode(LVDesktopGrabber& grabber, int32_t mode);

// The effect's archived parameters but those a desktop source writes in its own way.
void LVEncodeDesktopParameters(const LVEffect& effect, LVKeyedArchiver& coder, const QStringList& ownKeys);

// Registers the desktop source kinds ("Desktop" and "Desktop+").
void LVRegisterDesktopKinds();
