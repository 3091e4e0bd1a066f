#include "gui/main/LVMainWindow.h"

#include "core/LVAudioOutputs.h"
#include "core/LVDefaults.h"
#include "core/LVVideoSizes.h"
#include "core/Lumaveil.h"
#include "core/util/LVLog.h"
#include "gui/main/LVChainModel.h"
#include "gui/main/LVChainRowDelegate.h"
#include "gui/main/LVFullScreenOutput.h"
#include "gui/remote/LVRemoteControlWindow.h"
#include "gui/main/LVPreviewWidget.h"
#include "gui/main/LVSettingsPanel.h"
#include "render/LVContext.h"
#include "gui/setups/LVSetupsWindows.h"
#include "setups/model/LVSetupManager.h"

#include <QAbstractSpinBox>
#include <QActionGroup>
#include <QApplication>
#include <QLineEdit>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QGuiApplication>
#include <QMenuBar>
#include <QScreen>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <QSpinBox>
#include <QSplitter>
#include <QStatusBar>
#include <QVBoxLayout>

#include <algorithm>

namespace {

// Frames are stored as "{{x, y}, {w, h}}", origins as "{x, y}".
QString rectString(const QRect& rect)
{
    return QStringLiteral("{{%1, %2}, {%3, %4}}").arg(rect.x()).arg(rect.y()).arg(rect.width()).arg(rect.height());
}

std::optional<QRect> parseRectString(const QString& text)
{
    static const QRegularExpression pattern(
        QStringLiteral("^\\{\\{(-?\\d+), (-?\\d+)\\}, \\{(\\d+), (\\d+)\\}\\}$"));
    const auto match = pattern.match(text);
    if (!match.hasMatch()) return std::nullopt;
    return QRect(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt(),
                 match.captured(4).toInt());
}

} // namespace

const QList<int>& LVMainWindow::frameRates()
{
    static const QList<int> rates = {5, 10, 12, 15, 20, 24, 25, 30, 50, 60};
    return rates;
}

