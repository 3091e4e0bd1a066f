#include "gui/studio/LVIconView.h"

#include "core/Lumaveil.h"
#include "core/util/LVLog.h"
#include "gui/studio/LVStudioButtonView.h"
#include "studio/LVMEBus.h"
#include "studio/LVStudio.h"

#include <QDragEnterEvent>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace {

const QColor kDropColor(50, 169, 5);

QStringList localFiles(const QMimeData* data)
{
    QStringList files;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile()) files.append(url.toLocalFile());
    return files;
}

} // namespace

LVIconView::LVIconView(Lumaveil& app, LVStudio& studio, QWidget* parent) : QWidget(parent), app_(app), studio_(studio)
{
    setAcceptDrops(true);
    setMinimumSize(wantedSize());
}

LVIconView::~LVIconView()
{
    if (bus_) bus_->disconnect(this);
    for (LVStudioButtonView* view : views_)
        if (view->button()) view->button()->disconnect(this);
}

LVGridCell LVIconView::cellAt(QPointF point)
{
    // Truncated toward zero, as the integer division it stands for.
    return {int(std::trunc((point.y() - margin) / hitDivisor)), int(std::trunc((point.x() - margin) / hitDivisor))};
}

QSize LVIconView::wantedSize() const
{
    int maxRow = 0, maxCol = 0;
    for (const LVStudioButtonView* view : views_) {
        maxRow = std::max(maxRow, view->button()->row());
        maxCol = std::max(maxCol, view->button()->col());
    }
    const QPoint corner = cellOrigin(maxRow + 2, maxCol + 2);
    return {corner.x(), corner.y()};
}

void LVIconView::setBus(LVMEBus* bus)
{
    if (bus_) bus_->disconnect(this);
    clear();
    bus_ = bus;
    dropTarget_ = {};
    if (!bus_) return;
    for (const LVStudioButtonRef& button : bus_->buttons()) addOneButton(button.get());
    connect(bus_, &LVMEBus::buttonAdded, this, &LVIconView::addOneButton);
    connect(bus_, &LVMEBus::buttonRemoved, this, &LVIconView::removeOneButton);
}

void LVIconView::addOneButton(LVStudioButton* button)
{
    LVStudioButtonRef ref = studio_.buttonHavingUID(button->uid());
    if (!ref) {
        for (const LVStudioButtonRef& candidate : bus_->buttons())
            if (candidate.get() == button) ref = candidate;
    }
    if (!ref) return;
    auto* view = new LVStudioButtonView(*this);
    view->setModel(ref);
    views_.push_back(view);
    placeButton(view);
    view->show();
    connect(button, &LVStudioButton::locationChanged, view, [this, view] { placeButton(view); });
}

void LVIconView::removeOneButton(LVStudioButton* button)
{
    const auto it = std::find_if(views_.begin(), views_.end(),
                                 [button](LVStudioButtonView* view) { return view->button().get() == button; });
    if (it == views_.end()) return;
    LVStudioButtonView* view = *it;
    views_.erase(it);
    button->disconnect(view);
    view->hide();
    // The removal may come from the view's own menu action, still running.
    view->deleteLater();
    requestResize();
}

void LVIconView::clear()
{
    for (auto it = views_.rbegin(); it != views_.rend(); ++it) {
        (*it)->button()->disconnect(*it);
        (*it)->hide();
        (*it)->deleteLater();
    }
    views_.clear();
    requestResize();
}

void LVIconView::placeButton(LVStudioButtonView* view)
{
    const LVStudioButtonRef& button = view->button();
    view->setGeometry(QRect(cellOrigin(button->row(), button->col()), QSize(cellSize, cellSize)));
    requestResize();
}

void LVIconView::requestResize()
{
    if (resizePending_) return;
    resizePending_ = true;
    // Once at the end of this pass, however many buttons were placed.
    QTimer::singleShot(0, this, [this] {
        resizePending_ = false;
        const QSize wanted = wantedSize();
        setMinimumSize(wanted);
        resize(size().expandedTo(wanted));
    });
}

LVStudioButtonView* LVIconView::itemAtRow(int row, int col) const
{
    for (auto it = views_.rbegin(); it != views_.rend(); ++it)
        if ((*it)->button()->row() == row && (*it)->button()->col() == col) return *it;
    return nullptr;
}

LVStudioButtonView* LVIconView::buttonViewHavingUID(const QString& uid) const
{
    for (LVStudioButtonView* view : views_)
        if (view->button()->uid() == uid) return view;
    return nullptr;
}

void LVIconView::doToggle(LVStudioButtonView* view, Qt::KeyboardModifiers modifiers)
{
    if (modifiers & Qt::AltModifier) {
        view->button()->doOptionToggle();
    } else {
        view->button()->doNormalToggle();
    }
}

