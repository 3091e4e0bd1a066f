#include "sources/movie/MovieSource.h"

#include "core/Lumaveil.h"
#include "core/util/LVLog.h"
#include "render/LVContext.h"
#include "sources/webcam/LVCamConverter.h"

#include <QColor>
#include <QDir>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QJsonArray>

#include <algorithm>
#include <chrono>

namespace {

const QString kLoopMode = QStringLiteral("loopMode");
const QString kAutoPlay = QStringLiteral("autoPlay");
const QString kAutoStop = QStringLiteral("autoStop");
const QString kMutedInPreview = QStringLiteral("mutedInPreview");
const QString kHideWhenStopped = QStringLiteral("hideWhenStopped");
const QString kVolume = QStringLiteral("volume");
const QString kAtEndTimeOffset = QStringLiteral("atEndTimeOffset");
const QString kCaptionPosition = QStringLiteral("captionPosition");
const QString kTimePosition = QStringLiteral("timePosition");
const QString kTimeDirection = QStringLiteral("timeDirection");
const QString kCaptionSize = QStringLiteral("captionSize");
const QString kCaptionFont = QStringLiteral("captionFont");
const QString kCaptionColor = QStringLiteral("captionColor");
const QString kCaptionShadowColor = QStringLiteral("captionShadowColor");
const QString kPlaylist = QStringLiteral("playlist");
const QString kAtEndTimeLine = QStringLiteral("atEndTimeLine");
const QString kHotFolder = QStringLiteral("hotFolder");

const QStringList kPlacements = {QStringLiteral("Off"), QStringLiteral("Left"), QStringLiteral("Center"), QStringLiteral("Right")};
constexpr int kMargin = 5;

std::function<bool(const QString&)>& timeLineRunner()
{
    static std::function<bool(const QString&)> runner;
    return runner;
}

int64_t steadyNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

bool isPresentFile(const QString& path)
{
    const QFileInfo info(path);
    return info.isFile() && !info.isSymLink();
}

// Depth first, names in order, so a folder gives the same playlist on every machine.
void walkFolder(const QString& folder, QStringList& files)
{
    const QFileInfoList entries = QDir(folder).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo& entry : entries) {
        if (entry.isSymLink()) continue;
        if (entry.isDir())
            walkFolder(entry.filePath(), files);
        else if (entry.isFile())
            files.append(entry.filePath());
    }
}

} // namespace

const LVEffectDescriptor& MovieSource::classDescriptor()
{
    static const LVEffectDescriptor descriptor{
        QStringLiteral("MovieSource"),
        QStringLiteral("Movie"),
        LVEffectRole::Source,
        [] { return std::make_unique<MovieSource>(); },
        {
            LVChoiceParameter(kLoopMode, QStringLiteral("At End"), 0,
                              {QStringLiteral("Play Next"), QStringLiteral("Loop Movie"), QStringLiteral("Stop"),
                               QStringLiteral("Loop Playlist"), QStringLiteral("Shuffle")},
                              {0, 1, 2, 3, 4}),
            LVBoolParameter(kAutoPlay, QStringLiteral("Auto Play"), true),
            LVBoolParameter(kAutoStop, QStringLiteral("Auto Stop"), true),
            LVBoolParameter(kMutedInPreview, QStringLiteral("Muted in Preview"), false),
            LVBoolParameter(kHideWhenStopped, QStringLiteral("Hide When Stopped"), false),
            LVFloatParameter(kVolume, QStringLiteral("Volume"), 1.0, 0.0, 1.0),
            LVIntegerParameter(kAtEndTimeOffset, QStringLiteral("Timeline Seconds Before End"), 0, 0, 86400),
            LVChoiceParameter(kCaptionPosition, QStringLiteral("Caption"), 0, kPlacements, {0, 1, 2, 3}),
            LVChoiceParameter(kTimePosition, QStringLiteral("Time"), 0, kPlacements, {0, 1, 2, 3}),
            LVChoiceParameter(kTimeDirection, QStringLiteral("Count"), 0, {QStringLiteral("Up"), QStringLiteral("Down")}, {0, 1}),
            [] {
                LVParameter font = LVTextParameter(kCaptionFont, QStringLiteral("Font"), QStringLiteral("DejaVu Sans"));
                font.editor = LVParameterEditor::Font;
                return font;
            }(),
            LVColorParameter(kCaptionColor, QStringLiteral("Color"), QVariant::fromValue(QColor(Qt::white))),
            LVColorParameter(kCaptionShadowColor, QStringLiteral("Shadow"), QVariant::fromValue(QColor(0, 0, 0, 200))),
            LVIntegerParameter(kCaptionSize, QStringLiteral("Font Size"), 24, 1, 512),
        },
    };
    return descriptor;
}

