#include "gui/setups/LVSavedSetupsWindow.h"

#include "core/LVDefaults.h"
#include "gui/setups/LVSaveSetupDialog.h"
#include "setups/model/LVSetupManager.h"

#include <QAbstractListModel>
#include <QFont>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QIcon>
#include <QInputDialog>
#include <QItemSelectionModel>
#include <QListView>
#include <QMessageBox>
#include <QPushButton>
#include <QSet>
#include <QVBoxLayout>

#include <algorithm>

namespace {

const QString kAutoload = QStringLiteral("autoload");

} // namespace

class LVSavedSetupsModel : public QAbstractListModel {
public:
    using QAbstractListModel::QAbstractListModel;

    void reset(const std::vector<LVSavedSetupRef>* setups, const QString& autoload, const QFont& font)
    {
        beginResetModel();
        setups_ = setups;
        autoload_ = autoload;
        font_ = font;
        icons_.assign(setups->size(), QIcon());
        endResetModel();
    }

    int rowCount(const QModelIndex& parent) const override
    {
        return parent.isValid() || !setups_ ? 0 : int(setups_->size());
    }

    QVariant data(const QModelIndex& index, int role) const override
    {
        if (!setups_ || index.row() < 0 || size_t(index.row()) >= setups_->size()) return {};
        const LVSavedSetup& setup = *(*setups_)[size_t(index.row())];
        switch (role) {
        case Qt::DisplayRole:
            return setup.name();
        case Qt::DecorationRole: {
            QIcon& icon = icons_[size_t(index.row())];
            if (icon.isNull() && !setup.iconData().isEmpty()) icon = QIcon(QPixmap::fromImage(setup.icon()));
            return icon;
        }
        case Qt::FontRole: {
            QFont font = font_;
            font.setBold(setup.name() == autoload_);
            return font;
        }
        case Qt::ToolTipRole:
            if (setup.loadError().isEmpty()) return {};
            return LVSavedSetupsWindow::tr("%1 is not a readable setup: the file %2. It is left as it is.")
                .arg(setup.path(), setup.loadError());
        default:
            return {};
        }
    }

private:
    const std::vector<LVSavedSetupRef>* setups_ = nullptr;
    QString autoload_;
    QFont font_;
    mutable std::vector<QIcon> icons_;
};

LVSavedSetupsWindow::LVSavedSetupsWindow(LVSetupManager& manager, const LVSetupsHost& host, QWidget* parent)
    : QWidget(parent, Qt::Window),
      manager_(manager),
      host_(host),
      list_(new QListView(this)),
      model_(new LVSavedSetupsModel(this))
{
    setWindowTitle(tr("Saved Setups"));
    list_->setModel(model_);
    list_->setIconSize(QSize(LVSavedSetup::iconSize, LVSavedSetup::iconSize));
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    // Every row is as tall as an icon, so the view never asks rows it does not draw.
    list_->setUniformItemSizes(true);
    connect(list_, &QListView::doubleClicked, this,
            [this] { doSelectOrMergeSetup(QGuiApplication::queryKeyboardModifiers()); });

    auto* buttons = new QHBoxLayout;
    const auto addButton = [&](const QString& title, void (LVSavedSetupsWindow::*action)()) {
        auto* button = new QPushButton(title, this);
        connect(button, &QPushButton::clicked, this, action);
        buttons->addWidget(button);
    };
    addButton(tr("Load"), &LVSavedSetupsWindow::doSelectSetup);
    addButton(tr("Merge"), &LVSavedSetupsWindow::doMergeSetup);
    addButton(tr("Save..."), &LVSavedSetupsWindow::doSaveSetup);
    addButton(tr("Rename..."), &LVSavedSetupsWindow::doRenameSetup);
    addButton(tr("Remove"), &LVSavedSetupsWindow::doRemoveSetup);
    addButton(tr("Auto-load"), &LVSavedSetupsWindow::doSelectAutoLoad);
    addButton(tr("Sets..."), &LVSavedSetupsWindow::doShowSets);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(list_);
    layout->addLayout(buttons);

    connect(&manager_, &LVSetupManager::currentSetChanged, this, &LVSavedSetupsWindow::refresh);
    connect(&manager_, &LVSetupManager::allSetupsChanged, this, &LVSavedSetupsWindow::refresh);
    if (host_.defaults) {
        connect(host_.defaults, &LVDefaults::valueChanged, this, [this](const QString& key) {
            if (key == kAutoload) refresh();
        });
    }
    resize(420, 480);
    refresh();
}