LVMainWindow::LVMainWindow(Lumaveil& lumaveil, QWidget* parent) : QMainWindow(parent), lumaveil_(lumaveil)
{
    setWindowTitle(QStringLiteral("Lumaveil"));
    lumaveil_.awakeFromNib();

    auto* splitter = new QSplitter(Qt::Horizontal, this);
    preview_ = new LVPreviewWidget(splitter);
    preview_->setObjectName(QStringLiteral("preview"));
    preview_->setStrokeTarget([this] { return LVPreviewWidget::firstStrokeReceiver(lumaveil_.liveEffects()); });
    splitter->addWidget(preview_);

    auto* side = new QWidget(splitter);
    auto* sideLayout = new QVBoxLayout(side);
    auto* sourceRow = new QHBoxLayout;
    sourceRow->addWidget(new QLabel(tr("Source:"), side));
    sourceChooser_ = new QComboBox(side);
    sourceChooser_->setObjectName(QStringLiteral("sourceChooser"));
    sourceRow->addWidget(sourceChooser_, 1);
    sideLayout->addLayout(sourceRow);

    chainView_ = new QListView(side);
    chainView_->setObjectName(QStringLiteral("chain"));
    chainModel_ = new LVChainModel(lumaveil_, this);
    chainView_->setModel(chainModel_);
    chainView_->setDragEnabled(true);
    chainView_->setAcceptDrops(true);
    chainView_->setDropIndicatorShown(true);
    chainView_->setDragDropMode(QAbstractItemView::DragDrop);
    chainView_->setDefaultDropAction(Qt::CopyAction);
    chainView_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    auto* rows = new LVChainRowDelegate(chainView_);
    chainView_->setItemDelegate(rows);
    connect(rows, &LVChainRowDelegate::removeClicked, this, &LVMainWindow::doRemove);
    sideLayout->addWidget(new QLabel(tr("Chain (drag to reorder, drop image or movie files):"), side));
    sideLayout->addWidget(chainView_, 1);

    auto* addRow = new QHBoxLayout;
    effectChooser_ = new QComboBox(side);
    effectChooser_->setObjectName(QStringLiteral("effectChooser"));
    effectChooser_->setMinimumContentsLength(14);
    effectChooser_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    auto* addButton = new QPushButton(tr("Add"), side);
    addButton->setObjectName(QStringLiteral("addEffect"));
    auto* removeButton = new QPushButton(tr("Remove"), side);
    removeButton->setObjectName(QStringLiteral("removeEffect"));
    auto* clearButton = new QPushButton(tr("Clear"), side);
    clearButton->setObjectName(QStringLiteral("clearEffects"));
    addRow->addWidget(effectChooser_, 1);
    addRow->addWidget(addButton);
    addRow->addWidget(removeButton);
    addRow->addWidget(clearButton);
    sideLayout->addLayout(addRow);

    settings_ = new LVSettingsPanel;
    settings_->setController(&lumaveil_);
    auto* scroll = new QScrollArea(side);
    scroll->setWidgetResizable(true);
    scroll->setWidget(settings_);
    sideLayout->addWidget(scroll, 1);
    splitter->addWidget(side);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    setCentralWidget(splitter);

    fpsLabel_ = new QLabel(tr("– fps"), this);
    fpsLabel_->setObjectName(QStringLiteral("fps"));
    statusBar()->addPermanentWidget(fpsLabel_);
    // Says when the camera gets no frames although driver output is on.
    auto* publishing = new QLabel(this);
    publishing->setObjectName(QStringLiteral("publishing"));
    statusBar()->addWidget(publishing, 1);
    refusedLabel_ = new QLabel(this);
    refusedLabel_->setObjectName(QStringLiteral("refusedSettings"));
    refusedLabel_->setWordWrap(true);
    statusBar()->addWidget(refusedLabel_, 1);
    const QStringList refused = refusedSettings();
    refusedLabel_->setText(refused.join(QLatin1Char(' ')));
    refusedLabel_->setVisible(!refused.isEmpty());
    for (const QString& line : refused) LVLog("%s", qPrintable(line));
    const auto showPublishing = [this, publishing] { publishing->setText(lumaveil_.publishingProblem()); };
    showPublishing();
    connect(&lumaveil_, &Lumaveil::preferenceChanged, publishing, showPublishing);
    connect(&lumaveil_, &Lumaveil::slowEffect, this, &LVMainWindow::offerToDisableSlowEffect);

    buildMenus();
    fillCatalogueChoosers();
    refreshSourceChooser();

    connect(addButton, &QPushButton::clicked, this, [this] {
        if (effectChooser_->currentIndex() < 0 || !lumaveil_.addNamedEffect(effectChooser_->currentText())) return;
        // The new effect's settings are what the user wants to see next.
        lumaveil_.setSelectedEffect(lumaveil_.liveEffects().back());
    });
    connect(removeButton, &QPushButton::clicked, this, &LVMainWindow::removeSelected);
    connect(clearButton, &QPushButton::clicked, this, [this] { lumaveil_.doClear(); });
    connect(sourceChooser_, &QComboBox::activated, this, [this](int index) {
        if (index == 0) {
            if (const auto source = lumaveil_.source()) lumaveil_.removeEffect(source);
        } else {
            lumaveil_.setNamedSource(sourceChooser_->itemText(index));
        }
    });
    connect(&lumaveil_, &Lumaveil::chainChanged, this, [this] {
        refreshSourceChooser();
        if (!lumaveil_.selectedEffect()) settings_->setEffect(nullptr);
    });
    connect(chainView_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &LVMainWindow::selectionChanged);
    connect(chainModel_, &QAbstractItemModel::modelReset, this, [this] {
        // Keep the selection on the same effect after the chain changed.
        const auto selected = lumaveil_.selectedEffect();
        const auto& chain = lumaveil_.liveEffects();
        for (size_t i = 0; i < chain.size(); ++i) {
            if (chain[i] == selected) chainView_->setCurrentIndex(chainModel_->index(int(i)));
        }
    });
    connect(&lumaveil_, &Lumaveil::selectionRequested, this,
            [this](int row) { chainView_->setCurrentIndex(chainModel_->index(row)); });
    connect(&lumaveil_, &Lumaveil::fpsChanged, this,
            [this](double fps) { fpsLabel_->setText(tr("%1 fps").arg(fps, 0, 'f', 1)); });

    lumaveil_.setPreview(preview_);
    qApp->installEventFilter(this);
    lumaveil_.setWindowFrameSource([this] {
        return Lumaveil::WindowFrames{rectString(geometry()),
                                      QStringLiteral("{%1, %2}").arg(preview_->mapToGlobal(QPoint()).x())
                                          .arg(preview_->mapToGlobal(QPoint()).y())};
    });
    resize(1000, 600);
    if (const auto frame = parseRectString(lumaveil_.defaults().stringForKey(QStringLiteral("windowFrame")))) {
        setGeometry(*frame);
    }
}

