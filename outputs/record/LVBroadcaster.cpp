#include "outputs/record/LVBroadcaster.h"

#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "core/util/LVLog.h"
#include "render/LVContext.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonValue>
#include <QStandardPaths>

LVBroadcaster::LVBroadcaster(Lumaveil& app, LVDefaults& defaults, LVEncoder::Options options)
    : app_(app), defaults_(defaults), options_(options)
{
    defaults_.registerDefaults(QJsonObject{
        {QLatin1String(recordFolderKey), QString()},
        {QLatin1String(recordFileNameKey), QStringLiteral("Lumaveil %Y-%m-%d %H-%M-%S")},
        {QLatin1String(recordFormatKey), QStringLiteral("mp4")},
        {QLatin1String(recordBitrateKey), 8000},
        {QLatin1String(encoderSpeedPresetKey), QStringLiteral("veryfast")},
        {QLatin1String(audioInputKey), QString()},
        {QLatin1String(streamAddressKey), QStringLiteral("rtmp://127.0.0.1/live")},
        {QLatin1String(streamKeyKey), QString()},
        {QLatin1String(streamBitrateKey), 4500},
        {QLatin1String(streamKeyframeIntervalKey), 2},
    });
}

LVBroadcaster::~LVBroadcaster()
{
    app_.outputs().setDriver(LVOutputSlot::Recording, nullptr);
    app_.outputs().setDriver(LVOutputSlot::Streaming, nullptr);
    // The encoders finish on their own threads; their destructors wait for that.
    record_.encoder.reset();
    stream_.encoder.reset();
}

QString LVBroadcaster::defaultRecordFolder()
{
    const QString videos = QStandardPaths::writableLocation(QStandardPaths::MoviesLocation);
    return videos.isEmpty() ? QDir::homePath() + QStringLiteral("/Videos") : videos;
}

QString LVBroadcaster::nextRecordPath() const
{
    QString folder = defaults_.stringForKey(QLatin1String(recordFolderKey));
    if (folder.isEmpty()) folder = defaultRecordFolder();
    const QString name = LVRecordFileName(defaults_.stringForKey(QLatin1String(recordFileNameKey)),
                                          QDateTime::currentDateTime(), defaults_.stringForKey(QLatin1String(recordFormatKey)));
    return QDir(folder).filePath(name);
}

LVEncodeSettings LVBroadcaster::baseSettings(int bitrateKbps) const
{
    LVEncodeSettings settings;
    if (const LVContext* context = app_.context()) {
        settings.width = context->width();
        settings.height = context->height();
    }
    settings.frameRate = app_.frameRate();
    settings.bitrateKbps = bitrateKbps;
    settings.keyframeSeconds = defaults_.integerForKey(QLatin1String(streamKeyframeIntervalKey));
    settings.speedPreset = defaults_.stringForKey(QLatin1String(encoderSpeedPresetKey));
    settings.audioInput = defaults_.stringForKey(QLatin1String(audioInputKey));
    return settings;
}

bool LVBroadcaster::isActive(const Job& job)
{
    return job.encoder && !job.encoder->isFinished();
}

bool LVBroadcaster::begin(Job& job, LVOutputSlot slot, LVEncodeSettings settings, QString* error)
{
    const bool recording = slot == LVOutputSlot::Recording;
    if (isActive(job)) {
        *error = job.stopAsked ? QStringLiteral("the last %1 is still finishing").arg(recording ? "recording" : "stream")
                               : QStringLiteral("already %1").arg(recording ? "recording" : "streaming");
        return false;
    }
    // Called on the encoder's thread: the change is followed on the main thread.
    auto encoder = std::make_shared<LVEncoder>(std::move(settings), options_, [this, slot] {
        QMetaObject::invokeMethod(this, [this, slot] { followChange(slot == LVOutputSlot::Recording ? record_ : stream_, slot); },
                                  Qt::QueuedConnection);
    });
    if (!encoder->start(error)) return false;
    job.encoder = encoder;
    job.stopAsked = false;
    app_.outputs().setDriver(slot, std::make_unique<LVEncoderOutput>(recording ? "recording" : "stream", encoder));
    LVLog("%s %s", recording ? "Recording to" : "Streaming to", qPrintable(LVRedactedLocation(job.encoder->settings())));
    if (recording) emit recordStateChanged(); else emit streamStateChanged();
    return true;
}

bool LVBroadcaster::end(Job& job, LVOutputSlot slot, QString* error, const char* what)
{
    if (!isActive(job) || job.stopAsked) {
        *error = QStringLiteral("not %1").arg(QLatin1String(what));
        return false;
    }
    job.stopAsked = true;
    app_.outputs().setDriver(slot, nullptr);
    job.encoder->stop();
    if (slot == LVOutputSlot::Recording) emit recordStateChanged(); else emit streamStateChanged();
    return true;
}

void LVBroadcaster::followChange(Job& job, LVOutputSlot slot)
{
    // A failed or finished encoder takes no more frames.
    if (job.encoder && job.encoder->isFinished() && app_.outputs().driver(slot)) app_.outputs().setDriver(slot, nullptr);
    if (slot == LVOutputSlot::Recording) emit recordStateChanged(); else emit streamStateChanged();
}

