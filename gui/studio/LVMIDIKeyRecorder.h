#pragma once
// Records one MIDI key (a note or a controller) for a studio button: a click starts
// listening, the first note-on or control change that reaches the hub becomes the key, and
// the "X" at the right end clears it. Whoever listens is told of every change.
#include "control/midi/LVMIDI.h"

#include <QColor>
#include <QWidget>

#include <functional>

class QLabel;
class QToolButton;

class LVMIDIKeyRecorder : public QWidget {
    Q_OBJECT
public:
    static constexpr const char* clickToRecordText = "Click to record";
    static constexpr const char* pressKeyText = "Press MIDI Key now";

    // hub may be null (no MIDI in this run): the recorder then shows the key but cannot record.
    explicit LVMIDIKeyRecorder(LVMIDI* hub, QWidget* parent = nullptr);
    ~LVMIDIKeyRecorder() override;

    uint32_t recordedData() const { return encoded_; }
    // Stores the key (0: none), ends any recording and shows the state.
    void setRecordedData(uint32_t encoded);
    bool isRecording() const { return recording_; }
    // Told, with the recorder, of every recorded or cleared key.
    void setAction(std::function<void(LVMIDIKeyRecorder*)> action) { action_ = std::move(action); }

    // Starts recording when no key is held (what a click does).
    void startRecording();
    // The clear button.
    void doX();
    void showState();
    void msg(const QString& text, const QColor& colour);

    QString text() const;
    QColor textColour() const;
    bool isClearButtonShown() const;

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    void stopListening();
    void tellTarget();

    LVMIDI* hub_;
    uint32_t encoded_ = 0;
    bool recording_ = false;
    LVMIDI::Handle handle_;
    std::function<void(LVMIDIKeyRecorder*)> action_;
    QLabel* label_ = nullptr;
    QToolButton* clear_ = nullptr;
};