QStringList LVMainWindow::refusedSettings() const
{
    QStringList refused;
    const LVDefaults& defaults = lumaveil_.defaults();
    const QJsonValue rate = defaults.valueForKey(QStringLiteral("frameRate"));
    if (rate.isDouble() && !LVValidateFrameRate(QString::number(rate.toDouble()), nullptr, nullptr)) {
        refused << tr("The saved frame rate %1 fps was refused (allowed are %2 to %3); %4 fps is used.")
                       .arg(rate.toDouble())
                       .arg(LVMinFrameRate)
                       .arg(LVMaxFrameRate)
                       .arg(lumaveil_.frameRate());
    }
    const QString sizeText = defaults.stringForKey(QStringLiteral("videoSize"));
    const auto size = LVParseSizeString(sizeText);
    if (!sizeText.isEmpty() &&
        (!size || !LVValidateVideoSize(QStringLiteral("%1x%2").arg(size->width()).arg(size->height()), nullptr, nullptr))) {
        const QSize used = lumaveil_.videoSize();
        refused << tr("The saved video size %1 was refused (each side from %2 to %3 pixels); %4x%5 is used.")
                       .arg(sizeText)
                       .arg(LVMinVideoDimension)
                       .arg(LVMaxVideoDimension)
                       .arg(used.width())
                       .arg(used.height());
    }
    return refused;
}

void LVMainWindow::showEvent(QShowEvent* event)
{
    QMainWindow::showEvent(event);
    if (previewOriginRestored_) return;
    previewOriginRestored_ = true;
    static const QRegularExpression pattern(QStringLiteral("^\\{\\s*(-?\\d+)\\s*,\\s*(-?\\d+)\\s*\\}$"));
    const auto match = pattern.match(lumaveil_.defaults().stringForKey(QStringLiteral("previewOrigin")).trimmed());
    if (!match.hasMatch()) return;
    // The preview sits inside the window: moving the window brings it back where it was.
    const QPoint saved(match.captured(1).toInt(), match.captured(2).toInt());
    move(pos() + saved - preview_->mapToGlobal(QPoint()));
}

LVMainWindow::~LVMainWindow()
{
    if (setupManager_) setupManager_->setFrameGrabber({});
    lumaveil_.setPreview(nullptr);
    // Its keys come here.
    lumaveil_.unSelectScreen();
    lumaveil_.setWindowFrameSource({});
}