void LVRegisterMovieKinds()
{
    LVEffectClasses::registerClass(&MovieSource::classDescriptor());
}

void MovieSource::setTimeLineRunner(std::function<bool(const QString&)> runner)
{
    timeLineRunner() = std::move(runner);
}

MovieSource::MovieSource() = default;

MovieSource::~MovieSource()
{
    destruct();
}

void MovieSource::initEffectCommon(LVContext* context)
{
    LVEffect::initEffectCommon(context);
    random_.seed(uint32_t(std::chrono::system_clock::now().time_since_epoch().count()));
    if (Lumaveil* app = Lumaveil::instance()) audioDevice_ = app->audioOutputDevice();
    applyCaptionStyle();
}

void MovieSource::destruct()
{
    watcher_.reset();
    player_.reset();
    if ((captionTexture_ || timeTexture_) && context()) {
        context()->makeCurrent();
        const GLuint textures[] = {captionTexture_, timeTexture_};
        glDeleteTextures(2, textures);
    }
    captionTexture_ = timeTexture_ = 0;
}

bool MovieSource::initWithCoder(LVKeyedUnarchiver& coder)
{
    if (!LVEffect::initWithCoder(coder)) return false;
    // Older setups stored a plain looping switch.
    if (!coder.containsValueForKey(kLoopMode) && coder.containsValueForKey(QStringLiteral("loop")))
        setParameterValue(kLoopMode, coder.decodeBool(QStringLiteral("loop")) ? 1 : 0);
    std::vector<LVMovieFile> files;
    for (const QJsonValue& value : coder.decodeValue(kPlaylist).toArray()) {
        if (auto file = LVMovieFile::decode(value.toObject())) files.push_back(*file);
    }
    files_ = std::move(files);
    // Older setups held one movie.
    const QString movie = coder.decodeString(QStringLiteral("movie"));
    if (!movie.isEmpty() && !playlistHasMoviePath(movie)) addMoviePathToPlayList(movie);
    atEndTimeLine_ = coder.decodeString(kAtEndTimeLine);
    applyCaptionStyle();
    if (coder.containsValueForKey(kHotFolder)) setHotFolder(coder.decodeString(kHotFolder));
    selectMovieFromPlaylist(0);
    dealWithAutoPlay();
    return true;
}

void MovieSource::encodeWithCoder(LVKeyedArchiver& coder) const
{
    LVKeyedArchiver base;
    LVEffect::encodeWithCoder(base);
    // The common keys first, then the movie's own in their order, settings and playlist mixed.
    const QStringList own{kLoopMode, kAutoPlay, kAutoStop, kMutedInPreview, kHideWhenStopped, kVolume,
                          kPlaylist, kAtEndTimeOffset, kCaptionPosition, kTimePosition, kTimeDirection, kCaptionSize,
                          kCaptionFont, kCaptionColor, kCaptionShadowColor, kAtEndTimeLine, kHotFolder};
    for (const QString& key : base.keys())
        if (!own.contains(key)) coder.encodeValue(key, base.object().value(key));
    for (const QString& key : own) {
        if (key == kPlaylist) {
            QJsonArray playlist;
            for (const LVMovieFile& file : files_) playlist.append(file.encode());
            coder.encodeValue(kPlaylist, playlist);
        } else if (key == kAtEndTimeLine) {
            if (!atEndTimeLine_.isEmpty()) coder.encodeString(kAtEndTimeLine, atEndTimeLine_);
        } else if (key == kHotFolder) {
            if (!hotFolder_.isEmpty()) coder.encodeString(kHotFolder, hotFolder_);
        } else if (base.object().contains(key)) {
            coder.encodeValue(key, base.object().value(key));
        }
    }
}

