#pragma once
// A drop well for a quick source: movies or images dropped here (never both at once) are
// handed to the action as two lists, movie paths first.
#include <QLabel>
#include <QStringList>

#include <functional>

class LVQuickSourceView : public QLabel {
    Q_OBJECT
public:
    using Action = std::function<void(const QStringList& movies, const QStringList& images)>;

    explicit LVQuickSourceView(QWidget* parent = nullptr);
    void setAction(Action action) { action_ = std::move(action); }
    // Classifies the files and calls the action; false (nothing called) when the files hold
    // neither movies nor images, or both.
    bool takeFiles(const QStringList& files);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    Action action_;
};
