#pragma once
// Recording and streaming in the main window's status bar: a record button with a red
// indicator and the running time, a stream button with the stream's state (live and for how
// long, reconnecting and when it tries again, or why it failed).
#include <QWidget>

class LVBroadcaster;
class QLabel;
class QPushButton;
class QTimer;

class LVBroadcastBar : public QWidget {
    Q_OBJECT
public:
    // broadcaster must outlive the bar.
    explicit LVBroadcastBar(LVBroadcaster& broadcaster, QWidget* parent = nullptr);

    QPushButton* recordButton() const { return recordButton_; }
    QLabel* recordIndicator() const { return recordIndicator_; }
    QPushButton* streamButton() const { return streamButton_; }
    QLabel* streamState() const { return streamState_; }

    // "HH:MM:SS".
    static QString runningTime(double seconds);

private:
    void toggleRecord();
    void toggleStream();
    void refresh();

    LVBroadcaster& broadcaster_;
    QPushButton* recordButton_;
    QLabel* recordIndicator_;
    QPushButton* streamButton_;
    QLabel* streamState_;
    QTimer* ticker_;
};
