#include "gui/sources/LVFlickrPhotoModel.h"

#include "sources/flickr/FlickrSource.h"

#include <QHeaderView>
#include <QItemSelectionModel>
#include <QSignalBlocker>
#include <QTableView>
#include <QTimer>

namespace {

// How often the table looks for new photos and the photo on show.
constexpr int kSyncMs = 250;

} // namespace

LVFlickrPhotoModel::LVFlickrPhotoModel(std::shared_ptr<FlickrSource> source, QObject* parent)
    : QAbstractTableModel(parent), source_(source), generation_(source ? source->photosGeneration() : 0)
{
}

int LVFlickrPhotoModel::rowCount(const QModelIndex& parent) const
{
    const auto source = source_.lock();
    return parent.isValid() || !source ? 0 : int(source->photos().size());
}

int LVFlickrPhotoModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant LVFlickrPhotoModel::data(const QModelIndex& index, int role) const
{
    const auto source = source_.lock();
    if (!source || !index.isValid() || index.row() >= int(source->photos().size())) return {};
    const LVFlickrPhoto& photo = source->photos()[size_t(index.row())];
    if (role == Qt::ToolTipRole) return photo.url();
    if (role != Qt::DisplayRole) return {};
    switch (index.column()) {
    case NumberColumn:
        return index.row() + 1;
    case TitleColumn:
        return photo.title;
    case PhotoColumn:
        return photo.eyeD;
    default:
        return {};
    }
}

QVariant LVFlickrPhotoModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case NumberColumn:
        return tr("#");
    case TitleColumn:
        return tr("Title");
    case PhotoColumn:
        return tr("Photo");
    default:
        return {};
    }
}

void LVFlickrPhotoModel::sync(QTableView* table)
{
    const auto source = source_.lock();
    if (!source) return;
    if (source->photosGeneration() != generation_) {
        generation_ = source->photosGeneration();
        beginResetModel();
        endResetModel();
        shownRow_ = -1;
    }
    const int row = source->selectedRow();
    if (row == shownRow_ || row >= rowCount()) return;
    shownRow_ = row;
    // The show moved on by itself: not a pick, so the source is not told.
    const QSignalBlocker blocker(table->selectionModel());
    if (row < 0) {
        table->clearSelection();
    } else {
        table->selectRow(row);
        table->scrollTo(index(row, 0));
    }
    table->viewport()->update();
}

QWidget* LVMakeFlickrInspector(const std::shared_ptr<FlickrSource>& source, QWidget* parent)
{
    auto* table = new QTableView(parent);
    table->setObjectName(QStringLiteral("photosTable"));
    auto* model = new LVFlickrPhotoModel(source, table);
    table->setModel(model);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->verticalHeader()->hide();
    table->horizontalHeader()->setSectionResizeMode(LVFlickrPhotoModel::TitleColumn, QHeaderView::Stretch);
    std::weak_ptr<FlickrSource> weak = source;
    QObject::connect(table->selectionModel(), &QItemSelectionModel::currentRowChanged, table, [weak](const QModelIndex& current) {
        if (const auto source = weak.lock()) source->tableViewSelectionDidChange(current.row());
    });
    auto* timer = new QTimer(table);
    QObject::connect(timer, &QTimer::timeout, table, [model, table] { model->sync(table); });
    timer->start(kSyncMs);
    model->sync(table);
    return table;
}
