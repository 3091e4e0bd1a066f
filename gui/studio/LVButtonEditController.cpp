#include "gui/studio/LVButtonEditController.h"

#include "control/midi/LVMIDI.h"
#include "core/Lumaveil.h"
#include "core/util/LVLog.h"
#include "gui/main/LVSettingsPanel.h"
#include "gui/studio/LVMIDIKeyRecorder.h"
#include "setups/model/LVSetupManager.h"
#include "studio/LVStudio.h"

#include <QCloseEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QSplitter>
#include <QVBoxLayout>

LVButtonEditController::LVButtonEditController(LVStudioButtonRef button, Lumaveil& app, QWidget* parent)
    : QWidget(parent, Qt::Window), button_(std::move(button)), app_(app)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setObjectName(QStringLiteral("buttonEditor"));

    auto* top = new QFormLayout;
    nameField_ = new QLineEdit(button_->name(), this);
    nameField_->setObjectName(QStringLiteral("buttonName"));
    top->addRow(tr("Name:"), nameField_);
    recorder_ = new LVMIDIKeyRecorder(LVMIDI::sharedLVMIDI(), this);
    recorder_->setRecordedData(button_->midiKey());
    recorder_->setAction([this](LVMIDIKeyRecorder* recorder) {
        // After the hub's dispatch: bound at once, the recording note would also toggle the button.
        const uint32_t key = recorder->recordedData();
        QMetaObject::invokeMethod(this, [this, key] { button_->setMIDIKey(key); }, Qt::QueuedConnection);
    });
    top->addRow(tr("MIDI Key:"), recorder_);
    problem_ = new QLabel(this);
    problem_->setObjectName(QStringLiteral("nameProblem"));
    problem_->setWordWrap(true);
    problem_->hide();

    effectsList_ = new QListWidget(this);
    effectsList_->setObjectName(QStringLiteral("buttonEffects"));
    auto* remove = new QPushButton(tr("Remove"), this);
    remove->setObjectName(QStringLiteral("removeEffect"));
    auto* effectsColumn = new QWidget(this);
    auto* effectsLayout = new QVBoxLayout(effectsColumn);
    effectsLayout->setContentsMargins(0, 0, 0, 0);
    effectsLayout->addWidget(new QLabel(tr("Effects"), effectsColumn));
    effectsLayout->addWidget(effectsList_, 1);
    effectsLayout->addWidget(remove);

    settings_ = new LVSettingsPanel;
    settings_->setController(&app_);
    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setWidget(settings_);

    palette_ = new QListWidget(this);
    palette_->setObjectName(QStringLiteral("palette"));
    auto* add = new QPushButton(tr("Add"), this);
    add->setObjectName(QStringLiteral("addEffect"));
    auto* pip = new QPushButton(tr("PIP"), this);
    pip->setObjectName(QStringLiteral("addPIP"));
    auto* paletteColumn = new QWidget(this);
    auto* paletteLayout = new QVBoxLayout(paletteColumn);
    paletteLayout->setContentsMargins(0, 0, 0, 0);
    paletteLayout->addWidget(new QLabel(tr("Sources and Effects"), paletteColumn));
    paletteLayout->addWidget(palette_, 1);
    auto* paletteButtons = new QHBoxLayout;
    paletteButtons->addWidget(add);
    paletteButtons->addWidget(pip);
    paletteLayout->addLayout(paletteButtons);

    auto* splitter = new QSplitter(this);
    splitter->addWidget(effectsColumn);
    splitter->addWidget(scroll);
    splitter->addWidget(paletteColumn);
    splitter->setStretchFactor(1, 1);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(problem_);
    layout->addWidget(splitter, 1);
    resize(820, 480);

    connect(effectsList_, &QListWidget::currentRowChanged, this, &LVButtonEditController::selectionChanged);
    connect(remove, &QPushButton::clicked, this, &LVButtonEditController::doRemoveEffect);
    connect(add, &QPushButton::clicked, this, &LVButtonEditController::doAdd);
    connect(pip, &QPushButton::clicked, this, &LVButtonEditController::doPIP);
    connect(nameField_, &QLineEdit::editingFinished, this, &LVButtonEditController::rename);
    connect(button_.get(), &LVStudioButton::effectsChanged, this, &LVButtonEditController::refreshEffects);
    connect(button_.get(), &LVStudioButton::nameChanged, this, [this] {
        setWindowTitle(button_->name());
        nameField_->setText(button_->name());
    });
    connect(button_.get(), &LVStudioButton::midiKeyChanged, this, [this] {
        if (!recorder_->isRecording() && recorder_->recordedData() != button_->midiKey())
            recorder_->setRecordedData(button_->midiKey());
    });
    setWindowTitle(button_->name());
    refreshEffects();
    doShowPalette();
}

