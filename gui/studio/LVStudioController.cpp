#include "gui/studio/LVStudioController.h"

#include "core/Lumaveil.h"
#include "gui/main/LVSettingsPanel.h"
#include "gui/studio/LVIconView.h"
#include "gui/studio/LVMonitorView.h"
#include "gui/studio/LVQuickSourceView.h"
#include "studio/LVMEBus.h"
#include "studio/LVStudio.h"
#include "studio/LVStudioButton.h"

#include <QApplication>
#include <QCheckBox>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QDoubleSpinBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QLabel>
#include <QListWidget>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <QSplitter>
#include <QVBoxLayout>

namespace {

QScrollArea* scrolled(QWidget* content, QWidget* parent)
{
    auto* scroll = new QScrollArea(parent);
    scroll->setWidgetResizable(true);
    scroll->setWidget(content);
    return scroll;
}

QWidget* titled(const QString& title, QWidget* content, QWidget* parent)
{
    auto* box = new QWidget(parent);
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new QLabel(title, box), 0, Qt::AlignHCenter);
    layout->addWidget(content, 1);
    return box;
}

bool inProgram(uint32_t state)
{
    return state == LVButtonLeaving || state == LVButtonOnAir;
}

} // namespace

LVStudioController::LVStudioController(Lumaveil& app, LVStudio& studio, QWidget* parent)
    : QWidget(parent, Qt::Window), app_(app), studio_(studio)
{
    setObjectName(QStringLiteral("studioWindow"));
    setWindowTitle(tr("Lumaveil Studio"));

    iconView_ = new LVIconView(app_, studio_);
    gridScroll_ = new QScrollArea(this);
    gridScroll_->setObjectName(QStringLiteral("studioGrid"));
    gridScroll_->setWidgetResizable(true);
    gridScroll_->setWidget(iconView_);
    gridScroll_->setAlignment(Qt::AlignLeft | Qt::AlignTop);

    // The monitors keep their height as the window grows; the grid takes the rest.
    splitter_ = new QSplitter(Qt::Vertical, this);
    splitter_->setObjectName(QStringLiteral("studioSplitter"));
    splitter_->addWidget(makeMonitorRow());
    splitter_->addWidget(gridScroll_);
    splitter_->setStretchFactor(0, 0);
    splitter_->setStretchFactor(1, 1);
    splitter_->setCollapsible(0, false);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->addWidget(splitter_);
    resize(1100, 720);

    const QRect stored = parseFrame(studio_.storedWindowFrame());
    if (!stored.isEmpty()) setGeometry(stored);
    studio_.setWindowFrameSource([this] {
        // A run that never showed the window keeps the frame stored before.
        return shownOnce_ ? frameString(geometry()) : studio_.storedWindowFrame();
    });
    studio_.setPreviewMonitor(previewMonitor_);
    studio_.setProgramMonitor(programMonitor_);

    iconView_->setBus(&studio_.mainBus());
    for (const LVStudioButtonRef& button : studio_.studioButtons()) watchButton(button.get());
    connect(&studio_, &LVStudio::studioButtonAdded, this, &LVStudioController::watchButton);
    connect(&studio_.mainBus(), &LVMEBus::hasPreviewSetupsChanged, this, &LVStudioController::previewSetupsChanged);
}

LVStudioController::~LVStudioController()
{
    studio_.setPreviewMonitor(nullptr);
    studio_.setProgramMonitor(nullptr);
    // The frame as it is now: the studio stores it at quit.
    const QString frame = shownOnce_ ? frameString(geometry()) : studio_.storedWindowFrame();
    studio_.setWindowFrameSource([frame] { return frame; });
    for (const LVStudioButtonRef& button : studio_.studioButtons()) button->disconnect(this);
}

QWidget* LVStudioController::makeMonitorRow()
{
    auto* row = new QWidget(this);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);

    previewControls_ = new LVSettingsPanel;
    previewControls_->setObjectName(QStringLiteral("previewControls"));
    previewControls_->setController(&app_);
    programControls_ = new LVSettingsPanel;
    programControls_->setObjectName(QStringLiteral("programControls"));
    programControls_->setController(&app_);
    previewMonitor_ = new LVMonitorView(row);
    previewMonitor_->setObjectName(QStringLiteral("previewMonitor"));
    programMonitor_ = new LVMonitorView(row);
    programMonitor_->setObjectName(QStringLiteral("programMonitor"));
    previewMonitor_->setStrokeTarget([this]() -> LVEffectRef {
        for (const LVStudioButtonRef& button : studio_.mainBus().previewButtons()) {
            if (LVEffectRef effect = LVPreviewWidget::firstStrokeReceiver(button->effects())) return effect;
        }
        return nullptr;
    });
    programMonitor_->setStrokeTarget([this] { return LVPreviewWidget::firstStrokeReceiver(app_.liveEffects()); });

    QScrollArea* previewScroll = scrolled(previewControls_, row);
    QScrollArea* programScroll = scrolled(programControls_, row);
    for (QScrollArea* scroll : {previewScroll, programScroll}) scroll->setFixedWidth(220);
    layout->addWidget(previewScroll);
    layout->addWidget(titled(tr("Preview"), previewMonitor_, row), 1);
    layout->addWidget(makeCommands());
    layout->addWidget(titled(tr("Program"), programMonitor_, row), 1);
    layout->addWidget(programScroll);
    row->setMinimumHeight(260);
    return row;
}

