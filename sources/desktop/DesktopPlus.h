#pragma once
// The "Desktop+" source: one application's window, picked from the windows whose class or
// title contains a filter, cropped by a margin on each side. The window is read from its own
// pixmap (XComposite) when the server has it, so windows over it do not show; otherwise from
// the screen area it covers.
#include "core/LVEffect.h"
#include "sources/desktop/LVDesktopDrawer.h"
#include "sources/desktop/LVDesktopGrabber.h"

#include <memory>
#include <vector>

class DesktopPlus : public LVEffect {
public:
    DesktopPlus() = default;
    ~DesktopPlus() override;

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }

    void initEffectCommon(LVContext* context) override;
    void initWithContext(LVContext* context) override;
    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    void encodeWithCoder(LVKeyedArchiver& coder) const override;
    void destruct() override;
    bool setMode(int32_t mode) override;
    void doit() override;
    LVParameterList effectProperties() const override;

    // The windows that pass the filter (case-insensitive, in class or title), listed anew.
    void refreshWindows();
    const std::vector<LVWindowInfo>& windows() const { return windows_; }
    // Captures the listed window at index.
    void chooseWindow(int index);
    const LVWindowInfo& chosenWindow() const { return chosen_; }
    LVDesktopGrabber* grabber() const { return grabber_.get(); }
    QMargins crop() const;

    // "Class — Title", as the window list shows it.
    static QString windowLabel(const LVWindowInfo& window);
    static bool passesFilter(const LVWindowInfo& window, const QString& filter);

protected:
    void parameterChanged(const QString& key) override;

private:
    void ensureGrabber();
    // Finds an archived window again by class and title (the grabber does so for one that goes
    // away while shown).
    void findChosenAgain();
    void syncWindowChoice();

    std::vector<LVWindowInfo> windows_;
    LVWindowInfo chosen_;
    std::unique_ptr<LVDesktopGrabber> grabber_;
    LVDesktopDrawer drawer_;
    bool syncing_ = false;
};
