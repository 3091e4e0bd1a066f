#pragma once
// Draws each row of the chain with a close button at its right end; a click on it asks
// for that row to be removed.
#include <QStyledItemDelegate>

class LVChainRowDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // Where the close button of a row drawn in rowRect lies.
    static QRect closeButtonRect(const QRect& rowRect);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;

signals:
    void removeClicked(int row);
};
