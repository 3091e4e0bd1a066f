#include "gui/studio/LVMIDIKeyRecorder.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPointer>
#include <QToolButton>

LVMIDIKeyRecorder::LVMIDIKeyRecorder(LVMIDI* hub, QWidget* parent) : QWidget(parent), hub_(hub)
{
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 2, 2, 2);
    label_ = new QLabel(this);
    label_->setObjectName(QStringLiteral("midiKeyText"));
    clear_ = new QToolButton(this);
    clear_->setObjectName(QStringLiteral("midiKeyClear"));
    clear_->setText(QStringLiteral("X"));
    clear_->setAutoRaise(true);
    layout->addWidget(label_, 1);
    layout->addWidget(clear_);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);
    setCursor(Qt::PointingHandCursor);
    connect(clear_, &QToolButton::clicked, this, &LVMIDIKeyRecorder::doX);
    showState();
}

LVMIDIKeyRecorder::~LVMIDIKeyRecorder()
{
    stopListening();
}

void LVMIDIKeyRecorder::setRecordedData(uint32_t encoded)
{
    stopListening();
    encoded_ = encoded;
    showState();
}

void LVMIDIKeyRecorder::startRecording()
{
    if (encoded_ != 0 || recording_ || !hub_) return;
    recording_ = true;
    QPointer<LVMIDIKeyRecorder> self(this);
    handle_ = hub_->registerForMIDIMessages([self](const LVMIDIMessage& message) {
        if (!self || !self->recording_) return;
        // setRecordedData cancels this listener; the hub defers that past the dispatch.
        self->setRecordedData(message.encodedKeyValue());
        self->tellTarget();
    });
    showState();
}

void LVMIDIKeyRecorder::stopListening()
{
    recording_ = false;
    if (handle_ && hub_) hub_->cancelRegistrationForMIDIMessages(handle_);
    handle_.reset();
}

void LVMIDIKeyRecorder::doX()
{
    stopListening();
    encoded_ = 0;
    showState();
    tellTarget();
}

void LVMIDIKeyRecorder::tellTarget()
{
    if (action_) action_(this);
}

void LVMIDIKeyRecorder::showState()
{
    if (recording_) {
        msg(tr(pressKeyText), Qt::blue);
    } else if (encoded_ != 0) {
        msg(LVMIDIMessage::voiceMessageWithEncodedKeyValue(encoded_).displayText(), palette().color(QPalette::Text));
    } else {
        msg(tr(clickToRecordText), Qt::gray);
    }
    clear_->setVisible(recording_ || encoded_ != 0);
}

void LVMIDIKeyRecorder::msg(const QString& text, const QColor& colour)
{
    QPalette palette = label_->palette();
    palette.setColor(QPalette::WindowText, colour);
    label_->setPalette(palette);
    label_->setText(text);
}

QString LVMIDIKeyRecorder::text() const
{
    return label_->text();
}

QColor LVMIDIKeyRecorder::textColour() const
{
    return label_->palette().color(QPalette::WindowText);
}

bool LVMIDIKeyRecorder::isClearButtonShown() const
{
    return !clear_->isHidden();
}

void LVMIDIKeyRecorder::mousePressEvent(QMouseEvent* event)
{
    // A held key only changes through the clear button.
    if (event->button() == Qt::LeftButton) startRecording();
    QWidget::mousePressEvent(event);
}