void LVMainWindow::buildMenus()
{
    QMenu* fileMenu = menuBar()->addMenu(tr("&File"));
    QAction* remote = fileMenu->addAction(tr("Remote Control..."));
    remote->setObjectName(QStringLiteral("remoteControl"));
    connect(remote, &QAction::triggered, this, &LVMainWindow::showRemoteControlWindow);
    fileMenu->addSeparator();
    QAction* quit = fileMenu->addAction(tr("Quit Lumaveil"));
    quit->setObjectName(QStringLiteral("quit"));
    quit->setShortcut(QKeySequence::Quit);
    quit->setMenuRole(QAction::QuitRole);
    connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit, Qt::QueuedConnection);

    QMenu* videoMenu = menuBar()->addMenu(tr("&Video"));
    videoSizeMenu_ = videoMenu->addMenu(tr("Video Size"));
    sizeGroup_ = new QActionGroup(this);
    const auto& items = LVVideoSizeMenu();
    const int current = lumaveil_.videoSizeMenuIndex();
    for (int i = 0; i < int(items.size()); ++i) {
        QAction* action = videoSizeMenu_->addAction(items[size_t(i)].title);
        action->setCheckable(true);
        action->setChecked(i == current);
        sizeGroup_->addAction(action);
        connect(action, &QAction::triggered, this, [this, i] { chooseVideoSize(i); });
    }
    videoSizeMenu_->addSeparator();
    videoSizeMenu_->addAction(tr("A new size applies after a restart"))->setEnabled(false);

    frameRateMenu_ = videoMenu->addMenu(tr("Frame Rate"));
    auto* rateGroup = new QActionGroup(this);
    for (int rate : frameRates()) {
        QAction* action = frameRateMenu_->addAction(tr("%1 fps").arg(rate));
        action->setCheckable(true);
        action->setChecked(rate == lumaveil_.frameRate());
        action->setData(rate);
        rateGroup->addAction(action);
        connect(action, &QAction::triggered, this, [this, rate] { lumaveil_.setFrameRate(rate); });
    }

    videoMenu->addSeparator();
    QAction* mirror = videoMenu->addAction(tr("Mirror Preview"));
    mirror->setCheckable(true);
    mirror->setChecked(lumaveil_.isMirrorImagePreview());
    connect(mirror, &QAction::toggled, this, [this](bool on) { lumaveil_.setMirrorImagePreview(on); });
    QAction* publish = videoMenu->addAction(tr("Publish to Virtual Camera"));
    publish->setCheckable(true);
    publish->setChecked(!lumaveil_.isNoVirtualDriver());
    connect(publish, &QAction::toggled, this, [this](bool on) { lumaveil_.setNoVirtualDriver(!on); });
    QAction* pipeWire = videoMenu->addAction(tr("Publish as PipeWire Node"));
    pipeWire->setCheckable(true);
    pipeWire->setChecked(lumaveil_.syphonServerEnabled());
    connect(pipeWire, &QAction::toggled, this, [this](bool on) { lumaveil_.setSyphonServerEnabled(on); });

    audioMenu_ = videoMenu->addMenu(tr("Audio Output"));
    connect(audioMenu_, &QMenu::aboutToShow, this, &LVMainWindow::fillAudioMenu);
    screenMenu_ = videoMenu->addMenu(tr("Full Screen"));
    connect(screenMenu_, &QMenu::aboutToShow, this, &LVMainWindow::fillScreenMenu);
    fillScreenMenu();

    QMenu* effectsMenu = menuBar()->addMenu(tr("&Effects"));
    connect(effectsMenu->addAction(tr("Refresh Catalogues")), &QAction::triggered, this, [this] {
        lumaveil_.registry().findEffects();
        fillCatalogueChoosers();
        refreshSourceChooser();
    });
    QAction* swap = effectsMenu->addAction(tr("Swap Picture-in-Picture Source"));
    swap->setEnabled(lumaveil_.pipSelected());
    connect(&lumaveil_, &Lumaveil::pipSelectedChanged, swap, &QAction::setEnabled);
    connect(swap, &QAction::triggered, this, [this] { lumaveil_.doSwap(lumaveil_.selectedEffect()); });

    setupsMenu_ = menuBar()->addMenu(tr("&Setups"));
    const QStringList titles = {tr("Saved Setups..."), tr("Save Setup..."), tr("Setup Sets...")};
    for (int i = 0; i < titles.size(); ++i) {
        QAction* action = setupsMenu_->addAction(titles[i]);
        action->setEnabled(false);
        connect(action, &QAction::triggered, this, [this, i] { showSetupsWindow(i); });
    }

    QMenu* helpMenu = menuBar()->addMenu(tr("&Help"));
    QAction* about = helpMenu->addAction(tr("About Lumaveil"));
    about->setObjectName(QStringLiteral("about"));
    about->setMenuRole(QAction::AboutRole);
    connect(about, &QAction::triggered, this, [this] {
        auto* box = new QMessageBox(QMessageBox::Information, tr("About Lumaveil"), aboutText(), QMessageBox::Ok, this);
        box->setObjectName(QStringLiteral("aboutBox"));
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->open();
    });
}

