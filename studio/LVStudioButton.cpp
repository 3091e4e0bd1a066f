#include "studio/LVStudioButton.h"

#include "core/util/LVLog.h"
#include "render/LVContext.h"
#include "setups/model/LVSetupManager.h"
#include "studio/LVMEBus.h"
#include "studio/LVStudio.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>
#include <QtEndian>

#include <algorithm>

LVStudioButton::LVStudioButton(LVSavedSetupRef setup, LVContext* context, LVStudio* studio)
    : setup_(std::move(setup)), context_(context), studio_(studio),
      uid_(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper())
{
    connect(setup_.get(), &LVSavedSetup::hasVideoSourceChanged, this, [this] { emit hasVideoSourceChanged(this); });
    connect(setup_.get(), &LVSavedSetup::midiKeyChanged, this, [this] { emit midiKeyChanged(this); });
    connect(setup_.get(), &LVSavedSetup::nameChanged, this, [this] { emit nameChanged(this); });
}

LVStudioButton::~LVStudioButton() = default;

QColor LVStudioButton::colorForState(uint32_t state)
{
    switch (state) {
    case LVButtonTransitioning:
    case LVButtonPreview: return QColor::fromRgbF(0.10f, 0.68f, 0.03f);
    case LVButtonLeaving: return QColor::fromRgbF(1.0f, 0.5f, 0.0f);
    case LVButtonOnAir: return QColor::fromRgbF(0.68f, 0.04f, 0.02f);
    default: return QColor::fromRgbF(0.0f, 0.0f, 0.0f);
    }
}

std::optional<int32_t> LVStudioButton::modeForState(uint32_t state)
{
    switch (state) {
    case LVButtonTransitioning: return LVModeTransition;
    case LVButtonLeaving: return std::nullopt;
    case LVButtonOnAir: return LVModeLive;
    case LVButtonPreview: return LVModePreview;
    default: return LVModeOff;
    }
}

bool LVStudioButton::isLeaf() const
{
    return effectsInstantiated_ ? effects_.empty() : setup_->numEffects() == 0;
}

const std::vector<LVEffectRef>& LVStudioButton::effects()
{
    if (!effectsInstantiated_) {
        effectsInstantiated_ = true;
        for (const LVEffectRef& effect : setup_->instantiateWithContext(context_)) addEffect(effect, -1);
        setEffectsMode();
    }
    return effects_;
}

LVEffectRef LVStudioButton::source()
{
    const auto& list = effects();
    return (!list.empty() && list.front()->isSource()) ? list.front() : nullptr;
}

void LVStudioButton::addEffect(const LVEffectRef& effect, int index)
{
    if (!effect) return;
    if (effect->isSource()) {
        if (!effects_.empty() && effects_.front()->isSource()) {
            effects_.front() = effect;
        } else {
            effects_.insert(effects_.begin(), effect);
        }
    } else if (index < 0 || size_t(index) >= effects_.size()) {
        effects_.push_back(effect);
    } else {
        effects_.insert(effects_.begin() + index, effect);
    }
    if (const auto mode = modeForState(state_)) effect->setMode(*mode);
    emit effectsChanged(this);
}

void LVStudioButton::removeEffect(const LVEffectRef& effect)
{
    const auto it = std::find(effects_.begin(), effects_.end(), effect);
    if (it == effects_.end()) return;
    effects_.erase(it);
    emit effectsChanged(this);
}

void LVStudioButton::setState(uint32_t state)
{
    if (state == state_) return;
    const uint32_t old = state_;
    const bool wanted = wantsPreview();
    state_ = state;
    setEffectsMode();
    emit stateChanged(this, old, state);
    if (wanted != wantsPreview()) emit wantsPreviewChanged(this);
}

void LVStudioButton::setEffectsMode()
{
    if (!effectsInstantiated_) return;
    const auto mode = modeForState(state_);
    if (!mode) return;
    for (const LVEffectRef& effect : effects_) effect->setMode(*mode);
}

void LVStudioButton::setRow(int32_t row, int32_t col)
{
    row_ = row;
    col_ = col;
    emit locationChanged(this);
}

