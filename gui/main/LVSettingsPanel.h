#pragma once
// The settings of one effect, generated from its parameter list. Edits reach the effect
// through the deferred-call queue, so a slider dragged many times between two frames sets
// the value once, before the next frame.
#include "core/LVEffect.h"

#include <QHash>
#include <QVariant>
#include <QWidget>

#include <memory>

class QFormLayout;
class QLabel;

class LVSettingsPanel : public QWidget {
    Q_OBJECT
public:
    explicit LVSettingsPanel(QWidget* parent = nullptr);
    // Shows the settings of effect; none clears the panel.
    void setEffect(const LVEffectRef& effect);
    LVEffectRef effect() const { return effect_.lock(); }
    // The editor made for a parameter, by its user-facing name (tests, accessibility).
    QWidget* editorFor(const QString& name) const { return editors_.value(name); }

private:
    QWidget* makeEditor(const LVParameter& parameter, const QVariant& value);
    void changeValue(const QString& name, const QVariant& value);
    void clear();

    std::weak_ptr<LVEffect> effect_;
    QFormLayout* form_ = nullptr;
    QLabel* title_ = nullptr;
    QHash<QString, QWidget*> editors_;
    std::shared_ptr<QHash<QString, QVariant>> pending_;
};
