#include "studio/LVStudio.h"

#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "core/util/KDDelayedDispatcher.h"
#include "core/util/LVLog.h"
#include "effects/composition/LVISFProgram.h"
#include "effects/composition/LVQCEffect.h"
#include "setups/model/LVSetupManager.h"

#include <algorithm>
#include <cmath>

namespace {

const QString kSwapModeKey = QStringLiteral("studioSwapMode");
const QString kFrameKey = QStringLiteral("studioFrame");
const QString kSeenKey = QStringLiteral("seenStudio");
// The bundled dissolve, inside the application's resources.
const QString kDissolveFile = QStringLiteral("./Effects/Dissolve.fs");

} // namespace

LVStudio::LVStudio(Lumaveil& app, LVSetupManager& setupManager, LVClock* clock)
    : app_(app), setupManager_(setupManager), clock_(clock ? *clock : LVSystemClock()),
      mainBus_(std::make_unique<LVMEBus>(&app, &setupManager))
{
}

LVStudio::~LVStudio()
{
    if (hasProgramMonitor_) app_.outputs().setDriver(LVOutputSlot::ProgramMonitor, nullptr);
    for (const LVStudioButtonRef& button : allButtons_) button->disconnect(this);
    mainBus_.reset();
}

void LVStudio::setProgramMonitor(LVPictureOutput* monitor)
{
    hasProgramMonitor_ = monitor != nullptr;
    app_.outputs().setDriver(LVOutputSlot::ProgramMonitor,
                             monitor ? std::make_unique<LVPictureDriver>("Program monitor", *monitor,
                                                                         [this] { return app_.isMirrorImagePreview(); })
                                     : nullptr);
}

LVStudio* LVStudio::of(const Lumaveil& app)
{
    return dynamic_cast<LVStudio*>(app.studio());
}

void LVStudio::startup()
{
    transitions_.clear();
    for (const auto& factory : app_.transitions()) transitions_.push_back(factory.get());
    std::stable_sort(transitions_.begin(), transitions_.end(), [](const LVEffectFactory* a, const LVEffectFactory* b) {
        return a->name().compare(b->name(), Qt::CaseInsensitive) < 0;
    });
    selectedTransition_ = transitions_.empty() ? -1 : 0;
    setSwapMode(app_.defaults().boolForKey(kSwapModeKey));
    connect(&setupManager_, &LVSetupManager::currentSetChanged, this, &LVStudio::populateStudio);
    populateStudio();
}

void LVStudio::populateStudio()
{
    LVSetupManagerSet& set = *setupManager_.currentSet();
    // Copied: setting a button idle can reach code that changes the set.
    const std::vector<LVSavedSetupRef> setups = set.setups();
    const auto inSet = [&](const LVSavedSetupRef& setup) {
        return std::find(setups.begin(), setups.end(), setup) != setups.end();
    };
    std::vector<LVStudioButtonRef> gone;
    const std::vector<LVStudioButtonRef> current = allButtons_;
    for (const LVStudioButtonRef& button : current) {
        if (inSet(button->setup())) continue;
        disconnect(button.get(), &LVStudioButton::stateChanged, this, nullptr);
        button->setState(LVButtonIdle);
        gone.push_back(button);
    }
    if (!gone.empty()) {
        for (const LVStudioButtonRef& button : gone) removeStudioButton(button);
        set.clearHints();
        for (const LVStudioButtonRef& button : allButtons_)
            set.setPositionHintForSetup(button->name(), button->row(), button->col());
        // No longer observed, so their last change is announced here: they leave Program.
        requestProgramRebuild();
    }
    for (const LVSavedSetupRef& setup : setups) {
        const bool hasButton = std::any_of(allButtons_.begin(), allButtons_.end(),
                                           [&](const LVStudioButtonRef& b) { return b->setup() == setup; });
        if (hasButton) continue;
        auto button = std::make_shared<LVStudioButton>(setup, app_.context(), this);
        if (const auto hint = set.positionHintForSetup(setup->name())) button->setRow(hint->row, hint->col);
        connect(button.get(), &LVStudioButton::stateChanged, this, &LVStudio::stateChanged);
        addStudioButton(button);
        mainBus_->addButton(button, false);
    }
}

void LVStudio::addStudioButton(const LVStudioButtonRef& button)
{
    allButtons_.push_back(button);
    connect(button.get(), &LVStudioButton::midiKeyChanged, this,
            [this](LVStudioButton* b) { emit buttonMidiKeyChanged(b); });
    emit studioButtonAdded(button.get());
}

void LVStudio::removeStudioButton(const LVStudioButtonRef& button)
{
    allButtons_.erase(std::remove(allButtons_.begin(), allButtons_.end(), button), allButtons_.end());
    button->disconnect(this);
    mainBus_->removeButton(button);
    emit studioButtonRemoved(button.get());
}

