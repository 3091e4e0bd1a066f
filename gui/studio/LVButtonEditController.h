#pragma once
// The editor of one studio button: its effects with each one's settings (the same editors
// as the main window), a palette of every source and effect to add, a picture-in-picture
// made around the chosen source, and the button's MIDI key. Edits are live at once, since
// the button renders these very effects; the setup's file is written when the editor closes.
#include "core/LVEffect.h"
#include "studio/LVStudioButton.h"

#include <QWidget>

#include <vector>

class LVEffectFactory;
class LVMIDIKeyRecorder;
class LVSettingsPanel;
class Lumaveil;
class QLabel;
class QLineEdit;
class QListWidget;

class LVButtonEditController : public QWidget {
    Q_OBJECT
public:
    LVButtonEditController(LVStudioButtonRef button, Lumaveil& app, QWidget* parent = nullptr);
    ~LVButtonEditController() override;

    const LVStudioButtonRef& button() const { return button_; }
    // Every source, then every effect.
    void doShowPalette();
    // The palette's selected kind goes into the button (a source replaces the button's source).
    bool doAdd();
    // The palette's selected kind wrapped in a picture-in-picture, added to the button.
    bool doPIP();
    // The selected effect leaves the button.
    bool doRemoveEffect();

    QListWidget* effectsList() const { return effectsList_; }
    QListWidget* palette() const { return palette_; }
    LVSettingsPanel* settingsPanel() const { return settings_; }
    LVMIDIKeyRecorder* keyRecorder() const { return recorder_; }
    QLineEdit* nameField() const { return nameField_; }
    // Selects a palette entry by kind name; false when there is none.
    bool selectPaletteEntry(const QString& name);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void refreshEffects();
    void selectionChanged();
    void rename();
    LVEffectRef instantiateSelected() const;

    LVStudioButtonRef button_;
    Lumaveil& app_;
    QListWidget* effectsList_ = nullptr;
    QListWidget* palette_ = nullptr;
    std::vector<const LVEffectFactory*> paletteFactories_;
    LVSettingsPanel* settings_ = nullptr;
    LVMIDIKeyRecorder* recorder_ = nullptr;
    QLineEdit* nameField_ = nullptr;
    QLabel* problem_ = nullptr;
};
