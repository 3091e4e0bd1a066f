#include "gui/main/LVChainModel.h"

#include "core/Lumaveil.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMimeData>
#include <QUrl>

#include <set>

namespace {

QStringList localFiles(const QMimeData* data)
{
    QStringList files;
    if (!data->hasUrls()) return files;
    for (const QUrl& url : data->urls()) {
        if (url.isLocalFile()) files.append(url.toLocalFile());
    }
    return files;
}

// The drop row as the chain table sees it: on an item means before it, nowhere means the end.
int dropRow(int row, const QModelIndex& parent, int count)
{
    if (row >= 0) return row;
    if (parent.isValid()) return parent.row();
    return count;
}

} // namespace

LVChainModel::LVChainModel(Lumaveil& lumaveil, QObject* parent) : QAbstractListModel(parent), lumaveil_(lumaveil)
{
    connect(&lumaveil_, &Lumaveil::chainChanged, this, [this] {
        beginResetModel();
        endResetModel();
    });
}

int LVChainModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(lumaveil_.liveEffects().size());
}

QVariant LVChainModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount()) return {};
    const auto& effect = lumaveil_.liveEffects()[size_t(index.row())];
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return effect->displayName();
    case Qt::CheckStateRole:
        return effect->isEnabled() ? Qt::Checked : Qt::Unchecked;
    case Qt::ToolTipRole:
        return effect->isSource() ? tr("Source") : tr("Effect");
    default:
        return {};
    }
}

bool LVChainModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (!index.isValid() || index.row() >= rowCount()) return false;
    if (role == Qt::CheckStateRole) {
        lumaveil_.setEffectEnabled(index.row(), value.toInt() == Qt::Checked);
        return true;
    }
    if (role == Qt::EditRole) {
        const QString name = value.toString().trimmed();
        if (name.isEmpty()) return false;
        lumaveil_.liveEffects()[size_t(index.row())]->setDisplayName(name);
        emit dataChanged(index, index);
        return true;
    }
    return false;
}

Qt::ItemFlags LVChainModel::flags(const QModelIndex& index) const
{
    if (!index.isValid()) return Qt::ItemIsDropEnabled;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable | Qt::ItemIsEditable |
                          Qt::ItemIsDropEnabled;
    // The source stays first.
    if (!(index.row() == 0 && lumaveil_.firstEffectIsSource())) flags |= Qt::ItemIsDragEnabled;
    return flags;
}

QStringList LVChainModel::mimeTypes() const
{
    return {QString::fromLatin1(LVEffectDragType), QStringLiteral("text/uri-list")};
}

QMimeData* LVChainModel::mimeData(const QModelIndexList& indexes) const
{
    std::set<int> rows;
    for (const QModelIndex& index : indexes) {
        if (index.row() == 0 && lumaveil_.firstEffectIsSource()) return nullptr;
        rows.insert(index.row());
    }
    QJsonArray list;
    for (int row : rows) list.append(row);
    auto* data = new QMimeData;
    const QJsonObject archive{{QStringLiteral("class"), QStringLiteral("NSIndexSet")},
                              {QStringLiteral("indexes"), list}};
    data->setData(QString::fromLatin1(LVEffectDragType), QJsonDocument(archive).toJson(QJsonDocument::Compact));
    return data;
}

std::vector<int> LVChainModel::rowsFromMimeData(const QMimeData* data)
{
    std::vector<int> rows;
    const QByteArray bytes = data->data(QString::fromLatin1(LVEffectDragType));
    if (bytes.isEmpty()) return rows;
    const QJsonArray list = QJsonDocument::fromJson(bytes).object().value(QStringLiteral("indexes")).toArray();
    for (const QJsonValue& value : list) {
        if (value.isDouble()) rows.push_back(value.toInt());
    }
    return rows;
}

bool LVChainModel::canDropMimeData(const QMimeData* data, Qt::DropAction, int, int, const QModelIndex&) const
{
    return !localFiles(data).isEmpty() || !rowsFromMimeData(data).empty();
}

bool LVChainModel::dropMimeData(const QMimeData* data, Qt::DropAction, int row, int, const QModelIndex& parent)
{
    const int r = dropRow(row, parent, rowCount());
    return lumaveil_.acceptDrop(localFiles(data), rowsFromMimeData(data), r);
}

Qt::DropActions LVChainModel::supportedDropActions() const
{
    return Qt::CopyAction | Qt::MoveAction;
}

Qt::DropActions LVChainModel::supportedDragActions() const
{
    // The controller moves the rows itself; the view must not remove them afterwards.
    return Qt::CopyAction;
}