QWidget* LVStudioController::makeCommands()
{
    auto* column = new QWidget(this);
    column->setFixedWidth(170);
    auto* layout = new QVBoxLayout(column);
    layout->setContentsMargins(0, 0, 0, 0);

    transitions_ = new QListWidget(column);
    transitions_->setObjectName(QStringLiteral("transitions"));
    transitions_->addItems(studio_.transitionNames());
    const QList<QListWidgetItem*> selected = transitions_->findItems(studio_.namedTransition(), Qt::MatchExactly);
    if (!selected.isEmpty()) transitions_->setCurrentItem(selected.front());
    transitions_->setMaximumHeight(110);
    connect(transitions_, &QListWidget::currentTextChanged, this,
            [this](const QString& name) { studio_.setNamedTransition(name); });
    layout->addWidget(transitions_);

    auto* commands = new QGridLayout;
    const auto command = [&](const QString& title, const char* name, int row, int col, auto action) {
        auto* button = new QPushButton(title, column);
        button->setObjectName(QString::fromLatin1(name));
        connect(button, &QPushButton::clicked, this, action);
        commands->addWidget(button, row, col);
    };
    command(tr("Cut"), "cut", 0, 0, [this] { studio_.doCut(); });
    command(tr("Transition"), "transition", 0, 1, [this] { studio_.doTransition(); });
    command(tr("Dissolve"), "dissolve", 1, 0, [this] { studio_.doDissolve(); });
    command(tr("Clear"), "clear", 1, 1, [this] { studio_.doClear(); });
    layout->addLayout(commands);

    swapBox_ = new QCheckBox(tr("Swap"), column);
    swapBox_->setObjectName(QStringLiteral("swapMode"));
    swapBox_->setChecked(studio_.isSwapMode());
    connect(swapBox_, &QCheckBox::toggled, this, [this](bool on) { studio_.setSwapMode(on); });
    connect(&studio_, &LVStudio::swapModeChanged, swapBox_, &QCheckBox::setChecked);
    timeBox_ = new QDoubleSpinBox(column);
    timeBox_->setObjectName(QStringLiteral("transitionTime"));
    timeBox_->setRange(0.1, 60.0);
    timeBox_->setSingleStep(0.1);
    timeBox_->setDecimals(1);
    timeBox_->setSuffix(tr(" s"));
    timeBox_->setValue(studio_.transitionTime());
    connect(timeBox_, &QDoubleSpinBox::valueChanged, this, [this](double seconds) { studio_.setTransitionTime(seconds); });
    auto* form = new QFormLayout;
    form->addRow(swapBox_);
    form->addRow(tr("Time:"), timeBox_);
    layout->addLayout(form);

    // Alt-click starts a frame-rate sample.
    fpsButton_ = new QPushButton(studio_.fpsLabel().isEmpty() ? tr("-- fps") : studio_.fpsLabel(), column);
    fpsButton_->setObjectName(QStringLiteral("fps"));
    fpsButton_->setFlat(true);
    fpsButton_->setToolTip(tr("Alt-click to measure the frame rate"));
    connect(fpsButton_, &QPushButton::clicked, this,
            [this] { studio_.doFPS(QApplication::keyboardModifiers() & Qt::AltModifier); });
    connect(&studio_, &LVStudio::fpsLabelChanged, fpsButton_, &QPushButton::setText);
    layout->addWidget(fpsButton_);

    auto* newButton = new QPushButton(tr("New Button"), column);
    newButton->setObjectName(QStringLiteral("newButton"));
    connect(newButton, &QPushButton::clicked, this, &LVStudioController::doNewButton);
    layout->addWidget(newButton);

    quickSource_ = new LVQuickSourceView(column);
    quickSource_->setMinimumHeight(72);
    quickSource_->setAction([this](const QStringList& movies, const QStringList& images) { doQuickSource(movies, images); });
    layout->addWidget(quickSource_);
    layout->addStretch(1);
    return column;
}

void LVStudioController::watchButton(LVStudioButton* button)
{
    connect(button, &LVStudioButton::stateChanged, this, &LVStudioController::buttonStateChanged, Qt::UniqueConnection);
    if (button->state() != LVButtonIdle) buttonStateChanged(button, LVButtonIdle, button->state());
}

