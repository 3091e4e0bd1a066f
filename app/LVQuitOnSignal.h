#pragma once
// SIGINT and SIGTERM end the event loop like a normal quit, so the producer is marked
// not running and the preferences are written.
#include <QObject>

class QSocketNotifier;

class LVQuitOnSignal : public QObject {
    Q_OBJECT
public:
    explicit LVQuitOnSignal(QObject* parent = nullptr);
    ~LVQuitOnSignal() override;
    // The signal that ended the loop, 0 when none did.
    static int receivedSignal();

private:
    QSocketNotifier* notifier_ = nullptr;
};
