#include "gui/main/LVChainRowDelegate.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QStyle>

namespace {

constexpr int kButtonSide = 16;
constexpr int kButtonMargin = 4;

} // namespace

QRect LVChainRowDelegate::closeButtonRect(const QRect& rowRect)
{
    return QRect(rowRect.right() - kButtonMargin - kButtonSide + 1, rowRect.center().y() - kButtonSide / 2 + 1,
                 kButtonSide, kButtonSide);
}

void LVChainRowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QStyleOptionViewItem text = option;
    // Keep the name clear of the button.
    text.rect.setRight(option.rect.right() - kButtonSide - 2 * kButtonMargin);
    QStyledItemDelegate::paint(painter, text, index);
    const QStyle* style = option.widget ? option.widget->style() : QApplication::style();
    const QIcon close = style->standardIcon(QStyle::SP_TitleBarCloseButton, &option, option.widget);
    close.paint(painter, closeButtonRect(option.rect));
}

QSize LVChainRowDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const QSize size = QStyledItemDelegate::sizeHint(option, index);
    return QSize(size.width() + kButtonSide + 2 * kButtonMargin, std::max(size.height(), kButtonSide + 2));
}

bool LVChainRowDelegate::editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                                     const QModelIndex& index)
{
    const bool onButton = (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::MouseButtonRelease ||
                           event->type() == QEvent::MouseButtonDblClick) &&
                          closeButtonRect(option.rect).contains(static_cast<QMouseEvent*>(event)->position().toPoint());
    if (!onButton) return QStyledItemDelegate::editorEvent(event, model, option, index);
    // The press is swallowed too, so the click neither selects nor starts a drag.
    if (event->type() == QEvent::MouseButtonRelease && static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton)
        emit removeClicked(index.row());
    return true;
}
