#pragma once
// The studio: the vision mixer's model. It owns the bus and one button per setup of the
// current set, renders Preview in its own step of every frame into a frame kept on the
// GPU, runs cuts and timed transitions, and rebuilds Program (the application's live
// chain) once per burst of button changes. Works with no window at all.
#include "core/LVControllerInterfaces.h"
#include "core/LVEffect.h"
#include "render/LVContext.h"
#include "studio/LVMEBus.h"
#include "studio/LVStudioButton.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class LVEffectFactory;
class LVSetupManager;
class LVSetupManagerSet;
class Lumaveil;

class LVStudio : public QObject, public LVStudioHooks {
    Q_OBJECT
public:
    static constexpr const char* firstRunOfferText =
        "This is the first time you've run Lumaveil Studio.  Would you like to see how it works now?  You can "
        "always look at it later by going to the Help menu.  This message will automatically not be displayed "
        "again.";

    // The application's render context, transitions catalogue, live chain and preferences
    // are used; both must outlive the studio.
    // clock defaults to the system clock; it must be the one the render loop stamps frames with.
    LVStudio(Lumaveil& app, LVSetupManager& setupManager, LVClock* clock = nullptr);
    ~LVStudio() override;
    // The studio plugged into the controller, or null.
    static LVStudio* of(const Lumaveil& app);

    // Once, after the setup manager's startup: sorts the transitions, reads the swap mode
    // and follows the current set from now on.
    void startup();
    // Keeps one button per setup of the current set: buttons of setups that left are set
    // idle and dropped, new setups get buttons placed by the set's position hints.
    void populateStudio();

    const std::vector<LVStudioButtonRef>& studioButtons() const { return allButtons_; }
    // Row by row, left to right (equal places by name): the order remote surfaces list them in.
    std::vector<LVStudioButton*> buttonsInGridOrder() const;
    LVStudioButtonRef buttonHavingUID(const QString& uid) const;
    LVStudioButtonRef buttonHavingName(const QString& name) const;
    // A button for a new, empty setup named "Untitled" (or "Untitled 1", ...).
    LVStudioButtonRef makeNewButton();
    // The studio's New Button command: made, placed, put into Preview.
    LVStudioButtonRef doNewButton();
    LVMEBus& mainBus() { return *mainBus_; }
    Lumaveil& app() const { return app_; }
    LVSetupManager& setupManager() const { return setupManager_; }

    // Frame steps (called by the render loop).
    void doit() override;
    void applyTransition() override;
    // Stores the studio window's frame and the swap mode.
    void applicationWillTerminate() override;

    // Commands.
    void doCut();
    void executeCut();
    // The transition selected in the catalogue.
    void doTransition();
    // The bundled Dissolve, made on first use and kept.
    void doDissolve();
    // Starts a transition now; a null effect still changes the states and cuts on time.
    void startTransition(const LVEffectRef& transition);
    // Every on-air button is marked to leave.
    void doClear();
    // Selects the first transition of that name; false (selection kept) for an unknown name.
    bool setNamedTransition(const QString& name);
    QString namedTransition() const;
    // Transition names in catalogue order (by name, case-insensitive).
    QStringList transitionNames() const;
    bool isSwapMode() const { return bSwapMode_; }
    void setSwapMode(bool swap);
    double transitionTime() const { return transitionTime_; }
    // Seconds; false, leaving the time unchanged, unless finite and above zero.
    bool setTransitionTime(double seconds);

    // What a remote panel reads.
    bool isTransitionRunning() const { return transitionRunning_; }
    // The fraction last given to the running transition; 0 when none runs.
    double transitionFraction() const { return transitionRunning_ ? lastFraction_ : 0.0; }
    QStringList previewButtonNames();
    QStringList programButtonNames();
    // The last Preview frame, kept on the GPU.
    const LVTexture& previewBuffer() const { return previewBuffer_; }

    // Deferred rebuild of Program after a burst of state changes.
    void delayedStateChanged();

    // Monitors. Preview is rendered while its monitor is shown, and also with no monitor
    // plugged in (headless) or while a transition runs, since the transition needs it.
    // Preview's picture is read back for its monitor alone; Program's monitor is one of the
    // frame's outputs and shares the frame's one read-back.
    void setPreviewMonitor(LVPictureOutput* monitor) { previewMonitor_ = monitor; }
    void setProgramMonitor(LVPictureOutput* monitor);
    // The studio window's frame in its string form, stored at quit under "studioFrame".
    void setWindowFrameSource(std::function<QString()> source) { windowFrame_ = std::move(source); }
    QString storedWindowFrame() const;
    // True once: the first-run offer is due ("seenStudio" is written before answering).
    bool takeFirstRunOffer();

    // Frame-rate readout: Option-click starts sampling; the label shows "FPS", then frames
    // per second over each sample of more than 2 s.
    void doFPS(bool optionHeld);
    const QString& fpsLabel() const { return fpsLabel_; }

signals:
    void studioButtonAdded(LVStudioButton* button);
    void studioButtonRemoved(LVStudioButton* button);
    // Any button's MIDI key changed (also sent for each added button with a key).
    void buttonMidiKeyChanged(LVStudioButton* button);
    void transitionStateChanged();
    void swapModeChanged(bool swap);
    void fpsLabelChanged(const QString& label);

private:
    void stateChanged(LVStudioButton* button, uint32_t oldState, uint32_t newState);
    void requestProgramRebuild();
    // Whether every composition of the new Program has its shaders: one still compiling
    // would draw nothing (a black frame on air). Gives up waiting after kProgramWaitSeconds.
    bool programReadyToDraw();
    void addStudioButton(const LVStudioButtonRef& button);
    void removeStudioButton(const LVStudioButtonRef& button);
    void sampleFrameRate();
    void endTransition();

    Lumaveil& app_;
    LVSetupManager& setupManager_;
    LVClock& clock_;
    static constexpr double kProgramWaitSeconds = 2.0;
    std::optional<double> programWaitStart_; // when the rebuild began waiting for compositions
    std::unique_ptr<LVMEBus> mainBus_;
    std::vector<LVStudioButtonRef> allButtons_;
    std::vector<const LVEffectFactory*> transitions_;
    int selectedTransition_ = -1;
    LVEffectRef dissolve_;
    LVEffectRef currentTransition_;
    bool transitionRunning_ = false;
    double transitionStart_ = 0;
    double transitionTime_ = 1.0;
    double lastFraction_ = 0;
    bool bSwapMode_ = false;
    LVTexture previewBuffer_;
    LVPictureOutput* previewMonitor_ = nullptr;
    bool hasProgramMonitor_ = false;
    LVFrameReadBack previewReadBack_;
    std::function<QString()> windowFrame_;
    QString fpsLabel_;
    double sampleEndTime_ = 0;
    uint32_t frameCount_ = 0;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};