LVStudioButtonRef LVStudio::buttonHavingUID(const QString& uid) const
{
    for (const LVStudioButtonRef& button : allButtons_)
        if (button->uid() == uid) return button;
    return nullptr;
}

LVStudioButtonRef LVStudio::buttonHavingName(const QString& name) const
{
    for (const LVStudioButtonRef& button : allButtons_)
        if (button->name() == name) return button;
    return nullptr;
}

LVStudioButtonRef LVStudio::makeNewButton()
{
    const QString base = QStringLiteral("Untitled");
    QString name = base;
    for (int counter = 1; setupManager_.hasSetupWithName(name); ++counter)
        name = QStringLiteral("%1 %2").arg(base).arg(counter);
    QString error;
    // Joining the current set repopulates the studio, which makes the button.
    const LVSavedSetupRef setup = setupManager_.newSavedSetupWithName(name, {}, &error);
    if (!setup) {
        LVLog("makeNewButton: %s", qPrintable(error));
        return nullptr;
    }
    for (const LVStudioButtonRef& button : allButtons_)
        if (button->setup() == setup) return button;
    return nullptr;
}

LVStudioButtonRef LVStudio::doNewButton()
{
    LVStudioButtonRef button = makeNewButton();
    if (!button) return nullptr;
    mainBus_->addButton(button, true);
    button->setState(LVButtonPreview);
    return button;
}

void LVStudio::stateChanged(LVStudioButton*, uint32_t, uint32_t)
{
    // The mini controls of the window react here too; the model only coalesces the rebuild.
    requestProgramRebuild();
}

void LVStudio::requestProgramRebuild()
{
    std::weak_ptr<bool> alive = alive_;
    KDDelayedDispatcher::dispatch(this, "delayedStateChanged", [this, alive] {
        if (alive.lock()) delayedStateChanged();
    });
}

void LVStudio::delayedStateChanged()
{
    LVContext* context = app_.context();
    if (!mainBus_->hasPreviewSetups() && context) {
        // Nothing in Preview: a transition then blends towards black.
        previewBuffer_ = {};
        context->reset(false);
        previewBuffer_ = context->texture();
        context->reset(false);
    }
    if (!programReadyToDraw()) {
        // The old chain stays on air meanwhile; asked again on the next turn.
        requestProgramRebuild();
        return;
    }
    programWaitStart_.reset();
    app_.clearEffects(true);
    mainBus_->pushProgramEffects();
}

bool LVStudio::programReadyToDraw()
{
    bool ready = true;
    for (const LVStudioButtonRef& button : mainBus_->programButtons()) {
        for (const LVEffectRef& effect : button->effects()) {
            // Asking for the program starts its compilation; a composition that failed to
            // compile will never draw and is not waited for.
            const auto* composition = dynamic_cast<const LVQCEffect*>(effect.get());
            const SimpleQCRenderer* renderer = composition ? composition->renderer() : nullptr;
            if (renderer && renderer->composition().isValid() && !renderer->isUsable() &&
                LVISFProgramError(renderer->composition()).isEmpty())
                ready = false;
        }
    }
    if (ready) return true;
    // A builder that never answers must not hold the cut for ever.
    const double now = clock_.now();
    if (!programWaitStart_) programWaitStart_ = now;
    return now - *programWaitStart_ >= kProgramWaitSeconds;
}

void LVStudio::doit()
{
    const bool monitorVisible = previewMonitor_ && previewMonitor_->isPreviewVisible();
    // With no monitor at all (headless) or a transition under way the picture is still
    // needed: the transition blends towards it.
    const bool wanted = monitorVisible || !previewMonitor_ || transitionRunning_;
    if (!wanted || !mainBus_->hasPreviewSetups()) return;
    LVContext& context = *app_.context();
    context.reset(false);
    mainBus_->runPreview();
    if (monitorVisible) {
        LVOutputFrame frame(context, previewReadBack_);
        previewMonitor_->showPicture(frame.pixels(), app_.isMirrorImagePreview());
    }
    // Kept on the GPU; the frame's own reset, right after this step, gives Program a fresh target.
    previewBuffer_ = context.texture();
    if (monitorVisible) sampleFrameRate();
}

void LVStudio::applyTransition()
{
    if (transitionRunning_) {
        LVContext& context = *app_.context();
        const double elapsed = std::max(0.0, context.frameTime() - transitionStart_);
        const double t = std::min(elapsed, transitionTime_);
        lastFraction_ = t / transitionTime_;
        if (currentTransition_ && previewBuffer_.name != 0) {
            currentTransition_->doTransitionTo(previewBuffer_, lastFraction_);
            context.flush();
        }
        if (t == transitionTime_) endTransition();
    }
}

