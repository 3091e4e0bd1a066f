#pragma once
// The studio's button grid: one button view per button of the bus, laid out in 64-point
// cells on a 68-point pitch, row 0 at the top. Takes dragged buttons (move, or copy with
// Alt) and dropped files (a quick-effect button in the empty cell).
#include "studio/LVStudioButton.h"

#include <QPointF>
#include <QSize>
#include <QWidget>

#include <vector>

class LVMEBus;
class LVStudio;
class LVStudioButtonView;
class Lumaveil;

struct LVGridCell {
    int row = -1;
    int col = -1;
    bool operator==(const LVGridCell&) const = default;
};

class LVIconView : public QWidget {
    Q_OBJECT
public:
    static constexpr int cellSize = 64;
    static constexpr int pitch = 68;
    static constexpr int margin = 4;
    // Hit-testing divides by one more than the pitch: the drift of a point per cell is kept.
    static constexpr int hitDivisor = 69;

    LVIconView(Lumaveil& app, LVStudio& studio, QWidget* parent = nullptr);
    ~LVIconView() override;

    // The top-left corner of a cell.
    static QPoint cellOrigin(int row, int col) { return {pitch * col + margin, pitch * row + margin}; }
    // The cell a point falls in, truncated toward zero.
    static LVGridCell cellAt(QPointF point);
    // One spare row and column beyond the furthest button; (140, 140) when empty.
    QSize wantedSize() const;

    // Follows the bus: a view for every button it holds now and gets later.
    void setBus(LVMEBus* bus);
    const std::vector<LVStudioButtonView*>& buttonViews() const { return views_; }
    LVStudioButtonView* itemAtRow(int row, int col) const;
    LVStudioButtonView* buttonViewHavingUID(const QString& uid) const;
    LVGridCell dropTarget() const { return dropTarget_; }

    // A click on a button view: Alt puts it straight on or off air.
    void doToggle(LVStudioButtonView* view, Qt::KeyboardModifiers modifiers);

    Lumaveil& app() const { return app_; }
    LVStudio& studio() const { return studio_; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void addOneButton(LVStudioButton* button);
    void removeOneButton(LVStudioButton* button);
    void clear();
    void placeButton(LVStudioButtonView* view);
    void requestResize();
    void setDropTarget(LVGridCell cell);
    void dropFiles(const QStringList& files, LVGridCell cell);
    void dropButton(const LVStudioButtonRef& button, bool copy, LVGridCell cell);

    Lumaveil& app_;
    LVStudio& studio_;
    LVMEBus* bus_ = nullptr;
    std::vector<LVStudioButtonView*> views_;
    LVGridCell dropTarget_;
    bool resizePending_ = false;
};
