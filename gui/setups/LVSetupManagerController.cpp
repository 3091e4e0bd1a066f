#include "gui/setups/LVSetupManagerController.h"

#include "core/util/LVLog.h"
#include "setups/model/LVSetupManager.h"

#include <QCheckBox>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

LVSetupManagerController::LVSetupManagerController(LVSetupManager& manager, QWidget* parent)
    : QWidget(parent, Qt::Window), manager_(manager), setsMenu_(new QMenu(this)), setsTable_(new QTableWidget(this))
{
    setWindowTitle(tr("Setup Sets"));
    QAction* all = setsMenu_->addAction(tr("All Setups"), this, &LVSetupManagerController::doSelectAll);
    all->setCheckable(true);
    setsMenu_->addAction(tr("New Set..."), this, &LVSetupManagerController::doAddSet);
    setsMenu_->addSeparator();
    auto* menuButton = new QToolButton(this);
    menuButton->setText(tr("Current Set"));
    menuButton->setMenu(setsMenu_);
    menuButton->setPopupMode(QToolButton::InstantPopup);

    setsTable_->setSelectionMode(QAbstractItemView::SingleSelection);
    setsTable_->verticalHeader()->hide();
    connect(setsTable_, &QTableWidget::cellChanged, this, &LVSetupManagerController::membershipToggled);
    // Clicking a header selects that set's column for removal.
    setsTable_->horizontalHeader()->setSectionsClickable(true);

    auto* add = new QPushButton(tr("Add Set..."), this);
    auto* remove = new QPushButton(tr("Remove Set"), this);
    auto* reveal = new QPushButton(tr("Show in File Manager"), this);
    connect(add, &QPushButton::clicked, this, &LVSetupManagerController::doAddSet);
    connect(remove, &QPushButton::clicked, this, &LVSetupManagerController::doRemoveSet);
    connect(reveal, &QPushButton::clicked, this, &LVSetupManagerController::doShowInFinder);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(menuButton);
    buttons->addStretch();
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addWidget(reveal);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(setsTable_);
    layout->addLayout(buttons);

    connect(&manager_, &LVSetupManager::allSetsChanged, this, &LVSetupManagerController::doRefresh);
    connect(&manager_, &LVSetupManager::allSetupsChanged, this, &LVSetupManagerController::doRefresh);
    resize(560, 420);
    doRefresh();
}

void LVSetupManagerController::doRefresh()
{
    const QList<QAction*> items = setsMenu_->actions();
    for (qsizetype i = fixedMenuItems; i < items.size(); ++i) {
        setsMenu_->removeAction(items[i]);
        items[i]->deleteLater();
    }
    for (const auto& set : manager_.allSets()) {
        const QString name = set->name();
        QAction* item = setsMenu_->addAction(name, this, [this, name] { doPickSet(name); });
        item->setCheckable(true);
    }
    checkMenuItem(manager_.currentSet()->name());

    refreshing_ = true;
    const auto& setups = manager_.allSetups();
    const auto& sets = manager_.allSets();
    setsTable_->clear();
    setsTable_->setRowCount(int(setups.size()));
    setsTable_->setColumnCount(1 + int(sets.size()));
    QStringList headers{tr("Setup")};
    for (const auto& set : sets) headers.append(set->name());
    setsTable_->setHorizontalHeaderLabels(headers);
    for (int row = 0; row < int(setups.size()); ++row) {
        auto* name = new QTableWidgetItem(setups[size_t(row)]->name());
        name->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        setsTable_->setItem(row, 0, name);
        for (int col = 1; col <= int(sets.size()); ++col) {
            auto* box = new QTableWidgetItem;
            box->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
            box->setCheckState(sets[size_t(col - 1)]->hasSetup(setups[size_t(row)].get()) ? Qt::Checked : Qt::Unchecked);
            setsTable_->setItem(row, col, box);
        }
    }
    setsTable_->resizeColumnsToContents();
    refreshing_ = false;
}

void LVSetupManagerController::checkMenuItem(const QString& title)
{
    const QList<QAction*> items = setsMenu_->actions();
    for (qsizetype i = 0; i < items.size(); ++i) {
        const bool isAll = i == 0;
        const bool named = i >= fixedMenuItems;
        items[i]->setChecked(title.isEmpty() ? isAll : named && items[i]->text() == title);
    }
}

void LVSetupManagerController::membershipToggled(int row, int column)
{
    if (refreshing_ || column < 1) return;
    const auto& setups = manager_.allSetups();
    const QString setName = setsTable_->horizontalHeaderItem(column)->text();
    LVSetupManagerSet* set = manager_.setWithName(setName);
    if (!set || row < 0 || size_t(row) >= setups.size()) return;
    const LVSavedSetupRef setup = setups[size_t(row)];
    if (setsTable_->item(row, column)->checkState() == Qt::Checked) {
        if (!set->hasSetup(setup.get())) set->addSetup(setup);
    } else {
        set->removeSetup(setup.get());
    }
}

void LVSetupManagerController::doPickSet(const QString& name)
{
    checkMenuItem(name);
    manager_.selectSetWithName(name);
}

void LVSetupManagerController::doSelectAll()
{
    checkMenuItem({});
    manager_.selectSetWithName({});
}

void LVSetupManagerController::doAddSet()
{
    auto* dialog = new QDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setObjectName(QStringLiteral("newSet"));
    dialog->setWindowModality(Qt::WindowModal);
    auto* entry = new QLineEdit(dialog);
    entry->setFixedWidth(300);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog);
    connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    auto* layout = new QVBoxLayout(dialog);
    layout->addWidget(new QLabel(tr(newSetPrompt), dialog));
    layout->addWidget(entry);
    layout->addWidget(buttons);
    connect(dialog, &QDialog::finished, this, [this, entry](int result) {
        const QString name = entry->text().trimmed();
        if (result == QDialog::Accepted && !name.isEmpty()) manager_.addSet(name);
        manager_.persist();
    });
    dialog->open();
}

void LVSetupManagerController::doRemoveSet()
{
    const int column = setsTable_->currentColumn();
    const bool setColumn = column >= 1 && !setsTable_->selectedItems().isEmpty();
    if (!setColumn) {
        auto* box = new QMessageBox(QMessageBox::NoIcon, windowTitle(), tr(selectColumnPrompt), QMessageBox::NoButton,
                                    this);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->setObjectName(QStringLiteral("selectColumn"));
        box->setInformativeText(QString());
        box->addButton(tr("OK"), QMessageBox::AcceptRole);
        box->open();
        return;
    }
    manager_.removeSet(setsTable_->horizontalHeaderItem(column)->text());
    manager_.persist();
}

void LVSetupManagerController::doShowInFinder()
{
    const int row = setsTable_->currentRow();
    const auto& setups = manager_.allSetups();
    if (row < 0 || size_t(row) >= setups.size() || setsTable_->selectedItems().isEmpty()) return;
    const QString path = setups[size_t(row)]->path();
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(path).toString()} << QString();
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 3000);
    if (reply.type() == QDBusMessage::ReplyMessage) return;
    // No file manager on the bus: open the folder instead.
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(path).absolutePath()))) {
        LVLog("ShowItems: %s", qPrintable(reply.errorMessage()));
    }
}
