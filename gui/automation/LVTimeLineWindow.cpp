#include "gui/automation/LVTimeLineWindow.h"

#include "automation/LVTimeLineManager.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QStyle>
#include <QTableWidget>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

enum Column { StatusColumn, NameColumn, DescriptionColumn };

QIcon iconNamed(const QWidget& widget, const QString& image)
{
    if (image.isEmpty()) return {};
    if (image == QLatin1String("timeline pause.tif")) return widget.style()->standardIcon(QStyle::SP_MediaPause);
    if (image == QLatin1String("timeline run.tif")) return widget.style()->standardIcon(QStyle::SP_MediaPlay);
    return widget.style()->standardIcon(QStyle::SP_ArrowRight);
}

// A typed number stays a number, so the step reads it as one.
QVariant valueFromText(const QString& text, const QVariant& previous)
{
    bool number = false;
    const double value = text.toDouble(&number);
    if (number && (previous.typeId() == QMetaType::Int || previous.typeId() == QMetaType::Double)) return value;
    return text;
}

} // namespace

LVTimeLineWindow::LVTimeLineWindow(LVTimeLineManager& manager, QWidget* parent)
    : QWidget(parent, Qt::Window), manager_(manager)
{
    setWindowTitle(tr("Automation"));
    resize(760, 420);

    timeLines_ = new QListWidget;
    auto* add = new QPushButton(QStringLiteral("+"));
    auto* remove = new QPushButton(QStringLiteral("\u2212"));
    connect(add, &QPushButton::clicked, this, &LVTimeLineWindow::doAdd);
    connect(remove, &QPushButton::clicked, this, &LVTimeLineWindow::doDelete);
    auto* listButtons = new QHBoxLayout;
    listButtons->addWidget(add);
    listButtons->addWidget(remove);
    listButtons->addStretch();
    auto* left = new QWidget;
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->addWidget(new QLabel(tr("Automations")));
    leftLayout->addWidget(timeLines_);
    leftLayout->addLayout(listButtons);

    items_ = new QTableWidget(0, 3);
    items_->setHorizontalHeaderLabels({QString(), tr("Action"), tr("Description")});
    items_->setSelectionBehavior(QAbstractItemView::SelectRows);
    items_->setSelectionMode(QAbstractItemView::SingleSelection);
    items_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    items_->verticalHeader()->hide();
    items_->horizontalHeader()->setSectionResizeMode(StatusColumn, QHeaderView::ResizeToContents);
    items_->horizontalHeader()->setStretchLastSection(true);

    actionMenu_ = new QMenu(this);
    for (const QString& name : LVTimeLineItem::offeredNames()) {
        actionMenu_->addAction(name, this, [this, name] { addStep(name); });
    }
    addStep_ = new QToolButton;
    addStep_->setText(tr("Add Step"));
    addStep_->setMenu(actionMenu_);
    addStep_->setPopupMode(QToolButton::InstantPopup);
    removeStep_ = new QPushButton(tr("Remove Step"));
    connect(removeStep_, &QPushButton::clicked, this, &LVTimeLineWindow::removeSelectedStep);
    start_ = new QPushButton(tr("Start"));
    pause_ = new QPushButton(tr("Pause"));
    stop_ = new QPushButton(tr("Stop"));
    connect(start_, &QPushButton::clicked, this, [this] {
        if (LVTimeLine* timeLine = selectedTimeLine()) timeLine->setRunning(true);
    });
    connect(pause_, &QPushButton::clicked, this, [this] {
        if (LVTimeLine* timeLine = selectedTimeLine()) timeLine->setPaused(!timeLine->isPaused());
    });
    connect(stop_, &QPushButton::clicked, this, [this] {
        if (LVTimeLine* timeLine = selectedTimeLine()) timeLine->setRunning(false);
    });
    auto* stepButtons = new QHBoxLayout;
    for (QWidget* button : std::initializer_list<QWidget*>{addStep_, removeStep_}) stepButtons->addWidget(button);
    stepButtons->addStretch();
    for (QWidget* button : std::initializer_list<QWidget*>{start_, pause_, stop_}) stepButtons->addWidget(button);

    inspectorBox_ = new QGroupBox(tr("Inspector"));
    new QVBoxLayout(inspectorBox_);
    auto* right = new QWidget;
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->addWidget(items_, 1);
    rightLayout->addLayout(stepButtons);
    rightLayout->addWidget(inspectorBox_);

    auto* splitter = new QSplitter;
    splitter->addWidget(left);
    splitter->addWidget(right);
    splitter->setStretchFactor(1, 1);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(splitter);

    connect(timeLines_, &QListWidget::currentRowChanged, this, [this] {
        if (reloading_) return;
        watchTimeLine(selectedTimeLine());
        reloadItems();
    });
    connect(timeLines_, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
        if (reloading_) return;
        const int row = timeLines_->row(item);
        if (row >= 0 && size_t(row) < manager_.allTimeLines().size() && manager_.allTimeLines()[size_t(row)]->name() != item->text()) {
            manager_.allTimeLines()[size_t(row)]->setName(item->text());
        }
    });
    connect(items_, &QTableWidget::itemSelectionChanged, this, [this] {
        if (!reloading_) doUpdateInspector();
        refreshButtons();
    });
    connect(&manager_, &LVTimeLineManager::allTimeLinesChanged, this, &LVTimeLineWindow::reloadTimeLines);
    connect(&manager_, &LVTimeLineManager::timeLineChanged, this, [this](LVTimeLine* timeLine) {
        const auto& all = manager_.allTimeLines();
        for (size_t i = 0; i < all.size(); ++i) {
            QListWidgetItem* item = timeLines_->item(int(i));
            if (all[i].get() != timeLine || !item) continue;
            const bool wasReloading = std::exchange(reloading_, true);
            item->setText(timeLine->name());
            item->setIcon(iconNamed(*this, timeLine->statusIcon()));
            reloading_ = wasReloading;
        }
        refreshButtons();
    });
    reloadTimeLines();
}

