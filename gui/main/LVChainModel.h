#pragma once
// The live chain as a list: names, enabled check boxes, drags of rows (never the source in
// row 0) under the chain's drag type, and drops of rows or files.
#include <QAbstractListModel>

#include <vector>

class Lumaveil;

class LVChainModel : public QAbstractListModel {
    Q_OBJECT
public:
    explicit LVChainModel(Lumaveil& lumaveil, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                         const QModelIndex& parent) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;
    Qt::DropActions supportedDropActions() const override;
    Qt::DropActions supportedDragActions() const override;

    // The dragged row indexes as the drag type carries them; empty when not that type.
    static std::vector<int> rowsFromMimeData(const QMimeData* data);

private:
    Lumaveil& lumaveil_;
};