QStringList MovieSource::inspectorNotes() const
{
    return {QString::fromLatin1(kHotFolderExplanation)};
}

QString MovieSource::statusNote() const
{
    if (files_.empty()) return QStringLiteral("The playlist is empty");
    if (player_ && player_->hasFailed()) return QStringLiteral("%1 cannot be played").arg(QFileInfo(player_->path()).fileName());
    return {};
}

void MovieSource::parameterChanged(const QString& key)
{
    if (key == kVolume) {
        if (player_) player_->setVolume(parameterValue(kVolume).toFloat());
    } else if (key == kTimePosition || key == kTimeDirection) {
        lastSecs_ = -1;
    } else if (key == kCaptionFont || key == kCaptionColor || key == kCaptionShadowColor || key == kCaptionSize) {
        applyCaptionStyle();
    }
}

void MovieSource::applyCaptionStyle()
{
    for (KDCoreImageText* text : {&captionText_, &timeText_}) {
        text->setFontName(parameterValue(kCaptionFont).toString());
        text->setColor(parameterValue(kCaptionColor).value<QColor>());
        text->setShadowColor(parameterValue(kCaptionShadowColor).value<QColor>());
        text->setSize(parameterValue(kCaptionSize).toInt());
    }
}

void MovieSource::setPlaylist(std::vector<LVMovieFile> files)
{
    files_ = std::move(files);
    shuffleOrder_.clear();
    if (playlistFile_ != kNoEntry && playlistFile_ >= int64_t(files_.size())) clearMovie();
}

void MovieSource::addMoviePathToPlayList(const QString& path)
{
    LVMovieFile file;
    file.path = path;
    files_.push_back(file);
}

int64_t MovieSource::findMovie(const QString& path) const
{
    const auto it = std::find_if(files_.begin(), files_.end(), [&](const LVMovieFile& f) { return f.path == path; });
    return it == files_.end() ? -1 : int64_t(it - files_.begin());
}

void MovieSource::moveRows(const std::vector<int>& rows, int row)
{
    std::vector<LVMovieFile> moved;
    std::vector<bool> taken(files_.size(), false);
    int64_t current = -1;
    for (int r : rows) {
        if (r < 0 || size_t(r) >= files_.size() || taken[size_t(r)]) continue;
        taken[size_t(r)] = true;
        if (r == playlistFile_) current = int64_t(moved.size());
        moved.push_back(files_[size_t(r)]);
    }
    std::vector<LVMovieFile> result;
    int64_t newCurrent = playlistFile_ == kNoEntry ? kNoEntry : -1;
    const auto insertMoved = [&] {
        if (current >= 0) newCurrent = int64_t(result.size()) + current;
        result.insert(result.end(), moved.begin(), moved.end());
    };
    for (size_t i = 0; i < files_.size(); ++i) {
        if (int(i) == row) insertMoved();
        if (taken[i]) continue;
        if (int64_t(i) == playlistFile_) newCurrent = int64_t(result.size());
        result.push_back(files_[i]);
    }
    if (row < 0 || size_t(row) >= files_.size()) insertMoved();
    files_ = std::move(result);
    playlistFile_ = newCurrent;
}

void MovieSource::removeRow(int row)
{
    if (row < 0 || size_t(row) >= files_.size()) return;
    files_.erase(files_.begin() + row);
    if (playlistFile_ == row)
        clearMovie();
    else if (playlistFile_ != kNoEntry && playlistFile_ > row)
        --playlistFile_;
}

bool MovieSource::hasAnotherPlaylistMovie() const
{
    return playlistFile_ != kNoEntry && playlistFile_ + 1 < int64_t(files_.size());
}

