#pragma once
// A studio button: the studio's handle on one saved setup of the current set. It carries
// the bus state, holds the setup's effects (instantiated once and shared by Preview and
// Program) and offers the operator's actions on it.
#include "core/LVEffect.h"
#include "setups/model/LVSavedSetup.h"

#include <QColor>
#include <QImage>
#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

class LVMEBus;
class LVStudio;
class LVStudioButton;

using LVStudioButtonRef = std::shared_ptr<LVStudioButton>;

// Bus states; the values are fixed (archived nowhere, but shown and scripted as numbers).
enum LVButtonState : uint32_t {
    LVButtonIdle = 0,          // on neither bus
    LVButtonTransitioning = 1, // was in Preview, a transition takes it to Program
    LVButtonLeaving = 2,       // on air, leaves Program at the next cut
    LVButtonOnAir = 3,         // on air (Program)
    LVButtonPreview = 4,       // selected into Preview
};

// The drag payload type for a button; its data is {"UID": uid}.
inline constexpr const char* LVStudioButtonDragType = "LVStudioButton";

class LVStudioButton : public QObject {
    Q_OBJECT
public:
    // studio may be null (tests of the bus alone); it is needed for doDuplicate, doDelete,
    // setName and snapshot, which reach the setup manager and the render context.
    LVStudioButton(LVSavedSetupRef setup, LVContext* context, LVStudio* studio = nullptr);
    ~LVStudioButton() override;

    // Colour and wantsPreview of a state; an unknown state reads as idle.
    static QColor colorForState(uint32_t state);
    static bool stateWantsPreview(uint32_t state) { return state < 32 && ((0x16u >> state) & 1u); }
    // The effect mode a state gives, or nothing for state 2 (effects keep their mode).
    static std::optional<int32_t> modeForState(uint32_t state);

    const QString& uid() const { return uid_; }
    const LVSavedSetupRef& setup() const { return setup_; }
    QString name() const { return setup_->name(); }
    uint32_t midiKey() const { return setup_->midiKey(); }
    bool hasVideoSource() const { return setup_->hasVideoSource(); }
    uint32_t state() const { return state_; }
    int32_t row() const { return row_; }
    int32_t col() const { return col_; }
    QColor color() const { return colorForState(state_); }
    bool wantsPreview() const { return stateWantsPreview(state_); }
    // True when the button has no effects (without instantiating them).
    bool isLeaf() const;

    // The effects, instantiated from the setup on first use.
    const std::vector<LVEffectRef>& effects();
    bool effectsInstantiated() const { return effectsInstantiated_; }
    // The first effect when it is a source.
    LVEffectRef source();
    // A source replaces the first element when that is a source, else goes first; any
    // other effect goes at index, -1 meaning the end.
    void addEffect(const LVEffectRef& effect, int index);
    void removeEffect(const LVEffectRef& effect);

    void setState(uint32_t state);
    // Gives every instantiated effect the mode of the current state.
    void setEffectsMode();
    void setRow(int32_t row, int32_t col);
    LVMEBus* bus() const { return bus_; }
    void setBus(LVMEBus* bus) { bus_ = bus; }

    // Operator actions.
    // A click: 0 -> 4, 4 -> 0, 3 -> 2, 2 -> 3; a transitioning button ignores it. MIDI
    // keys fire this too.
    void doNormalToggle();
    // An Option-click, straight on or off air: 0, 4 -> 3; 2, 3 -> 0.
    void doOptionToggle();
    void setToSelected(bool selected, bool immediately);
    // Scripting's names for the four selections.
    void selectForAir() { setToSelected(true, false); }
    void selectForOffAir() { setToSelected(false, false); }
    void punchToAir() { setToSelected(true, true); }
    void punchToOffAir() { setToSelected(false, true); }
    // Sort order for lists of buttons: higher state first, then name, case-insensitive.
    static bool compareState(const LVStudioButton& a, const LVStudioButton& b);

    // The setup takes the button's effects and writes its file.
    bool persist();
    // Renames the setup and moves the current set's position hint with it. False, with
    // the reason in error, when the file cannot be renamed.
    bool setName(const QString& name, QString* error = nullptr);
    // Stores the key in the setup at once; 0 means no key.
    void setMIDIKey(uint32_t key);
    // Renders the button's effects and makes the 64x64 icon from the frame.
    void snapshot();
    // A copy named "Copy of <name>" (or with a counter) answering the same MIDI key, and
    // the studio button that now stands for it.
    LVStudioButtonRef doDuplicate();
    // Deletes the setup's file and takes it out of the catalogue; the studio drops the button.
    void doDelete();

    // The drag payload and its reading; an empty uid for anything else.
    QByteArray dragData() const;
    static QString uidFromDragData(const QByteArray& data);

signals:
    void stateChanged(LVStudioButton* button, uint32_t oldState, uint32_t newState);
    void wantsPreviewChanged(LVStudioButton* button);
    void locationChanged(LVStudioButton* button);
    void effectsChanged(LVStudioButton* button);
    void hasVideoSourceChanged(LVStudioButton* button);
    void midiKeyChanged(LVStudioButton* button);
    void nameChanged(LVStudioButton* button);

private:
    LVSavedSetupRef setup_;
    LVContext* context_;
    LVStudio* studio_;
    LVMEBus* bus_ = nullptr;
    QString uid_;
    std::vector<LVEffectRef> effects_;
    bool effectsInstantiated_ = false;
    uint32_t state_ = LVButtonIdle;
    int32_t row_ = 0;
    int32_t col_ = 0;
};