void LVMainWindow::showRemoteControlWindow()
{
    if (!remoteControlWindow_) {
        remoteControlWindow_ = new LVRemoteControlWindow(lumaveil_.defaults(), remoteControlStatus_, this);
        remoteControlWindow_->setAccessLinkSource(remoteControlLink_);
    }
    remoteControlWindow_->show();
    remoteControlWindow_->raise();
}

QString LVMainWindow::aboutText()
{
    const QString version = QCoreApplication::applicationVersion();
    return tr("Lumaveil %1\n\nA live video studio: a source and a chain of effects, rendered at the size and "
              "frame rate you choose and published for the lumaveil-vcam camera bridge.")
        .arg(version.isEmpty() ? tr("(development build)") : version);
}

void LVMainWindow::setSetupManager(LVSetupManager* manager)
{
    setupManager_ = manager;
    for (QAction* action : setupsMenu_->actions()) action->setEnabled(manager != nullptr);
    if (manager) manager->setFrameGrabber([this] { return preview_->frame(); });
}

std::vector<int> LVMainWindow::selectedRows() const
{
    std::vector<int> rows;
    for (const QModelIndex& index : chainView_->selectionModel()->selectedRows()) rows.push_back(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void LVMainWindow::showSetupsWindow(int which)
{
    if (!setupManager_) return;
    LVSetupsHost host;
    host.liveEffects = [this] { return lumaveil_.liveEffects(); };
    host.selectedRows = [this] { return selectedRows(); };
    host.addEffectsFrom = [this](const std::vector<LVEffectRef>& effects, bool merge) {
        lumaveil_.addEffectsFrom(effects, merge, false);
    };
    host.context = lumaveil_.context();
    host.defaults = &lumaveil_.defaults();
    switch (which) {
    case 0:
        LVShowSavedSetupsWindow(*setupManager_, host, this);
        break;
    case 1:
        LVShowSaveSetupDialog(*setupManager_, host, this);
        break;
    default:
        LVShowSetupSetsEditor(*setupManager_, this);
        break;
    }
}

void LVMainWindow::fillScreenMenu()
{
    screenMenu_->clear();
    const QList<QScreen*> screens = QGuiApplication::screens();
    // Screens come and go; the menu is made fresh, "None" first with a negative tag.
    for (int index = -1; index < int(screens.size()); ++index) {
        QAction* action = screenMenu_->addAction(index < 0 ? tr("None") : screens[index]->name());
        action->setData(index);
        connect(action, &QAction::triggered, this, [this, index] { doSelectScreen(index); });
    }
}

void LVMainWindow::doSelectScreen(int index)
{
    lumaveil_.unSelectScreen();
    const QList<QScreen*> screens = QGuiApplication::screens();
    if (index < 0 || index >= int(screens.size())) return;
    lumaveil_.setPreviewFullScreen(std::make_unique<LVScreenOutput>(
        screens[index], [this](int key, int modifiers) { lumaveil_.sendEvent(key, modifiers); }));
}

void LVMainWindow::fillAudioMenu()
{
    audioMenu_->clear();
    auto* group = new QActionGroup(audioMenu_);
    const QString chosen = lumaveil_.audioOutputDevice();
    QStringList names{tr("System Default")};
    for (const auto& device : LVListAudioOutputDevices()) names.append(device.name);
    for (int i = 0; i < names.size(); ++i) {
        QAction* action = audioMenu_->addAction(names[i]);
        action->setCheckable(true);
        action->setChecked(i == 0 ? chosen.isEmpty() : names[i] == chosen);
        group->addAction(action);
        const QString device = i == 0 ? QString() : names[i];
        connect(action, &QAction::triggered, this, [this, device] { lumaveil_.setAudioOutputDevice(device); });
    }
}

void LVMainWindow::fillCatalogueChoosers()
{
    effectChooser_->clear();
    for (const auto& factory : lumaveil_.effects()) effectChooser_->addItem(factory->name());
}

void LVMainWindow::refreshSourceChooser()
{
    const QSignalBlocker block(sourceChooser_);
    sourceChooser_->clear();
    sourceChooser_->addItem(tr("None"));
    for (const auto& factory : lumaveil_.sources()) sourceChooser_->addItem(factory->name());
    const auto source = lumaveil_.source();
    const int index = source ? sourceChooser_->findText(source->name()) : 0;
    sourceChooser_->setCurrentIndex(std::max(0, index));
}

void LVMainWindow::chooseVideoSize(int index)
{
    const auto& items = LVVideoSizeMenu();
    if (!items[size_t(index)].isCustom()) {
        lumaveil_.chooseVideoSizeItem(index);
        offerRestartForSize();
        return;
    }
    QDialog dialog(this);
    dialog.setWindowTitle(tr("Custom Video Size"));
    auto* form = new QFormLayout(&dialog);
    auto* width = new QSpinBox(&dialog);
    auto* height = new QSpinBox(&dialog);
    // Wider than allowed, so that a size out of range is refused aloud rather than clamped.
    width->setRange(0, 99999);
    height->setRange(0, 99999);
    const QSize current = lumaveil_.videoSize();
    width->setValue(current.width());
    height->setValue(current.height());
    form->addRow(tr("Width"), width);
    form->addRow(tr("Height"), height);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    if (dialog.exec() == QDialog::Accepted) {
        const QSize asked = LVCustomVideoSize(width->value(), height->value());
        QString problem;
        if (LVValidateVideoSize(QStringLiteral("%1x%2").arg(asked.width()).arg(asked.height()), nullptr, &problem)) {
            lumaveil_.chooseVideoSizeItem(index, width->value(), height->value());
            offerRestartForSize();
            return;
        }
        auto* box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Lumaveil"),
                                    tr("The custom size was refused: %1. The video size is unchanged.").arg(problem),
                                    QMessageBox::Ok, this);
        box->setObjectName(QStringLiteral("refusedVideoSize"));
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->open();
        sizeGroup_->actions().at(lumaveil_.videoSizeMenuIndex())->setChecked(true);
    } else {
        sizeGroup_->actions().at(lumaveil_.videoSizeMenuIndex())->setChecked(true);
    }
}

void LVMainWindow::offerRestartForSize()
{
    const QSize chosen = lumaveil_.videoSize();
    const LVContext* context = lumaveil_.context();
    if (!restart_ || !context || chosen == QSize(context->width(), context->height())) return;
    auto* box = new QMessageBox(QMessageBox::Question, QStringLiteral("Lumaveil"),
                                tr("The video size %1x%2 applies when Lumaveil starts again. Restart now? "
                                   "The chain comes back as it is.")
                                    .arg(chosen.width())
                                    .arg(chosen.height()),
                                QMessageBox::NoButton, this);
    box->setObjectName(QStringLiteral("restartForSize"));
    // "No" first, "Yes" second: only the second confirms.
    box->addButton(tr("No"), QMessageBox::RejectRole);
    QPushButton* yes = box->addButton(tr("Yes"), QMessageBox::AcceptRole);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::buttonClicked, this, [this, yes](QAbstractButton* button) {
        if (button == yes && restart_) restart_();
    });
    box->open();
}

