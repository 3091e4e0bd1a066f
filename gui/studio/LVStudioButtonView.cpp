#include "gui/studio/LVStudioButtonView.h"

#include "gui/studio/LVButtonEditController.h"
#include "gui/studio/LVIconView.h"
#include "setups/model/LVSavedSetup.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QDrag>
#include <QFileInfo>
#include <QImageReader>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QPushButton>

LVStudioButtonView::LVStudioButtonView(LVIconView& grid) : QWidget(&grid), grid_(grid)
{
    setFixedSize(LVIconView::cellSize, LVIconView::cellSize);
    setAcceptDrops(true);
    setAttribute(Qt::WA_Hover);
}

LVStudioButtonView::~LVStudioButtonView()
{
    if (!editor_) return;
    editor_->close();
    delete editor_;
}

void LVStudioButtonView::setModel(const LVStudioButtonRef& button)
{
    if (button_) {
        button_->disconnect(this);
        button_->setup()->disconnect(this);
    }
    button_ = button;
    if (!button_) return;
    setObjectName(button_->name());
    icon_ = button_->setup()->icon();
    connect(button_.get(), &LVStudioButton::stateChanged, this, [this] { update(); });
    connect(button_.get(), &LVStudioButton::nameChanged, this, [this] {
        setObjectName(button_->name());
        update();
    });
    connect(button_->setup().get(), &LVSavedSetup::iconChanged, this, [this] {
        icon_ = button_->setup()->icon();
        update();
    });
    update();
}

void LVStudioButtonView::paintEvent(QPaintEvent*)
{
    if (!button_) return;
    QPainter painter(this);
    const QRect inset = rect().adjusted(1, 1, -1, -1);
    const uint32_t state = button_->state();
    QColor colour = button_->color();
    if (state != LVButtonIdle) {
        colour.setAlphaF(0.25f);
        painter.fillRect(inset, colour);
    }
    QFont font = QApplication::font();
    font.setPointSizeF(9);
    const QFontMetrics metrics(font);
    const QRect band(inset.left(), inset.bottom() + 1 - metrics.height(), inset.width(), metrics.height());
    if (!icon_.isNull()) {
        const QRect above(inset.left(), inset.top(), inset.width(), band.top() - inset.top());
        const QSize fitted = icon_.size().scaled(above.size(), Qt::KeepAspectRatio);
        const QRect target(above.center().x() - fitted.width() / 2 + 1, above.center().y() - fitted.height() / 2 + 1,
                           fitted.width(), fitted.height());
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(target, icon_);
    }
    colour.setAlphaF(state != LVButtonIdle ? 1.0f : 0.5f);
    painter.fillRect(band, colour);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(band, Qt::AlignHCenter | Qt::AlignVCenter,
                     metrics.elidedText(button_->name(), Qt::ElideMiddle, band.width()));
}

void LVStudioButtonView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    tracking_ = true;
    pressPoint_ = event->position().toPoint();
}

void LVStudioButtonView::mouseMoveEvent(QMouseEvent* event)
{
    if (!tracking_) return;
    // A click is tracked within 5 by 5 points around the press; further is a drag.
    const QRect clickSquare(pressPoint_.x() - 2, pressPoint_.y() - 2, 5, 5);
    if (clickSquare.contains(event->position().toPoint())) return;
    tracking_ = false;
    startDrag(event->modifiers());
}

void LVStudioButtonView::mouseReleaseEvent(QMouseEvent* event)
{
    if (!tracking_ || event->button() != Qt::LeftButton) return;
    tracking_ = false;
    grid_.doToggle(this, event->modifiers());
}

QPixmap LVStudioButtonView::dragImage()
{
    QPixmap image(LVIconView::cellSize, LVIconView::cellSize);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setOpacity(0.5);
    painter.drawPixmap(0, 0, grab());
    return image;
}

void LVStudioButtonView::startDrag(Qt::KeyboardModifiers modifiers)
{
    auto* data = new QMimeData;
    data->setData(QString::fromLatin1(LVStudioButtonDragType), button_->dragData());
    auto* drag = new QDrag(this);
    drag->setMimeData(data);
    drag->setPixmap(dragImage());
    drag->setHotSpot(pressPoint_);
    // Alt offers only a copy: the grid reads that as "duplicate here".
    drag->exec((modifiers & Qt::AltModifier) ? Qt::CopyAction : Qt::MoveAction);
}

QMenu* LVStudioButtonView::makeContextMenu()
{
    auto* menu = new QMenu(tr("Menu"), this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    connect(menu->addAction(tr("Edit...")), &QAction::triggered, this, [this] { doEdit(); });
    connect(menu->addAction(tr("Snapshot Icon")), &QAction::triggered, this, [this] { button_->snapshot(); });
    connect(menu->addAction(tr("Duplicate Button")), &QAction::triggered, this, [this] { button_->doDuplicate(); });
    connect(menu->addAction(tr("Delete Button")), &QAction::triggered, this, [this] { doDeleteAsking(); });
    return menu;
}

void LVStudioButtonView::contextMenuEvent(QContextMenuEvent* event)
{
    makeContextMenu()->popup(event->globalPos());
}

LVButtonEditController* LVStudioButtonView::doEdit()
{
    if (!editor_) editor_ = new LVButtonEditController(button_, grid_.app());
    editor_->show();
    editor_->raise();
    editor_->activateWindow();
    return editor_;
}

void LVStudioButtonView::doDeleteAsking()
{
    auto* box = new QMessageBox(QMessageBox::Information, tr("Delete Button"), tr(deleteQuestion), QMessageBox::NoButton,
                                window());
    box->setObjectName(QStringLiteral("deleteConfirmation"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    // One role for both keeps "No" first and "Yes" second on every desktop's layout.
    QPushButton* no = box->addButton(tr("No"), QMessageBox::ActionRole);
    QPushButton* yes = box->addButton(tr("Yes"), QMessageBox::ActionRole);
    box->setDefaultButton(no);
    box->setEscapeButton(no);
    const LVStudioButtonRef button = button_;
    connect(box, &QMessageBox::finished, this, [box, yes, button] {
        if (box->clickedButton() == yes) button->doDelete();
    });
    box->open();
}

QString LVStudioButtonView::singleFile(const QMimeData* data)
{
    const QList<QUrl> urls = data->urls();
    if (urls.size() != 1 || !urls.front().isLocalFile()) return {};
    return urls.front().toLocalFile();
}

bool LVStudioButtonView::takeIconFromFile(const QString& path)
{
    const QFileInfo info(path);
    if (!info.isFile() || info.isSymLink()) return false;
    QImageReader reader(path);
    // An icon needs no more than this; a huge picture must not stall the window.
    reader.setAllocationLimit(256);
    const QImage image = reader.read();
    if (image.isNull()) return false;
    button_->setup()->setIcon(
        image.scaled(LVSavedSetup::iconSize, LVSavedSetup::iconSize, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    return true;
}

void LVStudioButtonView::dragEnterEvent(QDragEnterEvent* event)
{
    if (singleFile(event->mimeData()).isEmpty()) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void LVStudioButtonView::dragMoveEvent(QDragMoveEvent* event)
{
    if (singleFile(event->mimeData()).isEmpty()) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void LVStudioButtonView::dropEvent(QDropEvent* event)
{
    const QString file = singleFile(event->mimeData());
    if (file.isEmpty() || !takeIconFromFile(file)) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
}