void LVStudioButton::doNormalToggle()
{
    switch (state_) {
    case LVButtonIdle: setState(LVButtonPreview); break;
    case LVButtonPreview: setState(LVButtonIdle); break;
    case LVButtonOnAir: setState(LVButtonLeaving); break;
    case LVButtonLeaving: setState(LVButtonOnAir); break;
    default: break;
    }
}

void LVStudioButton::doOptionToggle()
{
    switch (state_) {
    case LVButtonIdle:
    case LVButtonPreview: setState(LVButtonOnAir); break;
    case LVButtonLeaving:
    case LVButtonOnAir: setState(LVButtonIdle); break;
    default: break;
    }
}

void LVStudioButton::setToSelected(bool selected, bool immediately)
{
    if (selected && immediately) {
        setState(LVButtonOnAir);
    } else if (selected) {
        if (state_ == LVButtonIdle) setState(LVButtonPreview);
    } else if (immediately) {
        setState(LVButtonIdle);
    } else if (state_ == LVButtonPreview) {
        setState(LVButtonIdle);
    } else if (state_ == LVButtonOnAir) {
        setState(LVButtonLeaving);
    }
}

bool LVStudioButton::compareState(const LVStudioButton& a, const LVStudioButton& b)
{
    if (a.state_ != b.state_) return a.state_ > b.state_;
    return a.name().compare(b.name(), Qt::CaseInsensitive) < 0;
}

bool LVStudioButton::persist()
{
    setup_->setEffects(effects());
    return setup_->persist();
}

bool LVStudioButton::setName(const QString& name, QString* error)
{
    if (!studio_) return false;
    LVSetupManager& manager = studio_->setupManager();
    // The manager moves every set's hint; the current set's then takes the button's place.
    if (!manager.renameSavedSetup(setup_, name, error)) return false;
    manager.currentSet()->setPositionHintForSetup(name, row_, col_);
    return true;
}

void LVStudioButton::setMIDIKey(uint32_t key)
{
    setup_->setMidiKey(key);
}

void LVStudioButton::snapshot()
{
    if (!context_) return;
    LVContext& context = *context_;
    context.reset(false);
    for (const LVEffectRef& effect : effects()) {
        effect->doit();
        context.flush();
    }
    const int width = context.width();
    const int height = context.height();
    QImage frame(width, height, QImage::Format_ARGB32_Premultiplied);
    context.fetchOpenGLPixels(frame.bits(), int(frame.bytesPerLine()));
    // The read-back gives A,R,G,B bytes; the image wants native 0xAARRGGBB words.
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<quint32*>(frame.scanLine(y));
        for (int x = 0; x < width; ++x) line[x] = qFromBigEndian(line[x]);
    }
    setup_->snapshotIcon(frame);
}

LVStudioButtonRef LVStudioButton::doDuplicate()
{
    if (!studio_) return nullptr;
    LVSetupManager& manager = studio_->setupManager();
    QString name = QStringLiteral("Copy of %1").arg(setup_->name());
    for (int counter = 1; manager.hasSetupWithName(name); ++counter)
        name = QStringLiteral("Copy of %1 %2").arg(setup_->name()).arg(counter);
    QString error;
    const LVSavedSetupRef copy = manager.newSavedSetupWithName(name, {}, &error);
    if (!copy) {
        LVLog("doDuplicate: %s", qPrintable(error));
        return nullptr;
    }
    copy->duplicateFrom(*setup_);
    for (const LVStudioButtonRef& button : studio_->studioButtons())
        if (button->setup() == copy) return button;
    return nullptr;
}

void LVStudioButton::doDelete()
{
    if (!studio_) return;
    // Held here: the studio drops its own reference while the catalogue lets go.
    const LVSavedSetupRef setup = setup_;
    setup->unlink();
    studio_->setupManager().removeSavedSetup(setup.get());
}

QByteArray LVStudioButton::dragData() const
{
    return QJsonDocument(QJsonObject{{QStringLiteral("UID"), uid_}}).toJson(QJsonDocument::Compact);
}

QString LVStudioButton::uidFromDragData(const QByteArray& data)
{
    return QJsonDocument::fromJson(data).object().value(QStringLiteral("UID")).toString();
}