void LVMainWindow::selectionChanged()
{
    const QModelIndexList rows = chainView_->selectionModel()->selectedRows();
    const auto& chain = lumaveil_.liveEffects();
    if (rows.size() == 1 && rows.front().row() < int(chain.size())) {
        const auto effect = chain[size_t(rows.front().row())];
        if (settings_->effect() != effect) settings_->setEffect(effect);
        lumaveil_.setSelectedEffect(effect);
    } else {
        settings_->setEffect(nullptr);
        lumaveil_.setSelectedEffect(nullptr);
    }
}

void LVMainWindow::doRemove(int row)
{
    if (row >= 0 && row < int(lumaveil_.liveEffects().size())) lumaveil_.removeOneEffect(row);
}

void LVMainWindow::removeSelected()
{
    QModelIndexList rows = chainView_->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end(), [](const QModelIndex& a, const QModelIndex& b) { return a.row() > b.row(); });
    for (const QModelIndex& index : rows) lumaveil_.removeOneEffect(index.row());
}

void LVMainWindow::showBetaNagIfNeeded()
{
    if (!lumaveil_.needsBetaNag()) return;
    auto* box = new QMessageBox(QMessageBox::Information, QStringLiteral("Lumaveil"),
                                QString::fromLatin1(Lumaveil::betaNagText), QMessageBox::NoButton, this);
    box->setObjectName(QStringLiteral("betaNag"));
    box->addButton(QString::fromLatin1(Lumaveil::betaNagButton), QMessageBox::AcceptRole);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
    lumaveil_.betaNagShown();
}

