#include "gui/main/LVSettingsPanel.h"

#include "core/Lumaveil.h"
#include "core/util/KDDelayedDispatcher.h"
#include "gui/widgets/LVFontPicker.h"
#include "gui/widgets/LVXYPad.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QPixmap>
#include <QLabel>
#include <QLineEdit>
#include <QPointF>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int kSliderSteps = 1000;

} // namespace

QString LVColorText(const QColor& color)
{
    const QString rgb = color.name(QColor::HexRgb).toUpper();
    if (color.alpha() == 255) return rgb;
    return QStringLiteral("%1, %2% opaque").arg(rgb).arg(qRound(color.alphaF() * 100));
}

namespace {

QHash<QString, LVSettingsPanel::InspectorFactory>& inspectorFactories()
{
    static QHash<QString, LVSettingsPanel::InspectorFactory> factories;
    return factories;
}

} // namespace

void LVSettingsPanel::registerInspector(const QString& className, InspectorFactory factory)
{
    inspectorFactories().insert(className, std::move(factory));
}

LVSettingsPanel::LVSettingsPanel(QWidget* parent)
    : QWidget(parent), pending_(std::make_shared<QHash<QString, QVariant>>())
{
    layout_ = new QVBoxLayout(this);
    title_ = new QLabel(tr("No effect selected"), this);
    title_->setObjectName(QStringLiteral("settingsTitle"));
    layout_->addWidget(title_);
    note_ = new QLabel(this);
    note_->setObjectName(QStringLiteral("settingsNote"));
    note_->setWordWrap(true);
    note_->hide();
    layout_->addWidget(note_);
    layout_->addStretch(1);
}

void LVSettingsPanel::setController(Lumaveil* controller)
{
    if (controller_) disconnect(controller_, nullptr, this, nullptr);
    controller_ = controller;
    if (!controller_) return;
    // A swap or a new inset source changes a picture-in-picture's pages.
    connect(controller_, &Lumaveil::chainChanged, this, [this] {
        const LVEffectRef shown = effect_.lock();
        if (dynamic_cast<const LVOtherSourceHolder*>(shown.get())) setEffect(shown);
    });
}

void LVSettingsPanel::setEffect(const LVEffectRef& effect)
{
    editors_.clear();
    showValue_.clear();
    if (body_) {
        // Deleted later: a button of the old page may be the one whose click got us here.
        body_->hide();
        body_->setParent(nullptr);
        body_->deleteLater();
        body_ = nullptr;
    }
    tabs_ = nullptr;
    otherPanel_ = nullptr;
    effect_ = effect;
    const QString note = effect ? effect->statusNote() : QString();
    note_->setText(note);
    note_->setVisible(!note.isEmpty());
    if (!effect) {
        title_->setText(tr("No effect selected"));
        return;
    }
    const auto* holder = dynamic_cast<const LVOtherSourceHolder*>(effect.get());
    const auto inspector = inspectorFactories().constFind(effect->descriptor().className);
    const bool hasInspector = inspector != inspectorFactories().constEnd();
    title_->setText(!holder && !hasInspector && effect->effectProperties().empty()
                        ? tr("%1 has no settings").arg(effect->displayName())
                        : effect->displayName());
    body_ = holder ? makeOtherSourceTabs(effect, holder->getOtherEffect()) : makeForm(*effect);
    if (!holder && hasInspector)
        static_cast<QFormLayout*>(body_->layout())->addRow((*inspector)(effect, body_));
    layout_->insertWidget(2, body_);
}