int64_t MovieSource::nextPresent(int64_t index, bool wrap) const
{
    const int64_t count = int64_t(files_.size());
    for (int64_t step = 0; step < count; ++step) {
        int64_t candidate = index + step;
        if (candidate >= count) {
            if (!wrap) return kNoEntry;
            candidate %= count;
        }
        if (isPresentFile(files_[size_t(candidate)].path)) return candidate;
    }
    return kNoEntry;
}

void MovieSource::setMovie(const LVMovieFile& entry)
{
    captionText_.setText(entry.caption());
    player_ = std::make_unique<LVMoviePlayer>(entry.path, audioDevice_);
    if (LVContext* ctx = context()) player_->setOutputSize(ctx->width(), ctx->height());
    player_->setMoviePosition(entry.inPoint);
    player_->stopAt(entry.outPoint);
    lastScaledTime_ = 0;
    movieLoaded_ = true;
    movieTitle_ = player_->getMovieTitle();
    player_->setVolume(parameterValue(kVolume).toFloat());
    player_->setRate(rate_);
    player_->setMuted(mode() == LVModePreview && parameterValue(kMutedInPreview).toBool());
    lastSecs_ = -1;
    bAtEndTimeLineFired_ = false;
    dealWithAutoPlay();
}

void MovieSource::selectMovieFromPlaylist(int64_t index)
{
    if (index < 0 || index >= int64_t(files_.size())) {
        clearMovie();
        return;
    }
    if (index == playlistFile_ && player_) {
        player_->setMoviePosition(files_[size_t(index)].inPoint);
        return;
    }
    playlistFile_ = index;
    setMovie(files_[size_t(index)]);
}

void MovieSource::playFromPlaylist(int64_t index)
{
    selectMovieFromPlaylist(index);
    setPlaying(true);
}

void MovieSource::clearMovie()
{
    if (player_) player_->setPlaying(false);
    player_.reset();
    movieLoaded_ = false;
    playlistFile_ = kNoEntry;
}

void MovieSource::dealWithAutoPlay()
{
    if (parameterValue(kAutoPlay).toBool() && (mode() == LVModeLive || mode() == LVModeTransition)) setPlaying(true);
}

void MovieSource::setPlaying(bool playing)
{
    if (player_) player_->setPlaying(playing);
}

bool MovieSource::isPlaying() const
{
    return player_ && player_->getPlaying();
}

QString MovieSource::getMovieTitle() const
{
    return player_ ? player_->getMovieTitle() : QString::fromLatin1(kNoMovieTitle);
}

void MovieSource::setRate(float rate)
{
    rate_ = std::max(0.0f, rate);
    if (player_) player_->setRate(rate_);
}

void MovieSource::setAudioDevice(const QString& device)
{
    audioDevice_ = device;
    if (player_) player_->setAudioDevice(device);
}

bool MovieSource::setMode(int32_t mode)
{
    if (!LVEffect::setMode(mode)) return false;
    switch (mode) {
    case LVModeOff:
        setPlaying(false);
        selectMovieFromPlaylist(0);
        break;
    case LVModeLive:
    case LVModeTransition:
        if (player_) player_->setMuted(false);
        if (parameterValue(kAutoPlay).toBool()) {
            if (!player_ && !files_.empty())
                playFromPlaylist(0);
            else
                setPlaying(true);
        }
        break;
    case LVModePreview:
        if (parameterValue(kAutoStop).toBool()) setPlaying(false);
        if (player_ && parameterValue(kMutedInPreview).toBool()) player_->setMuted(true);
        break;
    default:
        break;
    }
    return true;
}

QString MovieSource::timeString(int64_t s)
{
    QString text;
    const int64_t hours = s / 3600;
    if (hours != 0) text += QString::asprintf("%2.2d:", int(hours));
    text += QString::asprintf("%2.2d:", int((s / 60) % 60));
    text += QString::asprintf("%2.2d", int(s % 60));
    return text;
}

int MovieSource::overlayX(int position, int w, int frameWidth)
{
    switch (position) {
    case 1: return kMargin;
    case 2: return (frameWidth - w) / 2;
    case 3: return frameWidth - w - kMargin;
    default: return 0;
    }
}

