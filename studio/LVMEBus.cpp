#include "studio/LVMEBus.h"

#include "core/Lumaveil.h"
#include "core/util/KDDelayedDispatcher.h"
#include "core/util/LVLog.h"
#include "render/LVContext.h"
#include "setups/model/LVSetupManager.h"

#include <algorithm>

LVMEBus::LVMEBus(Lumaveil* app, LVSetupManager* setupManager) : app_(app), setupManager_(setupManager) {}

LVMEBus::~LVMEBus()
{
    for (const LVStudioButtonRef& button : buttons_) {
        button->disconnect(this);
        button->setBus(nullptr);
    }
}

bool LVMEBus::contains(const LVStudioButton& button) const
{
    return button.bus() == this;
}

LVStudioButtonRef LVMEBus::refOf(const LVStudioButton& button) const
{
    for (const LVStudioButtonRef& ref : buttons_)
        if (ref.get() == &button) return ref;
    return nullptr;
}

void LVMEBus::addButton(const LVStudioButtonRef& button, bool bestPlacement)
{
    if (!button || contains(*button)) return;
    if (LVMEBus* previous = button->bus()) previous->removeButton(button);
    if (bestPlacement) button->setRow(0, 0);
    button->setBus(this);
    connect(button.get(), &LVStudioButton::locationChanged, this, [this](LVStudioButton* b) { stateMoved(*b); });
    connect(button.get(), &LVStudioButton::stateChanged, this,
            [this](LVStudioButton* b, uint32_t, uint32_t) { stateChanged(*b); });
    connect(button.get(), &LVStudioButton::wantsPreviewChanged, this,
            [this](LVStudioButton* b) { wantsPreviewChanged(*b); });
    connect(button.get(), &LVStudioButton::hasVideoSourceChanged, this,
            [this](LVStudioButton* b) { hasSourceChanged(*b); });
    buttons_.push_back(button);
    placeButton(*button);
    emit buttonAdded(button.get());
}

void LVMEBus::removeButton(const LVStudioButtonRef& button)
{
    if (!button || !contains(*button)) return;
    buttons_.erase(std::find(buttons_.begin(), buttons_.end(), button));
    takeOutOfRows(*button);
    // All four observations go: a detached button must not disturb the bus.
    button->disconnect(this);
    button->setBus(nullptr);
    setDirty();
    emit buttonRemoved(button.get());
}

void LVMEBus::takeOutOfRows(const LVStudioButton& button)
{
    for (auto& row : rows_)
        row.erase(std::remove_if(row.begin(), row.end(), [&](const LVStudioButtonRef& b) { return b.get() == &button; }),
                  row.end());
}

void LVMEBus::placeButton(LVStudioButton& button)
{
    int32_t row = 0;
    if (!button.hasVideoSource()) row = button.row() == 0 ? 1 : button.row();
    // A damaged position hint must not put a button outside the grid.
    if (row < 0) row = 1;
    const int32_t col = std::max(0, button.col());
    if (size_t(row) >= rows_.size()) {
        button.setRow(row, col);
        return;
    }
    const auto& cells = rows_[size_t(row)];
    const bool taken = std::any_of(cells.begin(), cells.end(), [&](const LVStudioButtonRef& other) {
        return other.get() != &button && other->col() == col;
    });
    button.setRow(row, taken ? _findFreeCellOnRow(row) : col);
}

int32_t LVMEBus::_findFreeCellOnRow(int32_t row) const
{
    if (row < 0 || size_t(row) >= rows_.size() || rows_[size_t(row)].empty()) return 0;
    const auto& cells = rows_[size_t(row)];
    const int32_t length = int32_t(cells.size());
    if (cells.back()->col() == length - 1) return length;
    for (int32_t i = 0; i < length; ++i)
        if (cells[size_t(i)]->col() != i) return i;
    LVLog("_findFreeCellOnRow: This should never happen");
    return length;
}

void LVMEBus::stateMoved(LVStudioButton& button)
{
    if (!contains(button)) return;
    const LVStudioButtonRef ref = refOf(button);
    if (!ref) return;
    if (setupManager_)
        setupManager_->currentSet()->setPositionHintForSetup(button.name(), button.row(), button.col());
    takeOutOfRows(button);
    // A negative place cannot be a grid cell; it files in no row, like an occupied cell.
    if (button.row() >= 0) {
        if (size_t(button.row()) >= rows_.size()) rows_.resize(size_t(button.row()) + 1);
        auto& cells = rows_[size_t(button.row())];
        const bool occupied =
            std::any_of(cells.begin(), cells.end(), [&](const LVStudioButtonRef& b) { return b->col() == button.col(); });
        // A move onto an occupied cell leaves the button in no row, so on neither bus,
        // until it is moved again.
        if (!occupied) {
            const auto at = std::find_if(cells.begin(), cells.end(),
                                         [&](const LVStudioButtonRef& b) { return b->col() > button.col(); });
            cells.insert(at, ref);
        }
    }
    if (button.state() != LVButtonIdle) setDirty();
}

void LVMEBus::hasSourceChanged(LVStudioButton& button)
{
    const int32_t row = button.hasVideoSource() ? 0 : 1;
    button.setRow(row, _findFreeCellOnRow(row));
}