QWidget* LVSettingsPanel::makeForm(const LVEffect& effect)
{
    auto* page = new QWidget(this);
    auto* form = new QFormLayout(page);
    const LVParameterList parameters = effect.effectProperties();
    for (const LVParameter& parameter : parameters) {
        if (parameter.editor == LVParameterEditor::PairedAxis) continue;
        QWidget* editor = nullptr;
        if (parameter.editor == LVParameterEditor::XYPad) {
            const auto y = std::find_if(parameters.begin(), parameters.end(),
                                        [&](const LVParameter& p) { return p.key == parameter.pairedKey; });
            if (y != parameters.end()) {
                editor = makeXYPad(parameter, *y, effect);
                editors_.insert(y->name, editor);
            }
        }
        if (!editor) editor = makeEditor(parameter, effect.effectPropertyForName(parameter.name));
        editor->setObjectName(parameter.key);
        editors_.insert(parameter.name, editor);
        if (parameter.editor == LVParameterEditor::FixedText)
            form->addRow(editor);
        else
            form->addRow(parameter.name, editor);
    }
    // What the effect does and who made it, after its editors.
    for (const QString& line : effect.inspectorNotes()) {
        auto* note = new QLabel(line, page);
        note->setObjectName(QStringLiteral("inspectorNote"));
        note->setTextFormat(Qt::PlainText);
        note->setWordWrap(true);
        form->addRow(note);
    }
    return page;
}

QWidget* LVSettingsPanel::makeOtherSourceTabs(const LVEffectRef& effect, const LVEffectRef& other)
{
    QWidget* own = makeForm(*effect);
    auto* form = static_cast<QFormLayout*>(own->layout());
    auto* chooser = new QComboBox(own);
    chooser->setObjectName(QStringLiteral("otherSourceChooser"));
    chooser->addItem(tr("None"));
    if (controller_) {
        for (const auto& factory : controller_->sources()) chooser->addItem(factory->name());
    }
    chooser->setCurrentIndex(other ? std::max(0, chooser->findText(other->name())) : 0);
    form->insertRow(0, tr("Inset source"), chooser);
    auto* swap = new QPushButton(tr("Swap with video source"), own);
    swap->setObjectName(QStringLiteral("swapWithVideoSource"));
    swap->setEnabled(controller_ != nullptr);
    form->addRow(swap);

    std::weak_ptr<LVEffect> weak = effect;
    connect(chooser, &QComboBox::activated, this, [this, weak, chooser](int index) {
        const LVEffectRef target = weak.lock();
        if (!target || !controller_) return;
        controller_->setOtherSourceNamed(target, index == 0 ? QString() : chooser->itemText(index));
    });
    connect(swap, &QPushButton::clicked, this, [this, weak] {
        const LVEffectRef target = weak.lock();
        if (!target || !controller_) return;
        controller_->doSwap(target);
    });

    tabs_ = new QTabWidget(this);
    tabs_->setObjectName(QStringLiteral("pipTabs"));
    tabs_->setDocumentMode(true);
    QFont small = tabs_->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    tabs_->setFont(small);
    tabs_->addTab(own, tr("PIP Settings"));
    if (other) {
        otherPanel_ = new LVSettingsPanel(tabs_);
        otherPanel_->setObjectName(QStringLiteral("otherSourceSettings"));
        otherPanel_->setController(controller_);
        otherPanel_->setEffect(other);
        tabs_->addTab(otherPanel_, tr("%1 Settings").arg(other->name()));
    }
    return tabs_;
}

void LVSettingsPanel::changeValue(const QString& name, const QVariant& value)
{
    const LVEffectRef effect = effect_.lock();
    if (!effect) return;
    pending_->insert(name, value);
    std::weak_ptr<LVEffect> weak = effect;
    std::shared_ptr<QHash<QString, QVariant>> pending = pending_;
    const std::string selector = "setEffectProperty:" + name.toStdString();
    // The queue keeps the first request; the newest value is read when it runs.
    KDDelayedDispatcher::dispatch(effect.get(), selector, [weak, pending, name] {
        const LVEffectRef target = weak.lock();
        const auto it = pending->find(name);
        if (!target || it == pending->end()) return;
        target->setEffectProperty(it.value(), name);
        pending->erase(it);
    });
}

void LVSettingsPanel::showPreset(const LVParameter& choice, int value)
{
    const QVariantMap preset = choice.presets.value(value);
    for (auto it = preset.constBegin(); it != preset.constEnd(); ++it) {
        const auto show = showValue_.constFind(it.key());
        if (show != showValue_.constEnd()) show.value()(it.value());
    }
}

