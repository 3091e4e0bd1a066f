#pragma once
// The Movie source's playlist as a table: caption, in and out point per entry. Rows are
// reordered by dragging (private type "LVRowReorderDataType"), and dropped files are added
// where they fall.
#include <QAbstractTableModel>

#include <memory>

class MovieSource;

inline constexpr const char* LVRowReorderDataType = "LVRowReorderDataType";

class LVPlaylistModel : public QAbstractTableModel {
    Q_OBJECT
public:
    LVPlaylistModel(std::shared_ptr<MovieSource> source, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    Qt::DropActions supportedDropActions() const override { return Qt::MoveAction | Qt::CopyAction; }
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column, const QModelIndex& parent) override;
    // Forward delete and backspace remove the row.
    void removeEntry(int row);

private:
    std::weak_ptr<MovieSource> source_;
};

// The slide list: one name per row; drops of files go through the show's own rules.
class SlideShow;
class LVSlideListModel : public QAbstractListModel {
    Q_OBJECT
public:
    LVSlideListModel(std::shared_ptr<SlideShow> show, QObject* parent = nullptr);
    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    Qt::DropActions supportedDropActions() const override { return Qt::CopyAction | Qt::MoveAction | Qt::LinkAction; }
    QStringList mimeTypes() const override { return {QStringLiteral("text/uri-list")}; }
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column, const QModelIndex& parent) override;
    // Re-reads the show's list.
    void reload();

private:
    std::weak_ptr<SlideShow> show_;
};

// Registers the playlist, slide list and photo set inspectors with the settings panel.
void LVRegisterSourceInspectors();
