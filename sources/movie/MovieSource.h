#pragma once
// The "Movie" source: plays a playlist of movie files with in and out points, five
// end-of-file behaviours, a caption and a running-time overlay, a hot folder that keeps the
// playlist equal to a folder's contents, and a timeline started shortly before the end.
#include "core/LVControllerInterfaces.h"
#include "core/LVEffect.h"
#include "render/LVGL.h"
#include "core/util/KDCoreImageText.h"
#include "sources/movie/LVMovieFile.h"
#include "sources/movie/LVMoviePlayer.h"

#include <QStringList>

#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <vector>

class QFileSystemWatcher;

class MovieSource : public LVEffect, public LVMoviePlaylist {
public:
    MovieSource();
    ~MovieSource() override;

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }

    static constexpr int64_t kNoEntry = std::numeric_limits<int64_t>::max();
    static constexpr const char* kHotFolderExplanation =
        "When this feature is enabled, the playlist will match whatever is in the selected folder.";
    static constexpr const char* kNoMovieTitle = "- no movie selected -";

    // Starts the timeline of that name (setRunning: YES); false when there is none. The
    // application plugs the timeline manager in; without it the at-end timeline is kept but
    // never runs.
    static void setTimeLineRunner(std::function<bool(const QString& name)> runner);

    void initEffectCommon(LVContext* context) override;
    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    void encodeWithCoder(LVKeyedArchiver& coder) const override;
    void destruct() override;
    bool setMode(int32_t mode) override;
    void setAudioDevice(const QString& device) override;
    void doit() override;
    QStringList inspectorNotes() const override;
    QString statusNote() const override;

    // Playlist.
    const std::vector<LVMovieFile>& playlist() const { return files_; }
    void setPlaylist(std::vector<LVMovieFile> files);
    void addMoviePathToPlayList(const QString& path) override;
    bool playlistHasMoviePath(const QString& path) const { return findMovie(path) >= 0; }
    int64_t findMovie(const QString& path) const;
    // Moves rows (dragged together, in their order) to stand before row; the current entry
    // follows its row.
    void moveRows(const std::vector<int>& rows, int row);
    void removeRow(int row);
    int64_t playlistFile() const { return playlistFile_; }
    bool hasAnotherPlaylistMovie() const;

    void setMovie(const LVMovieFile& entry);
    void selectMovieFromPlaylist(int64_t index);
    void playFromPlaylist(int64_t index);
    void clearMovie();
    void dealWithAutoPlay();
    void setPlaying(bool playing);
    bool isPlaying() const;
    QString getMovieTitle() const;
    LVMoviePlayer* player() const { return player_.get(); }
    const std::vector<int64_t>& shuffleOrder() const { return shuffleOrder_; }

    int32_t loopMode() const { return parameterValue(QStringLiteral("loopMode")).toInt(); }
    void setLoopMode(int32_t mode) { setParameterValue(QStringLiteral("loopMode"), mode); }
    float rate() const { return rate_; }
    void setRate(float rate);

    // Sliders: the position slider (0..1000) and the in and out sliders of the current entry.
    int32_t positionSliderValue() const { return lastScaledTime_; }
    void positionDragStarted();
    void positionDragMoved(int32_t value);
    void positionDragEnded(int32_t value);
    void inOutDragStarted();
    void inOutDragMoved(int32_t value);
    void inOutDragEnded(bool outPoint, int32_t value);

    // Hot folder: the playlist follows the folder; empty stops watching.
    void setHotFolder(const QString& path);
    const QString& hotFolder() const { return hotFolder_; }
    void hotFolderChanged();

    // The at-end timeline, by name.
    void setAtEndTimeLine(const QString& name) { atEndTimeLine_ = name; }
    const QString& atEndTimeLine() const { return atEndTimeLine_; }

    // "MM:SS", with "HH:" in front from the first hour on.
    static QString timeString(int64_t seconds);
    const QString& timeText() const { return timeText_.text(); }
    const QString& captionText() const { return captionText_.text(); }
    // Where an overlay of width w goes in a frame of width frameWidth (x; y is always 5).
    static int overlayX(int position, int w, int frameWidth);
    // How old the picture drawn last was, in nanoseconds (benchmarks).
    int64_t lastPictureAgeNs() const { return lastPictureAgeNs_; }

protected:
    void parameterChanged(const QString& key) override;

private:
    void atEndOfFile();
    void shuffleNext();
    void applyCaptionStyle();
    void drawOverlay(KDCoreImageText& text, GLuint& texture, quint64& generation, int position);
    // From index on (wrapping when asked), the first entry whose file is there.
    int64_t nextPresent(int64_t index, bool wrap) const;

    std::unique_ptr<LVMoviePlayer> player_;
    int32_t lastScaledTime_ = 0;
    bool wasPlaying_ = false;
    int32_t wasPosition_ = -1;
    float rate_ = 1.0f;
    std::vector<LVMovieFile> files_;
    int64_t playlistFile_ = kNoEntry;
    std::vector<int64_t> shuffleOrder_;
    std::mt19937 random_;
    QString atEndTimeLine_;
    bool bAtEndTimeLineFired_ = false;
    int64_t lastSecs_ = -1;
    KDCoreImageText captionText_{QStringLiteral("No Caption")};
    KDCoreImageText timeText_{QStringLiteral("00:00")};
    GLuint captionTexture_ = 0;
    GLuint timeTexture_ = 0;
    quint64 captionGeneration_ = 0;
    quint64 timeGeneration_ = 0;
    QString hotFolder_;
    std::unique_ptr<QFileSystemWatcher> watcher_;
    QString audioDevice_;
    bool movieLoaded_ = false;
    QString movieTitle_;
    int failedInARow_ = 0;
    int64_t lastPictureAgeNs_ = 0;
};

// Registers the movie source kind.
void LVRegisterMovieKinds();
