#pragma once
// The settings of one effect, generated from its parameter list. Edits reach the effect
// through the deferred-call queue, so a slider dragged many times between two frames sets
// the value once, before the next frame.
#include "core/LVEffect.h"

#include <QHash>
#include <QVariant>
#include <QWidget>

#include <functional>
#include <memory>

class Lumaveil;
class QColor;
class QFormLayout;
class QLabel;
class QTabWidget;
class QVBoxLayout;

// "#RRGGBB", with the opacity after it when the colour is not opaque.
QString LVColorText(const QColor& color);

class LVSettingsPanel : public QWidget {
    Q_OBJECT
public:
    explicit LVSettingsPanel(QWidget* parent = nullptr);
    // Lets a picture-in-picture's page swap and choose its second source.
    void setController(Lumaveil* controller);
    // Shows the settings of effect; none clears the panel. An effect holding a second source
    // gets two tabs: "PIP Settings" (its own, the swap button and the source chooser) and
    // "<source> Settings".
    void setEffect(const LVEffectRef& effect);
    LVEffectRef effect() const { return effect_.lock(); }
    // Kinds with lists of their own (playlists, slides) add a widget under their editors.
    using InspectorFactory = std::function<QWidget*(const LVEffectRef& effect, QWidget* parent)>;
    static void registerInspector(const QString& className, InspectorFactory factory);
    // The editor made for a parameter, by its user-facing name (tests, accessibility).
    QWidget* editorFor(const QString& name) const { return editors_.value(name); }
    // The picture-in-picture's tabs, none for other effects.
    QTabWidget* tabs() const { return tabs_; }
    // The second source's own panel inside the tabs.
    LVSettingsPanel* otherSourcePanel() const { return otherPanel_; }

private:
    QWidget* makeEditor(const LVParameter& parameter, const QVariant& value);
    // One pad for a position pair: x drives the horizontal axis, y the vertical one.
    QWidget* makeXYPad(const LVParameter& x, const LVParameter& y, const LVEffect& effect);
    QWidget* makeForm(const LVEffect& effect);
    QWidget* makeOtherSourceTabs(const LVEffectRef& effect, const LVEffectRef& other);
    void changeValue(const QString& name, const QVariant& value);
    // A choice's preset reaches the effect with the choice; its editors show it at once.
    void showPreset(const LVParameter& choice, int value);

    std::weak_ptr<LVEffect> effect_;
    Lumaveil* controller_ = nullptr;
    QVBoxLayout* layout_ = nullptr;
    QWidget* body_ = nullptr;
    QTabWidget* tabs_ = nullptr;
    LVSettingsPanel* otherPanel_ = nullptr;
    QLabel* title_ = nullptr;
    QLabel* note_ = nullptr;
    QHash<QString, QWidget*> editors_;
    // By parameter key: puts a value into its editor without sending it back.
    QHash<QString, std::function<void(const QVariant&)>> showValue_;
    std::shared_ptr<QHash<QString, QVariant>> pending_;
};