LVButtonEditController::~LVButtonEditController()
{
    LVLog("Dealloc");
}

void LVButtonEditController::refreshEffects()
{
    const int keep = effectsList_->currentRow();
    const QSignalBlocker blocker(effectsList_);
    effectsList_->clear();
    for (const LVEffectRef& effect : button_->effects()) effectsList_->addItem(effect->displayName());
    effectsList_->setCurrentRow(std::min(keep, effectsList_->count() - 1));
    selectionChanged();
}

void LVButtonEditController::selectionChanged()
{
    const int row = effectsList_->currentRow();
    const auto& effects = button_->effects();
    settings_->setEffect(row >= 0 && size_t(row) < effects.size() ? effects[size_t(row)] : nullptr);
}

void LVButtonEditController::doShowPalette()
{
    palette_->clear();
    paletteFactories_.clear();
    for (const auto* list : {&app_.sources(), &app_.effects()}) {
        for (const auto& factory : *list) {
            paletteFactories_.push_back(factory.get());
            palette_->addItem(factory->name());
        }
    }
}

bool LVButtonEditController::selectPaletteEntry(const QString& name)
{
    for (int i = 0; i < palette_->count(); ++i) {
        if (palette_->item(i)->text() == name) {
            palette_->setCurrentRow(i);
            return true;
        }
    }
    return false;
}

LVEffectRef LVButtonEditController::instantiateSelected() const
{
    const int row = palette_->currentRow();
    if (row < 0 || size_t(row) >= paletteFactories_.size()) return nullptr;
    return paletteFactories_[size_t(row)]->instantiateWithContext(app_.context());
}

bool LVButtonEditController::doAdd()
{
    const LVEffectRef effect = instantiateSelected();
    if (!effect) return false;
    button_->addEffect(effect, -1);
    return true;
}

bool LVButtonEditController::doPIP()
{
    const LVEffectRef inner = instantiateSelected();
    if (!inner) return false;
    const LVEffectRef pip = app_.instantiateNamedEffect(QStringLiteral("PIP"));
    auto* holder = dynamic_cast<LVOtherSourceHolder*>(pip.get());
    if (!holder) {
        LVLog("doPIP: no picture-in-picture kind is installed");
        return false;
    }
    holder->setOtherEffect(inner);
    button_->addEffect(pip, -1);
    return true;
}

bool LVButtonEditController::doRemoveEffect()
{
    const int row = effectsList_->currentRow();
    const auto& effects = button_->effects();
    if (row < 0 || size_t(row) >= effects.size()) return false;
    const LVEffectRef effect = effects[size_t(row)];
    button_->removeEffect(effect);
    return true;
}

void LVButtonEditController::rename()
{
    const QString name = nameField_->text().trimmed();
    if (name == button_->name()) return;
    QString problem = LVSavedSetup::nameProblem(name);
    LVStudio* studio = LVStudio::of(app_);
    if (problem.isEmpty() && studio && studio->setupManager().hasSetupWithName(name))
        problem = tr("A setup named \"%1\" already exists.").arg(name);
    if (problem.isEmpty()) button_->setName(name, &problem);
    problem_->setText(problem);
    problem_->setVisible(!problem.isEmpty());
    if (!problem.isEmpty()) nameField_->setText(button_->name());
}

void LVButtonEditController::closeEvent(QCloseEvent* event)
{
    // A button deleted while its editor was open must not come back as a file.
    LVStudio* studio = LVStudio::of(app_);
    if (!studio || studio->setupManager().setupWithName(button_->name()) == button_->setup()) button_->persist();
    QWidget::closeEvent(event);
}
