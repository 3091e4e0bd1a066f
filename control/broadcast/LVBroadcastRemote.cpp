#include "control/broadcast/LVBroadcastRemote.h"

#include "control/websocket/LVRemoteRequests.h"
#include "outputs/record/LVBroadcaster.h"

#include <memory>

namespace {

using LVRemote::Response;

QString timecode(double seconds)
{
    const qint64 ms = qRound64(seconds * 1000);
    return QStringLiteral("%1:%2:%3.%4")
        .arg(ms / 3600000, 2, 10, QLatin1Char('0'))
        .arg(ms / 60000 % 60, 2, 10, QLatin1Char('0'))
        .arg(ms / 1000 % 60, 2, 10, QLatin1Char('0'))
        .arg(ms % 1000, 3, 10, QLatin1Char('0'));
}

// The protocol's names for an output's state.
QString outputState(const LVEncoderStatus& status, bool active)
{
    if (!active) return QStringLiteral("OBS_WEBSOCKET_OUTPUT_STOPPED");
    switch (status.state) {
    case LVEncoderState::Starting: return QStringLiteral("OBS_WEBSOCKET_OUTPUT_STARTING");
    case LVEncoderState::Running: return QStringLiteral("OBS_WEBSOCKET_OUTPUT_STARTED");
    case LVEncoderState::Reconnecting: return QStringLiteral("OBS_WEBSOCKET_OUTPUT_RECONNECTING");
    case LVEncoderState::Stopping: return QStringLiteral("OBS_WEBSOCKET_OUTPUT_STOPPING");
    case LVEncoderState::Stopped:
    case LVEncoderState::Failed: break;
    }
    return QStringLiteral("OBS_WEBSOCKET_OUTPUT_STOPPED");
}

struct Output {
    std::function<bool(QString*)> start;
    std::function<bool(QString*)> stop;
    std::function<bool()> active;
};

Response startOutput(const Output& output)
{
    if (output.active()) return Response::failure(LVRemote::OutputRunning, QStringLiteral("The output is already running."));
    QString error;
    if (!output.start(&error)) return Response::failure(LVRemote::RequestProcessingFailed, error);
    return Response::success();
}

Response stopOutput(const Output& output, QJsonObject data)
{
    if (!output.active()) return Response::failure(LVRemote::OutputNotRunning, QStringLiteral("The output is not running."));
    QString error;
    if (!output.stop(&error)) return Response::failure(LVRemote::OutputNotRunning, error);
    return Response::success(std::move(data));
}

} // namespace

void LVAddBroadcastRequests(LVRemoteRequests& requests, LVBroadcaster& broadcaster)
{
    LVBroadcaster* b = &broadcaster;
    const Output record{[b](QString* error) { return b->startRecord(error); },
                        [b](QString* error) { return b->stopRecord(error); }, [b] { return b->isRecording(); }};
    const Output stream{[b](QString* error) { return b->startStream(error); },
                        [b](QString* error) { return b->stopStream(error); }, [b] { return b->isStreaming(); }};

    requests.addRequest(QStringLiteral("StartRecord"), [record](const QJsonObject&) { return startOutput(record); });
    requests.addRequest(QStringLiteral("StopRecord"), [record, b](const QJsonObject&) {
        return stopOutput(record, {{QStringLiteral("outputPath"), b->recordPath()}});
    });
    requests.addRequest(QStringLiteral("ToggleRecord"), [record](const QJsonObject&) {
        const bool wasActive = record.active();
        const Response response = wasActive ? stopOutput(record, {}) : startOutput(record);
        if (!response.ok()) return response;
        return Response::success({{QStringLiteral("outputActive"), !wasActive}});
    });
    requests.addRequest(QStringLiteral("GetRecordStatus"), [b](const QJsonObject&) {
        const LVEncoderStatus status = b->recordStatus();
        const bool active = b->isRecording();
        return Response::success({
            {QStringLiteral("outputActive"), active},
            {QStringLiteral("outputPaused"), false},
            {QStringLiteral("outputTimecode"), timecode(active ? status.secondsActive : 0)},
            {QStringLiteral("outputDuration"), double(qRound64(active ? status.secondsActive * 1000 : 0))},
            {QStringLiteral("outputBytes"), double(status.bytesEncoded)},
        });
    });

    requests.addRequest(QStringLiteral("StartStream"), [stream](const QJsonObject&) { return startOutput(stream); });
    requests.addRequest(QStringLiteral("StopStream"), [stream](const QJsonObject&) { return stopOutput(stream, {}); });
    requests.addRequest(QStringLiteral("ToggleStream"), [stream](const QJsonObject&) {
        const bool wasActive = stream.active();
        const Response response = wasActive ? stopOutput(stream, {}) : startOutput(stream);
        if (!response.ok()) return response;
        return Response::success({{QStringLiteral("outputActive"), !wasActive}});
    });
    requests.addRequest(QStringLiteral("GetStreamStatus"), [b](const QJsonObject&) {
        const LVEncoderStatus status = b->streamStatus();
        const bool active = b->isStreaming();
        const double sent = double(status.framesSent);
        const double total = sent + double(status.framesDropped);
        return Response::success({
            {QStringLiteral("outputActive"), active},
            {QStringLiteral("outputReconnecting"), active && status.state == LVEncoderState::Reconnecting},
            {QStringLiteral("outputTimecode"), timecode(active ? status.secondsActive : 0)},
            {QStringLiteral("outputDuration"), double(qRound64(active ? status.secondsActive * 1000 : 0))},
            {QStringLiteral("outputCongestion"), status.congested ? 1.0 : 0.0},
            {QStringLiteral("outputBytes"), double(status.bytesEncoded)},
            {QStringLiteral("outputSkippedFrames"), double(status.framesDropped)},
            {QStringLiteral("outputTotalFrames"), total},
        });
    });

    // Each change of state is told once, with the file for recordings.
    auto lastRecord = std::make_shared<QString>(outputState({}, false));
    auto lastStream = std::make_shared<QString>(outputState({}, false));
    QObject::connect(&broadcaster, &LVBroadcaster::recordStateChanged, &requests, [&requests, b, lastRecord] {
        const QString state = outputState(b->recordStatus(), b->isRecording());
        if (state == *lastRecord) return;
        *lastRecord = state;
        requests.sendEvent(QStringLiteral("RecordStateChanged"), LVRemote::SubscribeOutputs,
                           {{QStringLiteral("outputActive"), b->isRecording()},
                            {QStringLiteral("outputState"), state},
                            {QStringLiteral("outputPath"), b->recordPath()}});
    });
    QObject::connect(&broadcaster, &LVBroadcaster::streamStateChanged, &requests, [&requests, b, lastStream] {
        const QString state = outputState(b->streamStatus(), b->isStreaming());
        if (state == *lastStream) return;
        *lastStream = state;
        requests.sendEvent(QStringLiteral("StreamStateChanged"), LVRemote::SubscribeOutputs,
                           {{QStringLiteral("outputActive"), b->isStreaming()}, {QStringLiteral("outputState"), state}});
    });
}