void MovieSource::drawOverlay(KDCoreImageText& text, GLuint& texture, quint64& generation, int position)
{
    const QImage& image = text.image();
    if (image.isNull()) return;
    LVContext* ctx = context();
    if (!texture || generation != text.generation()) {
        if (texture) glDeleteTextures(1, &texture);
        texture = ctx->textureFromImage(image);
        generation = text.generation();
    }
    ctx->framebuffer();
    const LVTexture tex{texture, image.width(), image.height()};
    LVContext::drawTexture(tex, QRectF(0, 0, image.width(), image.height()),
                           QRectF(overlayX(position, image.width(), ctx->width()), kMargin, image.width(), image.height()), false, false);
}

void MovieSource::doit()
{
    if (!player_) return;
    LVContext* ctx = context();
    if (parameterValue(kHideWhenStopped).toBool() && !player_->getPlaying()) {
        ctx->reset(true);
    } else if (std::shared_ptr<const LVCamPicture> picture = player_->lastImage()) {
        lastPictureAgeNs_ = steadyNs() - picture->captureTimeNs();
        ctx->drawPicture(picture->texture(), areaRead());
    }

    const int timePosition = parameterValue(kTimePosition).toInt();
    if (timePosition != 0) {
        int64_t s = player_->moviePositionSeconds();
        if (parameterValue(kTimeDirection).toInt() == 1) s = player_->movieEndSeconds() - s;
        if (s != lastSecs_) {
            lastSecs_ = s;
            timeText_.setText(timeString(s));
        }
        drawOverlay(timeText_, timeTexture_, timeGeneration_, timePosition);
    }
    const int captionPosition = parameterValue(kCaptionPosition).toInt();
    if (captionPosition != 0) drawOverlay(captionText_, captionTexture_, captionGeneration_, captionPosition);

    if (wasPosition_ >= 0) return;

    if (!atEndTimeLine_.isEmpty() && mode() == LVModeLive) {
        const int32_t mode = loopMode();
        if (player_->moviePositionSeconds() < player_->movieEndSeconds() - parameterValue(kAtEndTimeOffset).toInt()) {
            bAtEndTimeLineFired_ = false;
        } else if (mode == 2 || (!bAtEndTimeLineFired_ && mode == 0 && !hasAnotherPlaylistMovie())) {
            // In mode 2 the timeline is told to run on every such frame, on purpose.
            if (timeLineRunner()) timeLineRunner()(atEndTimeLine_);
            bAtEndTimeLineFired_ = true;
        }
    }

    if (player_->isOver()) atEndOfFile();
    if (!player_) return;

    const int32_t position = player_->getMoviePosition();
    if (position != lastScaledTime_) lastScaledTime_ = position;
}

void MovieSource::atEndOfFile()
{
    if (player_->hasFailed()) {
        // A playlist of files that all fail is given up rather than reopened every frame.
        if (++failedInARow_ >= int(std::max<size_t>(files_.size(), 1))) {
            failedInARow_ = 0;
            clearMovie();
            return;
        }
    } else {
        failedInARow_ = 0;
    }
    const int64_t current = playlistFile_;
    const int32_t inPoint = current != kNoEntry && current < int64_t(files_.size()) ? files_[size_t(current)].inPoint : 0;
    const auto stopAndRewind = [&] {
        setPlaying(false);
        player_->setMoviePosition(inPoint);
    };
    switch (loopMode()) {
    case 0: {
        const int64_t next = current == kNoEntry ? kNoEntry : nextPresent(current + 1, false);
        if (next != kNoEntry)
            playFromPlaylist(next);
        else
            stopAndRewind();
        break;
    }
    case 1:
        player_->setMoviePosition(inPoint);
        break;
    case 2:
        stopAndRewind();
        break;
    case 3:
        if (current == kNoEntry) {
            player_->setMoviePosition(0);
            setPlaying(true);
        } else {
            const int64_t next = nextPresent(current + 1, true);
            playFromPlaylist(next == kNoEntry ? 0 : next);
        }
        break;
    case 4:
        shuffleNext();
        break;
    default:
        break;
    }
}

