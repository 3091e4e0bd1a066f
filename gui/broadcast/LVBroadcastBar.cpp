#include "gui/broadcast/LVBroadcastBar.h"

#include "outputs/record/LVBroadcaster.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QtMath>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

LVBroadcastBar::LVBroadcastBar(LVBroadcaster& broadcaster, QWidget* parent)
    : QWidget(parent), broadcaster_(broadcaster), recordButton_(new QPushButton(this)),
      recordIndicator_(new QLabel(this)), streamButton_(new QPushButton(this)), streamState_(new QLabel(this)),
      ticker_(new QTimer(this))
{
    recordButton_->setObjectName(QStringLiteral("recordButton"));
    recordIndicator_->setObjectName(QStringLiteral("recordIndicator"));
    recordIndicator_->setStyleSheet(QStringLiteral("QLabel { color: #e0162b; font-weight: bold; }"));
    streamButton_->setObjectName(QStringLiteral("streamButton"));
    streamState_->setObjectName(QStringLiteral("streamState"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(recordButton_);
    layout->addWidget(recordIndicator_);
    layout->addWidget(streamButton_);
    layout->addWidget(streamState_);
    connect(recordButton_, &QPushButton::clicked, this, &LVBroadcastBar::toggleRecord);
    connect(streamButton_, &QPushButton::clicked, this, &LVBroadcastBar::toggleStream);
    connect(&broadcaster_, &LVBroadcaster::recordStateChanged, this, &LVBroadcastBar::refresh);
    connect(&broadcaster_, &LVBroadcaster::streamStateChanged, this, &LVBroadcastBar::refresh);
    // The running times move on once a second while something runs.
    ticker_->setInterval(1000);
    connect(ticker_, &QTimer::timeout, this, &LVBroadcastBar::refresh);
    refresh();
}

QString LVBroadcastBar::runningTime(double seconds)
{
    const qint64 whole = qint64(seconds);
    return QStringLiteral("%1:%2:%3")
        .arg(whole / 3600, 2, 10, QLatin1Char('0'))
        .arg(whole / 60 % 60, 2, 10, QLatin1Char('0'))
        .arg(whole % 60, 2, 10, QLatin1Char('0'));
}

void LVBroadcastBar::toggleRecord()
{
    QString error;
    const bool ok = broadcaster_.isRecording() ? broadcaster_.stopRecord(&error) : broadcaster_.startRecord(&error);
    if (!ok) QMessageBox::warning(window(), tr("Recording"), tr("Lumaveil cannot record: %1").arg(error));
    refresh();
}

void LVBroadcastBar::toggleStream()
{
    QString error;
    const bool ok = broadcaster_.isStreaming() ? broadcaster_.stopStream(&error) : broadcaster_.startStream(&error);
    if (!ok) QMessageBox::warning(window(), tr("Streaming"), tr("Lumaveil cannot stream: %1").arg(error));
    refresh();
}

void LVBroadcastBar::refresh()
{
    const bool recording = broadcaster_.isRecording();
    const LVEncoderStatus record = broadcaster_.recordStatus();
    recordButton_->setText(recording ? tr("Stop Recording") : tr("Record"));
    recordIndicator_->setVisible(recording || record.state == LVEncoderState::Failed);
    if (record.state == LVEncoderState::Failed) {
        recordIndicator_->setText(tr("Recording failed: %1").arg(record.problem));
    } else if (recording) {
        recordIndicator_->setText(QStringLiteral("\u25CF REC %1").arg(runningTime(record.secondsActive)));
    }
    recordIndicator_->setToolTip(broadcaster_.recordPath());

    const bool streaming = broadcaster_.isStreaming();
    const LVEncoderStatus stream = broadcaster_.streamStatus();
    streamButton_->setText(streaming ? tr("Stop Streaming") : tr("Stream"));
    QString state;
    switch (stream.state) {
    case LVEncoderState::Starting: state = tr("Connecting\u2026"); break;
    case LVEncoderState::Running:
        state = tr("Live %1, %2 kbit/s").arg(runningTime(stream.secondsActive)).arg(qRound(stream.bitrateKbps));
        if (stream.framesDropped > 0) state += tr(", %1 frames dropped").arg(stream.framesDropped);
        break;
    case LVEncoderState::Reconnecting:
        state = tr("Connection lost, trying again in %1 s").arg(qCeil(stream.retryInSeconds));
        break;
    case LVEncoderState::Stopping: state = tr("Ending the stream\u2026"); break;
    case LVEncoderState::Failed: state = tr("Stream failed: %1").arg(stream.problem); break;
    case LVEncoderState::Stopped: break;
    }
    streamState_->setText(state);
    streamState_->setVisible(!state.isEmpty());
    streamState_->setToolTip(broadcaster_.streamTarget());
    if (recording || streaming) {
        if (!ticker_->isActive()) ticker_->start();
    } else {
        ticker_->stop();
    }
}