void LVStudio::endTransition()
{
    currentTransition_.reset();
    transitionRunning_ = false;
    lastFraction_ = 0;
    executeCut();
    emit transitionStateChanged();
}

void LVStudio::doCut()
{
    executeCut();
}

void LVStudio::executeCut()
{
    mainBus_->executeCut(bSwapMode_);
}

void LVStudio::doTransition()
{
    LVEffectRef transition;
    if (selectedTransition_ >= 0 && size_t(selectedTransition_) < transitions_.size())
        transition = transitions_[size_t(selectedTransition_)]->instantiateWithContext(app_.context());
    startTransition(transition);
}

void LVStudio::doDissolve()
{
    if (!dissolve_) dissolve_ = LVQCEffect::makeForFile(app_.context(), kDissolveFile);
    startTransition(dissolve_);
}

void LVStudio::startTransition(const LVEffectRef& transition)
{
    currentTransition_ = transition;
    transitionStart_ = clock_.absoluteTime();
    transitionRunning_ = true;
    lastFraction_ = 0;
    mainBus_->startTransition();
    emit transitionStateChanged();
}

void LVStudio::doClear()
{
    const std::vector<LVStudioButtonRef> buttons = mainBus_->buttons();
    for (const LVStudioButtonRef& button : buttons)
        if (button->state() == LVButtonOnAir) button->setState(LVButtonLeaving);
}

bool LVStudio::setNamedTransition(const QString& name)
{
    for (size_t i = 0; i < transitions_.size(); ++i) {
        if (transitions_[i]->name() == name) {
            selectedTransition_ = int(i);
            return true;
        }
    }
    return false;
}

QString LVStudio::namedTransition() const
{
    if (selectedTransition_ < 0 || size_t(selectedTransition_) >= transitions_.size()) return {};
    return transitions_[size_t(selectedTransition_)]->name();
}

QStringList LVStudio::transitionNames() const
{
    QStringList names;
    for (const LVEffectFactory* factory : transitions_) names.append(factory->name());
    return names;
}

void LVStudio::setSwapMode(bool swap)
{
    if (swap == bSwapMode_) return;
    bSwapMode_ = swap;
    emit swapModeChanged(swap);
}

bool LVStudio::setTransitionTime(double seconds)
{
    if (!std::isfinite(seconds) || seconds <= 0) return false;
    transitionTime_ = seconds;
    return true;
}

QStringList LVStudio::previewButtonNames()
{
    QStringList names;
    for (const LVStudioButtonRef& button : mainBus_->previewButtons()) names.append(button->name());
    return names;
}

QStringList LVStudio::programButtonNames()
{
    QStringList names;
    for (const LVStudioButtonRef& button : mainBus_->programButtons()) names.append(button->name());
    return names;
}

void LVStudio::applicationWillTerminate()
{
    LVDefaults& defaults = app_.defaults();
    // With no window (headless) the frame the window run stored is kept.
    if (windowFrame_) defaults.setValue(kFrameKey, windowFrame_());
    defaults.setValue(kSwapModeKey, bSwapMode_);
}

QString LVStudio::storedWindowFrame() const
{
    return app_.defaults().stringForKey(kFrameKey);
}

bool LVStudio::takeFirstRunOffer()
{
    LVDefaults& defaults = app_.defaults();
    if (defaults.hasStoredValue(kSeenKey)) return false;
    // Written first, so the offer is made once even if the program quits with it open.
    defaults.setValue(kSeenKey, true);
    return true;
}

void LVStudio::doFPS(bool optionHeld)
{
    if (!optionHeld) return;
    fpsLabel_ = QStringLiteral("FPS");
    emit fpsLabelChanged(fpsLabel_);
    sampleEndTime_ = clock_.now();
    frameCount_ = 0;
}

void LVStudio::sampleFrameRate()
{
    if (sampleEndTime_ == 0) return;
    ++frameCount_;
    const double now = clock_.now();
    const double elapsed = now - sampleEndTime_;
    if (elapsed <= 2.0) return;
    fpsLabel_ = QString::asprintf("%.1lf", double(frameCount_) / elapsed);
    emit fpsLabelChanged(fpsLabel_);
    sampleEndTime_ = now;
    frameCount_ = 0;
}

std::vector<LVStudioButton*> LVStudio::buttonsInGridOrder() const
{
    std::vector<LVStudioButton*> buttons;
    for (const LVStudioButtonRef& button : allButtons_) buttons.push_back(button.get());
    std::sort(buttons.begin(), buttons.end(), [](const LVStudioButton* a, const LVStudioButton* b) {
        if (a->row() != b->row()) return a->row() < b->row();
        if (a->col() != b->col()) return a->col() < b->col();
        return a->name().compare(b->name(), Qt::CaseInsensitive) < 0;
    });
    return buttons;
}