bool LVBroadcaster::startRecord(QString* error, const QString& path)
{
    LVEncodeSettings settings = baseSettings(defaults_.integerForKey(QLatin1String(recordBitrateKey)));
    settings.kind = LVEncodeKind::File;
    settings.location = path.isEmpty() ? nextRecordPath() : QFileInfo(path).absoluteFilePath();
    settings.container = QFileInfo(settings.location).suffix().toLower() == QStringLiteral("mkv") ? QStringLiteral("mkv")
                                                                                                 : QStringLiteral("mp4");
    if (path.isEmpty()) settings.container = defaults_.stringForKey(QLatin1String(recordFormatKey));
    const QString folder = QFileInfo(settings.location).absolutePath();
    if (!QDir().mkpath(folder)) {
        *error = QStringLiteral("cannot make the recordings folder %1").arg(folder);
        return false;
    }
    return begin(record_, LVOutputSlot::Recording, settings, error);
}

bool LVBroadcaster::stopRecord(QString* error)
{
    return end(record_, LVOutputSlot::Recording, error, "recording");
}

bool LVBroadcaster::startStream(QString* error, const QString& url)
{
    LVEncodeSettings settings = baseSettings(defaults_.integerForKey(QLatin1String(streamBitrateKey)));
    QString address = url;
    if (address.isEmpty()) {
        address = defaults_.stringForKey(QLatin1String(streamAddressKey)).trimmed();
        const QString key = defaults_.stringForKey(QLatin1String(streamKeyKey));
        // The address preference holds the RTMP application; the key is kept apart.
        if (address.startsWith(QStringLiteral("rtmp"), Qt::CaseInsensitive)) {
            if (key.isEmpty()) {
                *error = QStringLiteral("no stream key: set it in the streaming preferences");
                return false;
            }
            while (address.endsWith(QLatin1Char('/'))) address.chop(1);
            address += QLatin1Char('/') + key;
        }
    }
    if (!LVParseStreamUrl(address, &settings, error)) return false;
    if (url.isEmpty() && settings.kind == LVEncodeKind::Srt) {
        const QString key = defaults_.stringForKey(QLatin1String(streamKeyKey));
        if (!key.isEmpty()) settings.secret = key;
    }
    if (settings.kind == LVEncodeKind::Hls && !QDir().mkpath(settings.location)) {
        *error = QStringLiteral("cannot make the HLS folder %1").arg(settings.location);
        return false;
    }
    return begin(stream_, LVOutputSlot::Streaming, settings, error);
}

bool LVBroadcaster::stopStream(QString* error)
{
    return end(stream_, LVOutputSlot::Streaming, error, "streaming");
}

bool LVBroadcaster::isRecording() const
{
    return isActive(record_);
}

bool LVBroadcaster::isStreaming() const
{
    return isActive(stream_);
}

LVEncoderStatus LVBroadcaster::recordStatus() const
{
    return record_.encoder ? record_.encoder->status() : LVEncoderStatus{};
}

LVEncoderStatus LVBroadcaster::streamStatus() const
{
    return stream_.encoder ? stream_.encoder->status() : LVEncoderStatus{};
}

QString LVBroadcaster::recordPath() const
{
    return record_.encoder ? record_.encoder->settings().location : QString();
}

QString LVBroadcaster::streamTarget() const
{
    return stream_.encoder ? LVRedactedLocation(stream_.encoder->settings()) : QString();
}

namespace {

QJsonObject statusObject(const LVEncoderStatus& status, bool active)
{
    QJsonObject object{
        {QStringLiteral("active"), active},
        {QStringLiteral("state"), LVEncoderStateName(status.state)},
        {QStringLiteral("seconds"), double(qRound64(status.secondsActive * 1000)) / 1000},
        {QStringLiteral("framesSent"), double(status.framesSent)},
        {QStringLiteral("framesDropped"), double(status.framesDropped)},
        {QStringLiteral("bytes"), double(status.bytesEncoded)},
    };
    if (!status.problem.isEmpty()) object.insert(QStringLiteral("problem"), status.problem);
    return object;
}

} // namespace

QJsonObject LVBroadcaster::recordStatusObject() const
{
    QJsonObject object = statusObject(recordStatus(), isRecording());
    object.insert(QStringLiteral("path"), recordPath());
    return object;
}

QJsonObject LVBroadcaster::streamStatusObject() const
{
    const LVEncoderStatus status = streamStatus();
    QJsonObject object = statusObject(status, isStreaming());
    object.insert(QStringLiteral("target"), streamTarget());
    object.insert(QStringLiteral("bitrateKbps"), double(qRound64(status.bitrateKbps)));
    object.insert(QStringLiteral("congested"), status.congested);
    object.insert(QStringLiteral("reconnects"), status.reconnects);
    object.insert(QStringLiteral("retryInSeconds"), double(qRound64(status.retryInSeconds * 10)) / 10);
    return object;
}
