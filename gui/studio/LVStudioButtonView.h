#pragma once
// One studio button in the grid: the setup's icon above its name, tinted by the bus state.
// A click toggles it, a press that moves becomes a drag (Alt: a copy), one image file
// dropped on it becomes its icon, and its context menu edits, snapshots, duplicates and
// deletes it.
#include "studio/LVStudioButton.h"

#include <QPoint>
#include <QPointer>
#include <QWidget>

class LVButtonEditController;
class LVIconView;
class QMenu;
class QMimeData;

class LVStudioButtonView : public QWidget {
    Q_OBJECT
public:
    static constexpr const char* deleteQuestion = "Are you sure you want to permanently delete the button?";

    explicit LVStudioButtonView(LVIconView& grid);
    ~LVStudioButtonView() override;

    void setModel(const LVStudioButtonRef& button);
    const LVStudioButtonRef& button() const { return button_; }

    // The context menu "Menu": "Edit...", "Snapshot Icon", "Duplicate Button", "Delete Button".
    QMenu* makeContextMenu();
    // Opens (or raises) the button's editor.
    LVButtonEditController* doEdit();
    // Asks first; only "Yes" deletes.
    void doDeleteAsking();
    // The file's picture, 64 by 64, as the setup's icon; kept in memory until the next persist.
    bool takeIconFromFile(const QString& path);

    // The drag image: this drawing at half opacity.
    QPixmap dragImage();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void startDrag(Qt::KeyboardModifiers modifiers);
    // Only a drag of exactly one local file may land on a button.
    static QString singleFile(const QMimeData* data);

    LVIconView& grid_;
    LVStudioButtonRef button_;
    QImage icon_;
    bool tracking_ = false;
    QPoint pressPoint_;
    QPointer<LVButtonEditController> editor_;
};