bool LVMainWindow::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::KeyPress) return QMainWindow::eventFilter(watched, event);
    auto* key = static_cast<QKeyEvent*>(event);
    // Every key press reaches the controller first, except typing into a text field.
    QWidget* focus = QApplication::focusWidget();
    // One look per key press: at its first receiver, inside this window.
    const QObject* first = focus ? static_cast<QObject*>(focus) : static_cast<QObject*>(this);
    if (watched != first || (focus && focus->window() != this)) return QMainWindow::eventFilter(watched, event);
    const bool typing = qobject_cast<QLineEdit*>(focus) || qobject_cast<QAbstractSpinBox*>(focus);
    if ((key->key() == Qt::Key_Escape || !typing) && lumaveil_.sendEvent(key->key(), int(key->modifiers()))) {
        return true;
    }
    return QMainWindow::eventFilter(watched, event);
}

void LVMainWindow::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) {
        removeSelected();
        return;
    }
    QMainWindow::keyPressEvent(event);
}

void LVMainWindow::offerToDisableSlowEffect(const LVEffectRef& effect, double secondsPerFrame)
{
    auto* box = new QMessageBox(QMessageBox::Warning, tr("Slow effect"),
                                tr("\u201c%1\u201d takes %2 ms a frame, far more than %3 fps allows. Disable it?")
                                    .arg(effect->displayName())
                                    .arg(qRound(secondsPerFrame * 1000.0))
                                    .arg(lumaveil_.frameRate()),
                                QMessageBox::NoButton, this);
    box->setObjectName(QStringLiteral("slowEffect"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->addButton(tr("Keep"), QMessageBox::RejectRole);
    QPushButton* disable = box->addButton(tr("Disable"), QMessageBox::AcceptRole);
    const std::weak_ptr<LVEffect> slow = effect;
    connect(box, &QMessageBox::buttonClicked, this, [this, slow, disable](QAbstractButton* button) {
        const LVEffectRef chosen = slow.lock();
        if (button != disable || !chosen) return;
        const auto& chain = lumaveil_.liveEffects();
        const auto it = std::find(chain.begin(), chain.end(), chosen);
        if (it != chain.end()) lumaveil_.setEffectEnabled(int(it - chain.begin()), false);
    });
    // Not modal: the render loop and the window go on while the user decides.
    box->open();
}