QWidget* LVSettingsPanel::makeXYPad(const LVParameter& x, const LVParameter& y, const LVEffect& effect)
{
    const auto bound = [](const QVariant& v, double fallback) { return v.isValid() ? v.toDouble() : fallback; };
    auto* pad = new LVXYPad(QPointF(bound(x.minimum, -1), bound(y.minimum, -1)),
                            QPointF(bound(x.maximum, 1), bound(y.maximum, 1)), this);
    pad->setValue(QPointF(effect.effectPropertyForName(x.name).toDouble(), effect.effectPropertyForName(y.name).toDouble()));
    connect(pad, &LVXYPad::valueChanged, this, [this, xName = x.name, yName = y.name](QPointF point) {
        changeValue(xName, point.x());
        changeValue(yName, point.y());
    });
    return pad;
}

QWidget* LVSettingsPanel::makeEditor(const LVParameter& parameter, const QVariant& value)
{
    const QString name = parameter.name;
    if (parameter.editor == LVParameterEditor::Font) {
        auto* picker = new LVFontPicker(this);
        picker->setFamily(value.toString());
        connect(picker, &LVFontPicker::familyChosen, this, [this, name](const QString& family) { changeValue(name, family); });
        return picker;
    }
    if (parameter.editor == LVParameterEditor::FixedText) {
        auto* line = new QLabel(value.toString(), this);
        line->setTextFormat(Qt::PlainText);
        line->setWordWrap(true);
        return line;
    }
    switch (parameter.type) {
    case LVParameterType::Bool: {
        auto* box = new QCheckBox(this);
        box->setChecked(value.toBool());
        connect(box, &QCheckBox::toggled, this, [this, name](bool on) { changeValue(name, on); });
        showValue_.insert(parameter.key, [box](const QVariant& v) {
            const QSignalBlocker block(box);
            box->setChecked(v.toBool());
        });
        return box;
    }
    case LVParameterType::Integer: {
        auto* spin = new QSpinBox(this);
        spin->setRange(parameter.minimum.isValid() ? parameter.minimum.toInt() : -1000000,
                       parameter.maximum.isValid() ? parameter.maximum.toInt() : 1000000);
        spin->setValue(value.toInt());
        connect(spin, &QSpinBox::valueChanged, this, [this, name](int v) { changeValue(name, v); });
        showValue_.insert(parameter.key, [spin](const QVariant& v) {
            const QSignalBlocker block(spin);
            spin->setValue(v.toInt());
        });
        return spin;
    }
    case LVParameterType::Float: {
        const double minimum = parameter.minimum.isValid() ? parameter.minimum.toDouble() : 0.0;
        const double maximum = parameter.maximum.isValid() ? parameter.maximum.toDouble() : 1.0;
        auto* box = new QWidget(this);
        auto* row = new QHBoxLayout(box);
        row->setContentsMargins(0, 0, 0, 0);
        auto* slider = new QSlider(Qt::Horizontal, box);
        slider->setRange(0, kSliderSteps);
        auto* spin = new QDoubleSpinBox(box);
        spin->setRange(minimum, maximum);
        spin->setDecimals(3);
        spin->setSingleStep((maximum - minimum) / 100.0);
        spin->setValue(value.toDouble());
        const auto toSlider = [minimum, maximum](double v) {
            return maximum > minimum ? int((v - minimum) / (maximum - minimum) * kSliderSteps + 0.5) : 0;
        };
        slider->setValue(toSlider(value.toDouble()));
        connect(slider, &QSlider::valueChanged, spin, [spin, minimum, maximum](int step) {
            spin->setValue(minimum + (maximum - minimum) * step / kSliderSteps);
        });
        connect(spin, &QDoubleSpinBox::valueChanged, this, [this, name, slider, toSlider](double v) {
            const QSignalBlocker block(slider);
            slider->setValue(toSlider(v));
            changeValue(name, v);
        });
        showValue_.insert(parameter.key, [spin, slider, toSlider](const QVariant& v) {
            const QSignalBlocker blockSpin(spin), blockSlider(slider);
            spin->setValue(v.toDouble());
            slider->setValue(toSlider(v.toDouble()));
        });
        row->addWidget(slider, 1);
        row->addWidget(spin);
        return box;
    }
    case LVParameterType::Point2D: {
        const QPointF minimum = parameter.minimum.isValid() ? parameter.minimum.toPointF() : QPointF(-1e6, -1e6);
        const QPointF maximum = parameter.maximum.isValid() ? parameter.maximum.toPointF() : QPointF(1e6, 1e6);
        const QPointF point = value.toPointF();
        auto* box = new QWidget(this);
        auto* row = new QHBoxLayout(box);
        row->setContentsMargins(0, 0, 0, 0);
        auto* x = new QDoubleSpinBox(box);
        auto* y = new QDoubleSpinBox(box);
        x->setRange(minimum.x(), maximum.x());
        y->setRange(minimum.y(), maximum.y());
        x->setDecimals(3);
        y->setDecimals(3);
        x->setValue(point.x());
        y->setValue(point.y());
        const auto send = [this, name, x, y] { changeValue(name, QPointF(x->value(), y->value())); };
        connect(x, &QDoubleSpinBox::valueChanged, this, send);
        connect(y, &QDoubleSpinBox::valueChanged, this, send);
        showValue_.insert(parameter.key, [x, y](const QVariant& v) {
            const QSignalBlocker blockX(x), blockY(y);
            x->setValue(v.toPointF().x());
            y->setValue(v.toPointF().y());
        });
        row->addWidget(x);
        row->addWidget(y);
        return box;
    }
    case LVParameterType::Color: {
        auto* button = new QPushButton(this);
        auto current = std::make_shared<QColor>(value.value<QColor>());
        const auto paint = [button, current](const QColor& color) {
            *current = color;
            button->setText(LVColorText(color));
            QPixmap swatch(16, 16);
            swatch.fill(color);
            button->setIcon(QIcon(swatch));
        };
        paint(*current);
        connect(button, &QPushButton::clicked, this, [this, name, current, paint] {
            const QColor chosen = QColorDialog::getColor(*current, this, name, QColorDialog::ShowAlphaChannel);
            if (!chosen.isValid()) return;
            paint(chosen);
            changeValue(name, chosen);
        });
        showValue_.insert(parameter.key, [paint](const QVariant& v) { paint(v.value<QColor>()); });
        return button;
    }
    case LVParameterType::Text: {
        auto* line = new QLineEdit(value.toString(), this);
        connect(line, &QLineEdit::textEdited, this, [this, name](const QString& text) { changeValue(name, text); });
        showValue_.insert(parameter.key, [line](const QVariant& v) { line->setText(v.toString()); });
        return line;
    }
    case LVParameterType::Image: {
        auto* box = new QWidget(this);
        auto* row = new QHBoxLayout(box);
        row->setContentsMargins(0, 0, 0, 0);
        auto* line = new QLineEdit(value.toString(), box);
        auto* browse = new QPushButton(tr("Choose…"), box);
        connect(line, &QLineEdit::editingFinished, this, [this, name, line] { changeValue(name, line->text()); });
        connect(browse, &QPushButton::clicked, this, [this, name, line] {
            const QString path = QFileDialog::getOpenFileName(this, name, line->text(),
                                                              tr("Images (*.png *.jpg *.jpeg *.gif *.bmp *.webp)"));
            if (path.isEmpty()) return;
            line->setText(path);
            changeValue(name, path);
        });
        row->addWidget(line, 1);
        row->addWidget(browse);
        return box;
    }
    case LVParameterType::Choice: {
        auto* combo = new QComboBox(this);
        for (int i = 0; i < parameter.choiceLabels.size() && i < parameter.choiceValues.size(); ++i) {
            combo->addItem(parameter.choiceLabels[i], parameter.choiceValues[i]);
        }
        combo->setCurrentIndex(std::max(0, combo->findData(value.toInt())));
        connect(combo, &QComboBox::currentIndexChanged, this, [this, parameter, combo](int) {
            changeValue(parameter.name, combo->currentData());
            showPreset(parameter, combo->currentData().toInt());
        });
        showValue_.insert(parameter.key, [combo](const QVariant& v) {
            const QSignalBlocker block(combo);
            combo->setCurrentIndex(std::max(0, combo->findData(v.toInt())));
        });
        return combo;
    }
    case LVParameterType::Event: {
        auto* button = new QPushButton(name, this);
        connect(button, &QPushButton::clicked, this, [this, name] { changeValue(name, true); });
        return button;
    }
    }
    return new QLabel(this);
}
