#include "gui/sources/LVPlaylistModel.h"

#include "gui/main/LVSettingsPanel.h"
#include "gui/sources/LVFlickrPhotoModel.h"
#include "sources/flickr/FlickrSource.h"
#include "sources/movie/MovieSource.h"
#include "sources/slideshow/SlideShow.h"

#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QMimeData>
#include <QSlider>
#include <QTableView>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>

LVPlaylistModel::LVPlaylistModel(std::shared_ptr<MovieSource> source, QObject* parent)
    : QAbstractTableModel(parent), source_(source)
{
}

int LVPlaylistModel::rowCount(const QModelIndex& parent) const
{
    const auto source = source_.lock();
    return parent.isValid() || !source ? 0 : int(source->playlist().size());
}

int LVPlaylistModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : 3;
}

QVariant LVPlaylistModel::data(const QModelIndex& index, int role) const
{
    const auto source = source_.lock();
    if (!source || role != Qt::DisplayRole || index.row() >= int(source->playlist().size())) return {};
    const LVMovieFile& file = source->playlist()[size_t(index.row())];
    switch (index.column()) {
    case 0: return file.caption();
    case 1: return file.inPoint;
    default: return file.outPoint;
    }
}

QVariant LVPlaylistModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    const char* titles[] = {"Movie", "In", "Out"};
    return section >= 0 && section < 3 ? tr(titles[section]) : QVariant();
}

Qt::ItemFlags LVPlaylistModel::flags(const QModelIndex& index) const
{
    const Qt::ItemFlags base = QAbstractTableModel::flags(index) | Qt::ItemIsDropEnabled;
    return index.isValid() ? base | Qt::ItemIsDragEnabled : base;
}

QStringList LVPlaylistModel::mimeTypes() const
{
    return {QLatin1String(LVRowReorderDataType), QStringLiteral("text/uri-list")};
}

QMimeData* LVPlaylistModel::mimeData(const QModelIndexList& indexes) const
{
    std::vector<int> rows;
    for (const QModelIndex& index : indexes)
        if (std::find(rows.begin(), rows.end(), index.row()) == rows.end()) rows.push_back(index.row());
    std::sort(rows.begin(), rows.end());
    QByteArray encoded;
    for (int row : rows) encoded += QByteArray::number(row) + ' ';
    auto* data = new QMimeData;
    data->setData(QLatin1String(LVRowReorderDataType), encoded.trimmed());
    return data;
}

bool LVPlaylistModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column, const QModelIndex& parent)
{
    (void)action;
    (void)column;
    const auto source = source_.lock();
    if (!source || !data) return false;
    const int count = int(source->playlist().size());
    if (row < 0) row = parent.isValid() ? parent.row() : count;
    if (data->hasFormat(QLatin1String(LVRowReorderDataType))) {
        std::vector<int> rows;
        for (const QByteArray& part : data->data(QLatin1String(LVRowReorderDataType)).split(' ')) {
            bool ok = false;
            const int r = part.toInt(&ok);
            if (ok && r >= 0 && r < count) rows.push_back(r);
        }
        if (rows.empty()) return false;
        beginResetModel();
        source->moveRows(rows, row);
        endResetModel();
        return true;
    }
    if (!data->hasUrls()) return false;
    std::vector<int> added;
    for (const QUrl& url : data->urls()) {
        if (!url.isLocalFile()) continue;
        source->addMoviePathToPlayList(url.toLocalFile());
        added.push_back(int(source->playlist().size()) - 1);
    }
    if (added.empty()) return false;
    beginResetModel();
    source->moveRows(added, row);
    endResetModel();
    return true;
}

void LVPlaylistModel::removeEntry(int row)
{
    const auto source = source_.lock();
    if (!source || row < 0 || row >= int(source->playlist().size())) return;
    beginRemoveRows({}, row, row);
    source->removeRow(row);
    endRemoveRows();
}

LVSlideListModel::LVSlideListModel(std::shared_ptr<SlideShow> show, QObject* parent) : QAbstractListModel(parent), show_(show) {}

int LVSlideListModel::rowCount(const QModelIndex& parent) const
{
    const auto show = show_.lock();
    return parent.isValid() || !show ? 0 : int(show->files().size());
}

QVariant LVSlideListModel::data(const QModelIndex& index, int role) const
{
    const auto show = show_.lock();
    if (!show || role != Qt::DisplayRole || index.row() >= int(show->files().size())) return {};
    return show->files()[size_t(index.row())].name;
}

Qt::ItemFlags LVSlideListModel::flags(const QModelIndex& index) const
{
    return QAbstractListModel::flags(index) | Qt::ItemIsDropEnabled;
}

