#include "gui/studio/LVQuickSourceView.h"

#include "core/LVChainEdits.h"

#include <QDragEnterEvent>
#include <QMimeData>

LVQuickSourceView::LVQuickSourceView(QWidget* parent) : QLabel(parent)
{
    setObjectName(QStringLiteral("quickSource"));
    setPixmap(QPixmap(QStringLiteral(":/studio/Quick source.png")));
    setAlignment(Qt::AlignCenter);
    setFrameStyle(QFrame::Panel | QFrame::Sunken);
    setScaledContents(false);
    setToolTip(tr("Drop movies or pictures here for a new button"));
    setAcceptDrops(true);
}

void LVQuickSourceView::dragEnterEvent(QDragEnterEvent* event)
{
    if (!event->mimeData()->hasUrls()) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void LVQuickSourceView::dragMoveEvent(QDragMoveEvent* event)
{
    if (!event->mimeData()->hasUrls()) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void LVQuickSourceView::dropEvent(QDropEvent* event)
{
    QStringList files;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile()) files.append(url.toLocalFile());
    if (!takeFiles(files)) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

bool LVQuickSourceView::takeFiles(const QStringList& files)
{
    const LVDroppedFiles dropped = LVClassifyDroppedFiles(files);
    // Stills and movies never mix in one source.
    if (dropped.images.isEmpty() == dropped.movies.isEmpty()) return false;
    if (action_) action_(dropped.movies, dropped.images);
    return true;
}
