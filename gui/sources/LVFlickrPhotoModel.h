#pragma once
// The photo set's photos as a table: number and title per row, the photo on show selected.
// Picking a row shows that photo next; the show's own advance moves the selection without
// counting as a pick.
#include <QAbstractTableModel>

#include <cstdint>
#include <memory>

class FlickrSource;
class QTableView;

class LVFlickrPhotoModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { NumberColumn, TitleColumn, PhotoColumn, ColumnCount };

    LVFlickrPhotoModel(std::shared_ptr<FlickrSource> source, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    // Re-reads the list when the source filled or emptied it, and selects the photo on show
    // in table. Photos arrive from the service on their own time: the inspector calls this
    // a few times a second.
    void sync(QTableView* table);

private:
    std::weak_ptr<FlickrSource> source_;
    uint64_t generation_ = 0;
    int shownRow_ = -1;
};

// The photo set's inspector part: the photo table under the set's editors.
QWidget* LVMakeFlickrInspector(const std::shared_ptr<FlickrSource>& source, QWidget* parent);