void LVTimeLineWindow::show()
{
    QWidget::show();
    raise();
    activateWindow();
}

LVTimeLine* LVTimeLineWindow::selectedTimeLine() const
{
    const int row = timeLines_->currentRow();
    const auto& all = manager_.allTimeLines();
    return row >= 0 && size_t(row) < all.size() ? all[size_t(row)].get() : nullptr;
}

int LVTimeLineWindow::selectedStep() const
{
    const QList<QTableWidgetItem*> selected = items_->selectedItems();
    return selected.isEmpty() ? -1 : selected.first()->row();
}

void LVTimeLineWindow::selectTimeLine(int index)
{
    timeLines_->setCurrentRow(index);
}

void LVTimeLineWindow::selectStep(int index)
{
    if (index < 0) items_->clearSelection();
    else items_->selectRow(index);
}

void LVTimeLineWindow::doAdd()
{
    manager_.newTimeLine();
    selectTimeLine(int(manager_.allTimeLines().size()) - 1);
}

void LVTimeLineWindow::doDelete()
{
    LVTimeLine* timeLine = selectedTimeLine();
    if (!timeLine) return;
    watchTimeLine(nullptr);
    manager_.removeTimeLine(timeLine);
}

void LVTimeLineWindow::addStep(const QString& actionName)
{
    LVTimeLine* timeLine = selectedTimeLine();
    if (!timeLine) return;
    timeLine->addItemNamed(actionName);
    selectStep(int(timeLine->items().size()) - 1);
}

void LVTimeLineWindow::removeSelectedStep()
{
    if (LVTimeLine* timeLine = selectedTimeLine()) timeLine->removeItemAt(selectedStep());
}

void LVTimeLineWindow::watchTimeLine(LVTimeLine* timeLine)
{
    if (watched_) disconnect(watched_, nullptr, this, nullptr);
    watched_ = timeLine;
    if (!timeLine) return;
    connect(timeLine, &LVTimeLine::itemsChanged, this, &LVTimeLineWindow::reloadItems);
}

void LVTimeLineWindow::reloadTimeLines()
{
    const int selected = timeLines_->currentRow();
    reloading_ = true;
    timeLines_->clear();
    for (const auto& timeLine : manager_.allTimeLines()) {
        auto* item = new QListWidgetItem(iconNamed(*this, timeLine->statusIcon()), timeLine->name());
        item->setFlags(item->flags() | Qt::ItemIsEditable);
        timeLines_->addItem(item);
    }
    const int count = timeLines_->count();
    timeLines_->setCurrentRow(count == 0 ? -1 : std::min(std::max(selected, 0), count - 1));
    reloading_ = false;
    watchTimeLine(selectedTimeLine());
    reloadItems();
}