void LVMEBus::stateChanged(LVStudioButton& button)
{
    if (button.hasVideoSource() && !rows_.empty()) {
        const uint32_t state = button.state();
        // A copy: observers of the changes below may move buttons between rows.
        const std::vector<LVStudioButtonRef> sources = rows_[0];
        if (state == LVButtonPreview) {
            for (const LVStudioButtonRef& other : sources) {
                if (other.get() == &button) continue;
                if (other->state() == LVButtonPreview) {
                    other->setState(LVButtonIdle);
                    break;
                }
                if (other->state() == LVButtonOnAir) {
                    other->setState(LVButtonLeaving);
                    break;
                }
            }
        } else if (state == LVButtonOnAir) {
            for (const LVStudioButtonRef& other : sources) {
                if (other.get() != &button && other->state() == LVButtonOnAir) {
                    other->setState(LVButtonLeaving);
                    break;
                }
            }
        }
    }
    setDirty();
}

void LVMEBus::wantsPreviewChanged(LVStudioButton&)
{
    setDirty();
}

void LVMEBus::setDirty()
{
    if (bSetupsDirty_) return;
    bSetupsDirty_ = true;
    std::weak_ptr<bool> alive = alive_;
    KDDelayedDispatcher::dispatch(this, "fireDelayedHasPreviewKVO", [this, alive] {
        if (alive.lock()) fireDelayedHasPreviewKVO();
    });
}

void LVMEBus::fireDelayedHasPreviewKVO()
{
    emit hasPreviewSetupsChanged();
}

void LVMEBus::checkDirty()
{
    if (!bSetupsDirty_) return;
    collectPreviewSetups();
    collectProgramSetups();
    bSetupsDirty_ = false;
}

const std::vector<LVStudioButtonRef>& LVMEBus::previewButtons()
{
    checkDirty();
    return previewButtons_;
}

const std::vector<LVStudioButtonRef>& LVMEBus::programButtons()
{
    checkDirty();
    return programButtons_;
}

void LVMEBus::collectPreviewSetups()
{
    previewButtons_.clear();
    if (std::none_of(buttons_.begin(), buttons_.end(), [](const LVStudioButtonRef& b) { return b->wantsPreview(); }))
        return;
    if (!rows_.empty()) {
        for (const LVStudioButtonRef& button : rows_[0]) {
            const uint32_t state = button->state();
            if (state == LVButtonPreview || state == LVButtonTransitioning) {
                // The pending source replaces any on-air one met before it.
                previewButtons_.assign(1, button);
                break;
            }
            if (state == LVButtonOnAir) previewButtons_.push_back(button);
        }
    }
    for (size_t row = 1; row < rows_.size(); ++row) {
        for (const LVStudioButtonRef& button : rows_[row]) {
            const uint32_t state = button->state();
            if (state == LVButtonTransitioning || state == LVButtonOnAir || state == LVButtonPreview)
                previewButtons_.push_back(button);
        }
    }
}

void LVMEBus::collectProgramSetups()
{
    programButtons_.clear();
    for (const auto& row : rows_)
        for (const LVStudioButtonRef& button : row)
            if (button->state() == LVButtonLeaving || button->state() == LVButtonOnAir)
                programButtons_.push_back(button);
}

void LVMEBus::pushProgramEffects()
{
    if (!app_) return;
    for (const LVStudioButtonRef& button : programButtons()) app_->addEffectsFrom(button->effects(), true, false);
}

void LVMEBus::runChain(const std::vector<LVStudioButtonRef>& buttons)
{
    if (!app_ || !app_->context()) return;
    LVContext& context = *app_->context();
    std::vector<LVEffectRef> chain;
    for (const LVStudioButtonRef& button : buttons)
        chain.insert(chain.end(), button->effects().begin(), button->effects().end());
    // A setup's effects all draw here, enabled or not.
    const LVChainAreas areas(chain, QSize(context.width(), context.height()), true);
    for (const LVEffectRef& effect : chain) effect->preDoit();
    for (const LVEffectRef& effect : chain) {
        effect->doit();
        context.flush();
    }
}

void LVMEBus::runPreview()
{
    runBusChain(true);
}

void LVMEBus::runProgram()
{
    runBusChain(false);
}

void LVMEBus::runBusChain(bool preview)
{
    if (!app_ || !app_->context()) return;
    LVContext& context = *app_->context();
    const bool wasForPreview = context.isForPreview();
    context.setIsForPreview(preview);
    // A copy: an effect's doit must not be able to invalidate the list being walked.
    const std::vector<LVStudioButtonRef> buttons = preview ? previewButtons() : programButtons();
    runChain(buttons);
    context.setIsForPreview(wasForPreview);
}

void LVMEBus::executeCut(bool swap)
{
    std::vector<LVStudioButtonRef> goingOn, leaving;
    for (const LVStudioButtonRef& button : buttons_) {
        const uint32_t state = button->state();
        if (state == LVButtonTransitioning || state == LVButtonPreview) goingOn.push_back(button);
        else if (state == LVButtonLeaving) leaving.push_back(button);
    }
    for (const LVStudioButtonRef& button : goingOn) button->setState(swap ? LVButtonLeaving : LVButtonOnAir);
    for (const LVStudioButtonRef& button : leaving) button->setState(swap ? LVButtonPreview : LVButtonIdle);
}

void LVMEBus::startTransition()
{
    const std::vector<LVStudioButtonRef> buttons = buttons_;
    for (const LVStudioButtonRef& button : buttons)
        if (button->state() == LVButtonPreview) button->setState(LVButtonTransitioning);
}