void LVIconView::paintEvent(QPaintEvent* event)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRect area = event->rect();
    for (int col = 0; cellOrigin(0, col).x() <= area.right(); ++col) {
        for (int row = 0; cellOrigin(row, 0).y() <= area.bottom(); ++row) {
            const QPoint origin = cellOrigin(row, col);
            if (origin.x() < area.left() - cellSize || origin.y() < area.top() - cellSize) continue;
            const QRectF cell = QRectF(QRect(origin, QSize(cellSize, cellSize))).adjusted(5, 5, -5, -5);
            QPen pen;
            if (LVGridCell{row, col} == dropTarget_) {
                pen = QPen(kDropColor, 3);
            } else {
                pen = QPen(Qt::lightGray, 1);
                pen.setDashPattern(row == 0 ? QList<qreal>{2, 2} : QList<qreal>{6, 4});
            }
            painter.setPen(pen);
            painter.setBrush(Qt::NoBrush);
            painter.drawRoundedRect(cell, 5, 5);
        }
    }
    if (dropTarget_.row >= 0 && itemAtRow(dropTarget_.row, dropTarget_.col)) {
        const QPoint origin = cellOrigin(dropTarget_.row, dropTarget_.col);
        painter.fillRect(QRect(origin.x() - 3, origin.y(), 2, cellSize), kDropColor);
    }
}

void LVIconView::setDropTarget(LVGridCell cell)
{
    if (cell == dropTarget_) return;
    dropTarget_ = cell;
    update();
}

void LVIconView::dragEnterEvent(QDragEnterEvent* event)
{
    const QMimeData* data = event->mimeData();
    if (data->hasFormat(QString::fromLatin1(LVStudioButtonDragType))) {
        setDropTarget({});
        event->setDropAction(Qt::MoveAction);
        event->accept();
    } else if (!localFiles(data).isEmpty()) {
        event->setDropAction(Qt::CopyAction);
        event->accept();
    } else {
        event->ignore();
    }
}

void LVIconView::dragMoveEvent(QDragMoveEvent* event)
{
    const LVGridCell cell = cellAt(event->position());
    if (cell.row < 0 || cell.col < 0 || itemAtRow(cell.row, cell.col)) {
        setDropTarget({});
        event->ignore();
        return;
    }
    const QMimeData* data = event->mimeData();
    if (!data->hasFormat(QString::fromLatin1(LVStudioButtonDragType))) {
        if (localFiles(data).isEmpty()) {
            event->ignore();
            return;
        }
        setDropTarget(cell);
        event->setDropAction(Qt::CopyAction);
        event->accept();
        return;
    }
    const QString uid = LVStudioButton::uidFromDragData(data->data(QString::fromLatin1(LVStudioButtonDragType)));
    LVStudioButtonView* dragged = buttonViewHavingUID(uid);
    if (!dragged) {
        setDropTarget({});
        event->ignore();
        return;
    }
    // Alt at the drag's start offers only a copy.
    const Qt::DropAction action = event->possibleActions() == Qt::CopyAction ? Qt::CopyAction : Qt::MoveAction;
    // Sources live in row 0, effect-only buttons below it.
    const bool allowed = dragged->button()->hasVideoSource() ? cell.row == 0 : cell.row >= 1;
    if (!allowed) {
        setDropTarget({});
        event->ignore();
        return;
    }
    setDropTarget(cell);
    event->setDropAction(action);
    event->accept();
}

void LVIconView::dragLeaveEvent(QDragLeaveEvent*)
{
    setDropTarget({});
}

void LVIconView::dropEvent(QDropEvent* event)
{
    const LVGridCell cell = dropTarget_;
    const QMimeData* data = event->mimeData();
    if (cell.row >= 0) {
        if (data->hasFormat(QString::fromLatin1(LVStudioButtonDragType))) {
            const QString uid = LVStudioButton::uidFromDragData(data->data(QString::fromLatin1(LVStudioButtonDragType)));
            if (LVStudioButtonView* dragged = buttonViewHavingUID(uid))
                dropButton(dragged->button(), event->dropAction() == Qt::CopyAction, cell);
        } else {
            dropFiles(localFiles(data), cell);
        }
    }
    setDropTarget({});
    update();
    event->accept();
}

void LVIconView::dropFiles(const QStringList& files, LVGridCell cell)
{
    const LVEffectRef effect = app_.quickEffectFromFiles(files, cell.row == 0);
    if (!effect) return;
    const LVStudioButtonRef button = studio_.makeNewButton();
    if (!button) return;
    button->effects();
    button->addEffect(effect, -1);
    button->persist();
    button->setRow(cell.row, cell.col);
}

void LVIconView::dropButton(const LVStudioButtonRef& button, bool copy, LVGridCell cell)
{
    if (!copy) {
        button->setRow(cell.row, cell.col);
        return;
    }
    const LVStudioButtonRef duplicate = button->doDuplicate();
    if (!duplicate) return;
    if (bus_) bus_->addButton(duplicate, true);
    duplicate->setRow(cell.row, cell.col);
}