void LVTimeLineWindow::reloadItems()
{
    const int selected = selectedStep();
    reloading_ = true;
    items_->setRowCount(0);
    // Rows are rebuilt whenever the list changes; their connections go with them.
    delete rowContext_;
    rowContext_ = new QObject(this);
    LVTimeLine* timeLine = selectedTimeLine();
    if (timeLine) {
        items_->setRowCount(int(timeLine->items().size()));
        for (int row = 0; row < items_->rowCount(); ++row) {
            for (int column : {StatusColumn, NameColumn, DescriptionColumn}) items_->setItem(row, column, new QTableWidgetItem);
            refreshRow(row);
            if (LVTimeLineItem* item = timeLine->items()[size_t(row)]->impl()) {
                connect(item, &LVTimeLineItem::descriptionChanged, rowContext_, [this, row] { refreshRow(row); });
                connect(item, &LVTimeLineItem::statusImageChanged, rowContext_, [this, row] { refreshRow(row); });
            }
        }
    }
    if (selected >= 0 && selected < items_->rowCount()) items_->selectRow(selected);
    reloading_ = false;
    doUpdateInspector();
    refreshButtons();
}

void LVTimeLineWindow::refreshRow(int row)
{
    LVTimeLine* timeLine = selectedTimeLine();
    if (!timeLine || row < 0 || size_t(row) >= timeLine->items().size() || row >= items_->rowCount()) return;
    const LVTimeLineItemHolder& holder = *timeLine->items()[size_t(row)];
    const LVTimeLineItem* item = holder.impl();
    items_->item(row, StatusColumn)->setIcon(iconNamed(*this, item ? item->statusImage() : QString()));
    items_->item(row, NameColumn)->setText(holder.name());
    items_->item(row, DescriptionColumn)->setText(item ? item->description() : QString());
}

void LVTimeLineWindow::refreshButtons()
{
    LVTimeLine* timeLine = selectedTimeLine();
    for (QWidget* button : std::initializer_list<QWidget*>{addStep_, start_, pause_, stop_}) button->setEnabled(timeLine);
    removeStep_->setEnabled(timeLine && selectedStep() >= 0);
    pause_->setText(timeLine && timeLine->isPaused() ? tr("Resume") : tr("Pause"));
}

void LVTimeLineWindow::doUpdateInspector()
{
    delete inspector_;
    inspector_ = nullptr;
    LVTimeLine* timeLine = selectedTimeLine();
    const int step = selectedStep();
    if (!timeLine || step < 0 || size_t(step) >= timeLine->items().size()) return;
    LVTimeLineItem* item = timeLine->items()[size_t(step)]->impl();
    if (!item) return;
    inspector_ = new QWidget;
    auto* form = new QFormLayout(inspector_);
    for (const LVInspectorField& field : item->inspector(manager_)) {
        const QVariant value = item->attributes().valueForKey(field.key);
        switch (field.kind) {
        case LVInspectorField::MenuPicker: {
            auto* menu = new QComboBox;
            menu->addItems(field.items);
            menu->setCurrentIndex(int(field.items.indexOf(value.toString())));
            connect(menu, &QComboBox::activated, item, [item, menu, key = field.key] {
                item->attributes().setValueForKey(menu->currentText(), key);
            });
            form->addRow(field.label, menu);
            break;
        }
        case LVInspectorField::TextEditor: {
            auto* editor = new QLineEdit(value.toString());
            connect(editor, &QLineEdit::editingFinished, item, [this, item, editor, key = field.key] {
                const QVariant previous = item->attributes().valueForKey(key);
                if (editor->text() == previous.toString()) return;
                const QVariant typed = valueFromText(editor->text(), previous);
                LVValidationError error;
                if (!item->validateValueForKey(typed, key, &error)) {
                    editor->setText(previous.toString());
                    QMessageBox::warning(this, tr("Automation"), error.description);
                    return;
                }
                item->attributes().setValueForKey(typed, key);
            });
            form->addRow(field.label, editor);
            break;
        }
        case LVInspectorField::BooleanEditor: {
            auto* box = new QCheckBox(field.label);
            box->setChecked(value.toBool());
            connect(box, &QCheckBox::toggled, item, [item, key = field.key](bool on) { item->attributes().setValueForKey(on, key); });
            form->addRow(box);
            break;
        }
        case LVInspectorField::Text: form->addRow(new QLabel(field.label)); break;
        }
    }
    inspectorBox_->layout()->addWidget(inspector_);
}