bool LVSlideListModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column, const QModelIndex& parent)
{
    (void)action;
    (void)row;
    (void)column;
    (void)parent;
    const auto show = show_.lock();
    if (!show || !data || !data->hasUrls()) return false;
    QStringList paths;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile()) paths << url.toLocalFile();
    beginResetModel();
    const bool taken = show->dropFiles(paths);
    endResetModel();
    return taken;
}

void LVSlideListModel::reload()
{
    beginResetModel();
    endResetModel();
}

namespace {

// Delete keys reach the list's owner as the characters the show knows.
class LVDeleteKeyFilter : public QObject {
public:
    LVDeleteKeyFilter(std::function<void(int character)> handler, QObject* parent) : QObject(parent), handler_(std::move(handler)) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::KeyPress) {
            const int key = static_cast<QKeyEvent*>(event)->key();
            const int character = key == Qt::Key_Backspace ? 127 : key == Qt::Key_Delete ? 63272 : key == Qt::Key_Clear ? 63294 : 0;
            if (character) {
                handler_(character);
                return true;
            }
        }
        return QObject::eventFilter(watched, event);
    }

private:
    std::function<void(int)> handler_;
};

QWidget* movieInspector(const LVEffectRef& effect, QWidget* parent)
{
    auto source = std::dynamic_pointer_cast<MovieSource>(effect);
    auto* page = new QWidget(parent);
    auto* layout = new QVBoxLayout(page);
    auto* table = new QTableView(page);
    table->setObjectName(QStringLiteral("playlistTable"));
    auto* model = new LVPlaylistModel(source, table);
    table->setModel(model);
    table->setDragEnabled(true);
    table->setAcceptDrops(true);
    table->setDropIndicatorShown(true);
    table->setDragDropMode(QAbstractItemView::DragDrop);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->installEventFilter(new LVDeleteKeyFilter([table, model](int) {
        if (table->currentIndex().isValid()) model->removeEntry(table->currentIndex().row());
    }, table));
    QObject::connect(table, &QTableView::doubleClicked, table, [source](const QModelIndex& index) { source->playFromPlaylist(index.row()); });
    layout->addWidget(table);
    // Position, in and out: 0 to 1000 of the current movie.
    const auto slider = [&](const char* name, const QString& label) {
        auto* row = new QSlider(Qt::Horizontal, page);
        row->setObjectName(QLatin1String(name));
        row->setRange(0, 1000);
        layout->addWidget(new QLabel(label, page));
        layout->addWidget(row);
        return row;
    };
    QSlider* position = slider("positionSlider", QObject::tr("Position"));
    QSlider* in = slider("inSlider", QObject::tr("In"));
    QSlider* out = slider("outSlider", QObject::tr("Out"));
    QObject::connect(position, &QSlider::sliderPressed, position, [source] { source->positionDragStarted(); });
    QObject::connect(position, &QSlider::sliderMoved, position, [source](int v) { source->positionDragMoved(v); });
    QObject::connect(position, &QSlider::sliderReleased, position, [source, position] { source->positionDragEnded(position->value()); });
    for (QSlider* edge : {in, out}) {
        QObject::connect(edge, &QSlider::sliderPressed, edge, [source] { source->inOutDragStarted(); });
        QObject::connect(edge, &QSlider::sliderMoved, edge, [source](int v) { source->inOutDragMoved(v); });
        QObject::connect(edge, &QSlider::sliderReleased, edge, [source, edge, out, model] {
            source->inOutDragEnded(edge == out, edge->value());
            emit model->dataChanged(model->index(0, 1), model->index(model->rowCount() - 1, 2));
        });
    }
    return page;
}

QWidget* slideInspector(const LVEffectRef& effect, QWidget* parent)
{
    auto show = std::dynamic_pointer_cast<SlideShow>(effect);
    auto* list = new QListView(parent);
    list->setObjectName(QStringLiteral("slideList"));
    auto* model = new LVSlideListModel(show, list);
    list->setModel(model);
    list->setAcceptDrops(true);
    list->setDragDropMode(QAbstractItemView::DropOnly);
    QObject::connect(list->selectionModel(), &QItemSelectionModel::currentRowChanged, list,
                     [show](const QModelIndex& current) { show->selectRow(current.row()); });
    list->installEventFilter(new LVDeleteKeyFilter([show, list, model](int character) {
        show->deleteKeyPressed(character, list->currentIndex().isValid() ? list->currentIndex().row() : -1);
        model->reload();
    }, list));
    return list;
}

} // namespace

void LVRegisterSourceInspectors()
{
    LVSettingsPanel::registerInspector(MovieSource::classDescriptor().className, &movieInspector);
    LVSettingsPanel::registerInspector(SlideShow::classDescriptor().className, &slideInspector);
    LVSettingsPanel::registerInspector(FlickrSource::classDescriptor().className, [](const LVEffectRef& effect, QWidget* parent) {
        return LVMakeFlickrInspector(std::dynamic_pointer_cast<FlickrSource>(effect), parent);
    });
}
