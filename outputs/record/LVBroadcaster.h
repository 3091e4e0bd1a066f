#pragma once
// Recording and streaming as the application runs them: each is an encoder in the output
// list while it runs, started and stopped from the window, the control socket, the remote
// control and the user menu, and set up from the preferences below.
#include "outputs/record/LVEncoder.h"

#include <QJsonObject>
#include <QObject>
#include <QString>

#include <memory>

class LVDefaults;
class Lumaveil;

class LVBroadcaster : public QObject {
    Q_OBJECT
public:
    // The folder for recordings; empty: the user's Videos folder (XDG).
    static constexpr const char* recordFolderKey = "recordFolder";
    // The file name, with %Y %m %d %H %M %S for the start's date and time.
    static constexpr const char* recordFileNameKey = "recordFileName";
    // "mp4" (fragmented) or "mkv".
    static constexpr const char* recordFormatKey = "recordFormat";
    static constexpr const char* recordBitrateKey = "recordBitrate"; // kbit/s
    // x264's speed preset for both: "ultrafast" ... "veryslow".
    static constexpr const char* encoderSpeedPresetKey = "encoderSpeedPreset";
    // Sound for both: empty for none, "default" or an input device's name.
    static constexpr const char* audioInputKey = "recordAudioInput";
    // rtmp[s]://host[:port]/app, srt://host:port (srt://:port listens) or an HLS folder.
    static constexpr const char* streamAddressKey = "streamAddress";
    // The RTMP stream key or the SRT passphrase; never logged.
    static constexpr const char* streamKeyKey = "streamKey";
    static constexpr const char* streamBitrateKey = "streamBitrate"; // kbit/s
    static constexpr const char* streamKeyframeIntervalKey = "streamKeyframeInterval"; // seconds

    // app (and its preferences) must outlive this object.
    LVBroadcaster(Lumaveil& app, LVDefaults& defaults, LVEncoder::Options options = {});
    // Ends a running recording properly (its file gets its end) and closes the stream.
    ~LVBroadcaster() override;

    // Starts a recording into path, or a new file named by the preferences. False, with error,
    // when one runs already or the file cannot be made.
    bool startRecord(QString* error, const QString& path = {});
    bool stopRecord(QString* error);
    // Starts streaming to url, or to the preferences' address and key.
    bool startStream(QString* error, const QString& url = {});
    bool stopStream(QString* error);

    // Started and not yet stopped (starting, running, reconnecting or finishing).
    bool isRecording() const;
    bool isStreaming() const;
    LVEncoderStatus recordStatus() const;
    LVEncoderStatus streamStatus() const;
    // The file being (or last) recorded.
    QString recordPath() const;
    // Where the stream goes, the key and passphrase hidden.
    QString streamTarget() const;
    // {"active", "state", "path", "seconds", "framesSent", "framesDropped", "bytes", "problem"}.
    QJsonObject recordStatusObject() const;
    // {"active", "state", "target", "seconds", "framesSent", "framesDropped", "bitrateKbps",
    //  "congested", "reconnects", "retryInSeconds", "bytes", "problem"}.
    QJsonObject streamStatusObject() const;

    // The user's Videos folder.
    static QString defaultRecordFolder();
    // The preferences' recording path for a start at time now.
    QString nextRecordPath() const;

signals:
    void recordStateChanged();
    void streamStateChanged();

private:
    struct Job {
        std::shared_ptr<LVEncoder> encoder;
        bool stopAsked = false;
    };
    LVEncodeSettings baseSettings(int bitrateKbps) const;
    bool begin(Job& job, LVOutputSlot slot, LVEncodeSettings settings, QString* error);
    bool end(Job& job, LVOutputSlot slot, QString* error, const char* what);
    void followChange(Job& job, LVOutputSlot slot);
    static bool isActive(const Job& job);

    Lumaveil& app_;
    LVDefaults& defaults_;
    LVEncoder::Options options_;
    Job record_;
    Job stream_;
};