void MovieSource::shuffleNext()
{
    if (shuffleOrder_.size() != files_.size()) {
        std::vector<int64_t> remaining(files_.size());
        for (size_t i = 0; i < remaining.size(); ++i) remaining[i] = int64_t(i);
        shuffleOrder_.clear();
        while (!remaining.empty()) {
            std::uniform_int_distribution<size_t> pick(0, remaining.size() - 1);
            const size_t taken = pick(random_);
            shuffleOrder_.push_back(remaining[taken]);
            remaining.erase(remaining.begin() + std::ptrdiff_t(taken));
        }
    }
    const auto it = std::find(shuffleOrder_.begin(), shuffleOrder_.end(), playlistFile_);
    if (it == shuffleOrder_.end() || shuffleOrder_.empty()) {
        playFromPlaylist(0);
        return;
    }
    const size_t next = (size_t(it - shuffleOrder_.begin()) + 1) % shuffleOrder_.size();
    playFromPlaylist(shuffleOrder_[next]);
}

void MovieSource::positionDragStarted()
{
    wasPlaying_ = isPlaying();
    setPlaying(false);
}

void MovieSource::positionDragMoved(int32_t value)
{
    if (player_) player_->setMoviePosition(value);
    lastScaledTime_ = value;
}

void MovieSource::positionDragEnded(int32_t value)
{
    positionDragMoved(value);
    if (wasPlaying_) setPlaying(true);
}

void MovieSource::inOutDragStarted()
{
    wasPlaying_ = isPlaying();
    setPlaying(false);
    wasPosition_ = player_ ? player_->getMoviePosition() : 0;
}

void MovieSource::inOutDragMoved(int32_t value)
{
    if (player_) player_->setMoviePosition(value);
}

void MovieSource::inOutDragEnded(bool outPoint, int32_t value)
{
    value = std::clamp(value, 0, 1000);
    if (player_) player_->setMoviePosition(std::max(wasPosition_, 0));
    wasPosition_ = -1;
    if (wasPlaying_) setPlaying(true);
    if (playlistFile_ == kNoEntry || playlistFile_ >= int64_t(files_.size())) return;
    LVMovieFile& entry = files_[size_t(playlistFile_)];
    if (outPoint) {
        entry.outPoint = value;
        if (player_) player_->stopAt(value);
    } else {
        entry.inPoint = value;
    }
}

void MovieSource::setHotFolder(const QString& path)
{
    watcher_.reset();
    hotFolder_ = path;
    if (path.isEmpty()) return;
    if (!QFileInfo(path).isDir()) {
        LVLog("Hot folder %s is not a folder; the playlist is kept as it is", qPrintable(path));
        return;
    }
    watcher_ = std::make_unique<QFileSystemWatcher>();
    QObject::connect(watcher_.get(), &QFileSystemWatcher::directoryChanged, watcher_.get(), [this] { hotFolderChanged(); });
    hotFolderChanged();
}

void MovieSource::hotFolderChanged()
{
    if (hotFolder_.isEmpty()) return;
    QStringList paths;
    walkFolder(hotFolder_, paths);
    // Sub-folders change too: watch every folder below.
    if (watcher_) {
        QStringList folders{hotFolder_};
        for (const QString& path : paths) folders.append(QFileInfo(path).path());
        folders.removeDuplicates();
        const QStringList watched = watcher_->directories();
        for (const QString& folder : folders)
            if (!watched.contains(folder)) watcher_->addPath(folder);
    }
    const QString current = playlistFile_ != kNoEntry && playlistFile_ < int64_t(files_.size()) ? files_[size_t(playlistFile_)].path : QString();
    std::vector<LVMovieFile> rebuilt;
    for (const QString& path : paths) {
        const int64_t existing = findMovie(path);
        if (existing >= 0) {
            rebuilt.push_back(files_[size_t(existing)]);
        } else {
            LVMovieFile file;
            file.path = path;
            rebuilt.push_back(file);
        }
    }
    files_ = std::move(rebuilt);
    if (current.isEmpty()) return;
    const int64_t moved = findMovie(current);
    if (moved >= 0) {
        playlistFile_ = moved;
    } else {
        clearMovie();
        playFromPlaylist(0);
    }
}