void LVStudioController::buttonStateChanged(LVStudioButton* button, uint32_t oldState, uint32_t newState)
{
    if (!button->hasVideoSource()) return;
    const LVEffectRef source = button->source();
    if (!source) return;
    if (oldState == LVButtonPreview && previewControls_->effect() == source) previewControls_->setEffect(nullptr);
    if (inProgram(oldState) && !inProgram(newState) && programControls_->effect() == source)
        programControls_->setEffect(nullptr);
    if (newState == LVButtonPreview) {
        if (previewControls_->effect() != source) previewControls_->setEffect(source);
    } else if (inProgram(newState)) {
        if (programControls_->effect() != source) programControls_->setEffect(source);
    }
}

void LVStudioController::previewSetupsChanged()
{
    if (!studio_.mainBus().hasPreviewSetups()) previewMonitor_->setBlank();
}

void LVStudioController::doNewButton()
{
    studio_.doNewButton();
}

void LVStudioController::doQuickSource(const QStringList& movies, const QStringList& images)
{
    const LVEffectRef source = app_.quickEffectFromFiles(movies.isEmpty() ? images : movies, true);
    if (!source) return;
    const LVStudioButtonRef button = studio_.makeNewButton();
    if (!button) return;
    button->effects();
    button->addEffect(source, -1);
    button->persist();
    studio_.mainBus().addButton(button, true);
    button->setState(LVButtonPreview);
}

bool LVStudioController::event(QEvent* event)
{
    if (event->type() == QEvent::Show) shownOnce_ = true;
    if (event->type() == QEvent::WindowActivate) nag();
    return QWidget::event(event);
}

void LVStudioController::nag()
{
    if (!studio_.takeFirstRunOffer()) return;
    nagBox_ = new QMessageBox(QMessageBox::Information, tr("Lumaveil Studio"), QString::fromLatin1(LVStudio::firstRunOfferText),
                              QMessageBox::NoButton, this);
    nagBox_->setObjectName(QStringLiteral("firstRunOffer"));
    nagBox_->setAttribute(Qt::WA_DeleteOnClose);
    nagBox_->setWindowModality(Qt::WindowModal);
    // One role for both keeps "No" first and "Yes" second on every desktop's layout.
    QPushButton* no = nagBox_->addButton(tr("No"), QMessageBox::ActionRole);
    QPushButton* yes = nagBox_->addButton(tr("Yes"), QMessageBox::ActionRole);
    nagBox_->setDefaultButton(no);
    nagBox_->setEscapeButton(no);
    QMessageBox* box = nagBox_;
    connect(box, &QMessageBox::finished, this, [this, box, yes] {
        if (box->clickedButton() == yes) QDesktopServices::openUrl(tutorialUrl());
        nagBox_ = nullptr;
    });
    box->open();
}

QString LVStudioController::frameString(const QRect& frame)
{
    return QStringLiteral("{{%1, %2}, {%3, %4}}").arg(frame.x()).arg(frame.y()).arg(frame.width()).arg(frame.height());
}

QRect LVStudioController::parseFrame(const QString& text)
{
    static const QRegularExpression form(
        QStringLiteral(R"(^\s*\{\s*\{\s*(-?\d+)\s*,\s*(-?\d+)\s*\}\s*,\s*\{\s*(\d+)\s*,\s*(\d+)\s*\}\s*\}\s*$)"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch()) return {};
    bool ok[4] = {};
    const QRect frame(match.captured(1).toInt(&ok[0]), match.captured(2).toInt(&ok[1]), match.captured(3).toInt(&ok[2]),
                      match.captured(4).toInt(&ok[3]));
    for (bool part : ok)
        if (!part) return {};
    return frame;
}

QUrl LVStudioController::tutorialUrl()
{
    const QString page = QStringLiteral("studio-tutorial.html");
    const QString installed =
        QCoreApplication::applicationDirPath() + QStringLiteral("/../share/lumaveil/docs/") + page;
    if (QFileInfo(installed).isFile()) return QUrl::fromLocalFile(QFileInfo(installed).canonicalFilePath());
    return QUrl::fromLocalFile(QStringLiteral(LV_SOURCE_DOCS_DIR "/") + page);
}

void LVStudioController::addMenuEntry(QMainWindow& mainWindow, const std::function<void()>& open)
{
    QMenuBar* bar = mainWindow.menuBar();
    QAction* help = nullptr;
    for (QAction* action : bar->actions())
        if (action->text().remove(QLatin1Char('&')) == QStringLiteral("Help")) help = action;
    auto* menu = new QMenu(tr("&Window"), bar);
    menu->setObjectName(QStringLiteral("windowMenu"));
    QAction* studio = menu->addAction(tr("Studio"));
    studio->setObjectName(QStringLiteral("openStudio"));
    studio->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S));
    QObject::connect(studio, &QAction::triggered, &mainWindow, open);
    bar->insertMenu(help, menu);
}
