#pragma once
// The desktop source's settings: whole display, resizable viewport, the mouse drawn in, the
// rectangle following the mouse, and the display list. Every set tells the observers with the
// new and old value, even when they are equal, so a re-chosen display re-derives its rectangle.
#include "sources/desktop/LVScreen.h"

#include <QString>

#include <functional>
#include <vector>

class DesktopEffectModel {
public:
    using Observer = std::function<void(const QString& key, bool newValue, bool oldValue)>;
    void setObserver(Observer observer) { observer_ = std::move(observer); }

    bool isFullScreen() const { return bFullScreen_; }
    void setFullScreen(bool on) { set(QStringLiteral("fullScreen"), bFullScreen_, on); }
    bool isResizable() const { return bResizable_; }
    void setResizable(bool on) { set(QStringLiteral("resizable"), bResizable_, on); }
    bool isShowMouse() const { return bShowMouse_; }
    void setShowMouse(bool on) { set(QStringLiteral("showMouse"), bShowMouse_, on); }
    bool isFollowMouse() const { return bFollowMouse_; }
    void setFollowMouse(bool on) { set(QStringLiteral("followMouse"), bFollowMouse_, on); }
    const std::vector<LVScreenRef>& screens() const { return screenList_; }
    void setScreens(std::vector<LVScreenRef> screens) { screenList_ = std::move(screens); }

private:
    void set(const QString& key, bool& field, bool value)
    {
        const bool old = field;
        field = value;
        if (observer_) observer_(key, value, old);
    }

    bool bFullScreen_ = false;
    bool bResizable_ = false;
    bool bShowMouse_ = false;
    bool bFollowMouse_ = false;
    std::vector<LVScreenRef> screenList_;
    Observer observer_;
};
