#pragma once
// The studio window's widgets over a real controller, real setups on disk and the bundled
// Effects; drags and drops are real Qt drag events sent to the widgets.
#include "gui/studio/LVIconView.h"
#include "gui/studio/LVStudioButtonView.h"
#include "tests/gui/LVGuiTestSupport.h"
#include "tests/studio/LVStudioTestSupport.h"

#include <QDragEnterEvent>
#include <QImage>
#include <QMimeData>
#include <QUrl>

inline const QColor kGridRed(204, 0, 102);

class LVStudioGuiTest : public LVStudioTest {
protected:
    // Widgets need a QApplication; it must exist before anything makes a plainer one.
    static void SetUpTestSuite()
    {
        lvEnsureApplication<QApplication>();
        LVRegisterTestKinds();
    }

    void SetUp() override
    {
        LVStudioTest::SetUp();
        // The first-run offer has its own test; elsewhere it would cover the window.
        defaults->setValue(QStringLiteral("seenStudio"), true);
    }

    void TearDown() override
    {
        // Views deleted later must go while the studio still exists.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        LVStudioTest::TearDown();
    }

    // A real picture file in the test folder.
    QString writeImage(const QString& name, QColor colour = Qt::yellow)
    {
        QImage image(32, 16, QImage::Format_RGB32);
        image.fill(colour);
        const QString path = dir.filePath(name);
        EXPECT_TRUE(image.save(path));
        return path;
    }

    // A file a movie's name says it is (classified by name).
    QString writeMovieFile(const QString& name)
    {
        const QString path = dir.filePath(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        return path;
    }
};

inline std::unique_ptr<QMimeData> filesMime(const QStringList& paths)
{
    auto data = std::make_unique<QMimeData>();
    QList<QUrl> urls;
    for (const QString& path : paths) urls.append(QUrl::fromLocalFile(path));
    data->setUrls(urls);
    return data;
}

inline std::unique_ptr<QMimeData> buttonMime(const LVStudioButton& button)
{
    auto data = std::make_unique<QMimeData>();
    data->setData(QString::fromLatin1(LVStudioButtonDragType), button.dragData());
    return data;
}

// What a drag over a widget ended with.
struct LVDragResult { bool entered = false; bool accepted = false; Qt::DropAction action = Qt::IgnoreAction; };

// Enters the widget, then moves to point (the drag manager sends the move to whoever took
// the enter); with drop, drops there.
inline LVDragResult lvDragTo(QWidget* widget, QPoint point, const QMimeData& data, Qt::DropActions actions, bool drop)
{
    LVDragResult result;
    QDragEnterEvent enter(point, actions, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(widget, &enter);
    result.entered = enter.isAccepted();
    if (!result.entered) return result;
    QDragMoveEvent move(point, actions, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(widget, &move);
    result.accepted = move.isAccepted();
    result.action = move.dropAction();
    if (drop && result.accepted) {
        QDropEvent dropEvent(QPointF(point), actions, &data, Qt::LeftButton, Qt::NoModifier);
        dropEvent.setDropAction(result.action);
        QCoreApplication::sendEvent(widget, &dropEvent);
        result.accepted = dropEvent.isAccepted();
    } else {
        QDragLeaveEvent leave;
        QCoreApplication::sendEvent(widget, &leave);
    }
    return result;
}