void LVSavedSetupsWindow::refresh()
{
    QSet<QString> selectedNames;
    for (const auto& setup : selectedSetups()) selectedNames.insert(setup->name());
    shown_ = manager_.currentSet()->setups();
    std::sort(shown_.begin(), shown_.end(), [](const auto& a, const auto& b) { return LVSavedSetup::lessThan(a, b); });

    setupWatch_ = std::make_unique<QObject>();
    const QString autoload = host_.defaults ? host_.defaults->stringForKey(kAutoload) : QString();
    model_->reset(&shown_, autoload, list_->font());
    QItemSelection selection;
    for (int row = 0; row < int(shown_.size()); ++row) {
        const LVSavedSetupRef& setup = shown_[size_t(row)];
        if (selectedNames.contains(setup->name())) selection.select(model_->index(row), model_->index(row));
        connect(setup.get(), &LVSavedSetup::iconChanged, setupWatch_.get(), [this] { refresh(); });
        connect(setup.get(), &LVSavedSetup::nameChanged, setupWatch_.get(), [this] { refresh(); });
    }
    list_->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
}

std::vector<LVSavedSetupRef> LVSavedSetupsWindow::selectedSetups() const
{
    std::vector<LVSavedSetupRef> selected;
    for (int row = 0; row < int(shown_.size()); ++row) {
        if (list_->selectionModel()->isRowSelected(row)) selected.push_back(shown_[size_t(row)]);
    }
    return selected;
}

void LVSavedSetupsWindow::selectSetupNamed(const QString& name)
{
    list_->selectionModel()->clearSelection();
    for (int row = 0; row < int(shown_.size()); ++row) {
        if (shown_[size_t(row)]->name() == name) {
            list_->selectionModel()->select(model_->index(row), QItemSelectionModel::Select);
        }
    }
}

void LVSavedSetupsWindow::doSelectSetup()
{
    const auto selected = selectedSetups();
    if (!selected.empty()) host_.loadSetup(*selected.front(), false);
}

void LVSavedSetupsWindow::doMergeSetup()
{
    const auto selected = selectedSetups();
    if (!selected.empty()) host_.loadSetup(*selected.front(), true);
}

void LVSavedSetupsWindow::doSelectOrMergeSetup(Qt::KeyboardModifiers modifiers)
{
    if (modifiers & Qt::AltModifier) {
        doMergeSetup();
    } else {
        doSelectSetup();
    }
}

void LVSavedSetupsWindow::doSaveSetup()
{
    const auto selected = selectedSetups();
    LVShowSaveSetupDialog(manager_, host_, this, selected.empty() ? QString() : selected.front()->name());
}

void LVSavedSetupsWindow::doRenameSetup()
{
    const auto selected = selectedSetups();
    if (selected.empty()) return;
    const LVSavedSetupRef setup = selected.front();
    auto* dialog = new QInputDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setObjectName(QStringLiteral("renameSetup"));
    dialog->setWindowTitle(tr("Rename Setup"));
    dialog->setLabelText(tr("New name for \"%1\":").arg(setup->name()));
    dialog->setTextValue(setup->name());
    connect(dialog, &QInputDialog::textValueSelected, this, [this, setup](const QString& name) {
        QString error;
        if (!manager_.renameSavedSetup(setup, name, &error)) showProblem(error);
    });
    dialog->open();
}

void LVSavedSetupsWindow::doRemoveSetup()
{
    const auto selected = selectedSetups();
    if (selected.empty()) return;
    auto* box = new QMessageBox(QMessageBox::Information, tr("Remove Setups"), tr(removeQuestion),
                                QMessageBox::NoButton, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setObjectName(QStringLiteral("removeConfirmation"));
    // One role for both keeps them in this order on every desktop's button layout.
    QPushButton* no = box->addButton(tr("No"), QMessageBox::ActionRole);
    QPushButton* yes = box->addButton(tr("Yes"), QMessageBox::ActionRole);
    box->setDefaultButton(no);
    box->setEscapeButton(no);
    connect(box, &QMessageBox::finished, this, [this, box, yes, selected] {
        if (box->clickedButton() != yes) return;
        for (const auto& setup : selected) {
            setup->unlink();
            manager_.removeSavedSetup(setup.get());
        }
    });
    box->open();
}

void LVSavedSetupsWindow::doSelectAutoLoad()
{
    const auto selected = selectedSetups();
    if (selected.empty() || !host_.defaults) return;
    const QString name = selected.front()->name();
    if (host_.defaults->stringForKey(kAutoload) == name) {
        host_.defaults->removeValueForKey(kAutoload);
    } else {
        host_.defaults->setValue(kAutoload, name);
    }
    refresh();
}

void LVSavedSetupsWindow::doShowSets()
{
    LVShowSetupSetsEditor(manager_, this);
}

void LVSavedSetupsWindow::showProblem(const QString& text)
{
    auto* box = new QMessageBox(QMessageBox::Warning, windowTitle(), text, QMessageBox::Ok, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setObjectName(QStringLiteral("setupProblem"));
    box->open();
}
