#include "sources/slideshow/SlideShow.h"

#include "core/util/KDFileUtil.h"
#include "core/util/LVUtil.h"
#include "render/LVContext.h"
#include "sources/slideshow/LVImageLoader.h"

#include <QDir>
#include <QFileInfo>
#include <QImageReader>
#include <QJsonArray>
#include <QStandardPaths>

#include <algorithm>
#include <cmath>

namespace {

const QString kInterval = QStringLiteral("interval");
const QString kDelay = QStringLiteral("delay");
const QString kPaused = QStringLiteral("paused");
const QString kAutoClear = QStringLiteral("autoClear");
const QString kAlbumId = QStringLiteral("albumId");
const QString kFiles = QStringLiteral("files");
const QString kAlbum = QStringLiteral("album");
constexpr double kMinInterval = 0.1;

// Everything below folder, relative, parents before their contents, names in order.
void enumerateDeep(const QString& folder, const QString& relative, QStringList& out)
{
    const QFileInfoList entries =
        QDir(folder).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo& entry : entries) {
        const QString name = relative.isEmpty() ? entry.fileName() : relative + QLatin1Char('/') + entry.fileName();
        out.append(name);
        // Links are not followed: a link to a parent would never end.
        if (entry.isDir() && !entry.isSymLink()) enumerateDeep(entry.filePath(), name, out);
    }
}

bool isImageName(const QString& path)
{
    static const QList<QByteArray> suffixes = QImageReader::supportedImageFormats();
    return suffixes.contains(QFileInfo(path).suffix().toLower().toLatin1());
}

} // namespace

const LVEffectDescriptor& SlideShow::classDescriptor()
{
    static const LVEffectDescriptor descriptor{
        QStringLiteral("SlideShow"),
        QStringLiteral("Slide Show"),
        LVEffectRole::Source,
        [] { return std::make_unique<SlideShow>(); },
        {LVFloatParameter(kInterval, QStringLiteral("Interval"), 4.0, kMinInterval, 86400.0),
         LVBoolParameter(kPaused, QStringLiteral("Paused"), false),
         LVBoolParameter(kAutoClear, QStringLiteral("Auto Clear"), false)},
    };
    return descriptor;
}

void LVRegisterSlideShowKinds()
{
    LVEffectClasses::registerClass(&SlideShow::classDescriptor());
}

SlideShow::SlideShow() = default;

SlideShow::~SlideShow()
{
    destruct();
}

void SlideShow::setupLoader()
{
    files_.reserve(10);
    loader_ = std::make_unique<LVImageLoader>(QSize(LVGetWidth(), LVGetHeight()));
}

void SlideShow::initWithContext(LVContext* context)
{
    LVEffect::initWithContext(context);
    setupLoader();
    setInterval(4.0);
}

bool SlideShow::initWithCoder(LVKeyedUnarchiver& coder)
{
    if (!LVEffect::initWithCoder(coder)) return false;
    setupLoader();
    double interval = parameterValue(kInterval).toDouble();
    // Older setups stored whole seconds under "delay".
    if (!coder.containsValueForKey(kInterval) && coder.containsValueForKey(kDelay)) interval = double(coder.decodeInt(kDelay, 4));
    interval_ = std::max(kMinInterval, interval);
    syncing_ = true;
    setParameterValue(kInterval, interval_);
    // Written as 0 or 1; a boolean is read as well.
    const QJsonValue paused = coder.decodeValue(kPaused);
    if (!paused.isUndefined()) setParameterValue(kPaused, paused.isBool() ? paused.toBool() : paused.toInt() != 0);
    syncing_ = false;
    if (coder.containsValueForKey(kFiles)) {
        for (const QJsonValue& path : coder.decodeValue(kFiles).toArray()) {
            if (path.isString()) addFile(path.toString(), QFileInfo(path.toString()).fileName());
        }
    } else if (coder.containsValueForKey(kAlbumId)) {
        doIPhotoCheck(true);
        const QString id = coder.decodeString(kAlbumId);
        const auto it = std::find_if(albums_.begin(), albums_.end(), [&](const QVariantMap& a) { return a.value(QStringLiteral("id")).toString() == id; });
        if (it != albums_.end()) setCurrentAlbum(int(it - albums_.begin()));
    }
    return true;
}

void SlideShow::encodeWithCoder(LVKeyedArchiver& coder) const
{
    LVKeyedArchiver base;
    LVEffect::encodeWithCoder(base);
    // The common keys first, then the show's own in their order.
    const QStringList own{kAlbum, kInterval, kPaused, kAutoClear, kAlbumId, kFiles};
    for (const QString& key : base.keys())
        if (!own.contains(key)) coder.encodeValue(key, base.object().value(key));
    coder.encodeDouble(kInterval, interval_);
    coder.encodeInt(kPaused, isPaused() ? 1 : 0);
    coder.encodeBool(kAutoClear, autoClear());
    if (currentAlbum_.contains(QStringLiteral("id"))) coder.encodeString(kAlbumId, currentAlbum_.value(QStringLiteral("id")).toString());
    QJsonArray paths;
    for (const Entry& entry : files_) paths.append(entry.path);
    coder.encodeValue(kFiles, paths);
}

void SlideShow::destruct()
{
    loader_.reset();
    if (currentImage_ && context()) {
        context()->makeCurrent();
        glDeleteTextures(1, &currentImage_);
    }
    currentImage_ = 0;
}

LVParameterList SlideShow::effectProperties() const
{
    LVParameterList list = descriptor().parameters;
    if (!albums_.empty()) {
        QStringList names{QStringLiteral("None")};
        QList<int> values{-1};
        for (size_t i = 0; i < albums_.size(); ++i) {
            names << albums_[i].value(QStringLiteral("name")).toString();
            values << int(i);
        }
        list.push_back(LVChoiceParameter(kAlbum, QStringLiteral("Album"), -1, names, values));
    }
    return list;
}

void SlideShow::parameterChanged(const QString& key)
{
    if (syncing_) return;
    if (key == kInterval) {
        const double old = interval_;
        interval_ = parameterValue(kInterval).toDouble();
        intervalChanged(old, interval_);
    } else if (key == kAlbum) {
        setCurrentAlbum(parameterValue(kAlbum).toInt());
    }
}

void SlideShow::intervalChanged(double oldInterval, double newInterval)
{
    newInterval = std::max(kMinInterval, newInterval);
    interval_ = newInterval;
    // The old value counts in whole seconds, as it always has.
    nextImageTime_ = nextImageTime_ - double(int64_t(oldInterval)) + newInterval;
}

void SlideShow::addFileDrop(const QString& path)
{
    if (KDFileUtil::isDir(path)) {
        QStringList relative;
        enumerateDeep(path, QString(), relative);
        for (const QString& name : relative) {
            if (name.startsWith(QLatin1Char('.'))) continue;
            addFileDrop(QDir(path).filePath(name));
        }
        return;
    }
    addFile(path, QFileInfo(path).fileName());
}

void SlideShow::addFile(const QString& path, const QString& name)
{
    files_.push_back({path, name});
}

bool SlideShow::dropFiles(const QStringList& paths)
{
    if (paths.isEmpty()) return false;
    if (autoClear()) doClear();
    for (const QString& path : paths) addFileDrop(path);
    return true;
}

void SlideShow::doClear()
{
    files_.clear();
}

void SlideShow::selectRow(int row)
{
    if (row < 0) return;
    nextImageNumber_ = row;
    nextImageTime_ = -1.0;
}

void SlideShow::deleteKeyPressed(int character, int selectedRow)
{
    if (character != 127 && character != 63272 && character != 63294) return;
    if (selectedRow < 0 || size_t(selectedRow) >= files_.size()) return;
    files_.erase(files_.begin() + selectedRow);
}

std::vector<QVariantMap> SlideShow::albumList()
{
    std::vector<QVariantMap> albums;
    const QString pictures = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    if (pictures.isEmpty()) return albums;
    const QFileInfoList folders = QDir(pictures).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo& folder : folders) {
        if (folder.isSymLink()) continue;
        albums.push_back({{QStringLiteral("name"), folder.fileName()}, {QStringLiteral("id"), folder.absoluteFilePath()}});
    }
    return albums;
}

void SlideShow::doIPhotoCheck(bool on)
{
    albums_.clear();
    albums_.reserve(50);
    if (on) albums_ = albumList();
}

void SlideShow::setCurrentAlbum(int index)
{
    currentAlbum_ = index >= 0 && size_t(index) < albums_.size() ? albums_[size_t(index)] : QVariantMap();
    files_.clear();
    const QString folder = currentAlbum_.value(QStringLiteral("id")).toString();
    if (folder.isEmpty()) return;
    const QFileInfoList images = QDir(folder).entryInfoList(QDir::Files | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo& image : images) {
        if (!image.isSymLink() && isImageName(image.fileName())) addFile(image.absoluteFilePath(), image.fileName());
    }
}

void SlideShow::drawNextImage()
{
    if (nextImageNumber_ < 0 || size_t(nextImageNumber_) >= files_.size()) nextImageNumber_ = 0;
    wantedRow_ = nextImageNumber_;
    wantedPath_ = files_[size_t(wantedRow_)].path;
    loader_->request(wantedPath_);
    // The one after it decodes meanwhile, so it is ready when due.
    const QString following = files_[(size_t(wantedRow_) + 1) % files_.size()].path;
    loader_->keepOnly({wantedPath_, following});
    loader_->request(following);
    ++nextImageNumber_;
    showDecoded();
}

void SlideShow::showDecoded()
{
    if (wantedPath_.isEmpty()) return;
    QImage image;
    if (!loader_->take(wantedPath_, &image)) return;
    wantedPath_.clear();
    shownRow_ = wantedRow_;
    LVContext* ctx = context();
    ctx->makeCurrent();
    if (currentImage_) glDeleteTextures(1, &currentImage_);
    currentImage_ = 0;
    currentImageRect_ = QRectF();
    shownImage_ = image;
    // An unreadable file shows nothing until the next one is due.
    if (image.isNull()) return;
    currentImage_ = ctx->textureFromImage(image);
    currentImageRect_ = QRectF(0, 0, image.width(), image.height());
}

void SlideShow::doit()
{
    if (files_.empty()) return;
    const double t = context()->frameTime();
    if (nextImageTime_ < 0 || (!isPaused() && t > nextImageTime_)) {
        drawNextImage();
        nextImageTime_ = t + interval_;
    } else {
        showDecoded();
    }
    if (!currentImage_) return;
    context()->drawPicture({currentImage_, int(currentImageRect_.width()), int(currentImageRect_.height())}, areaRead());
}

void SlideShow::waitForImages()
{
    loader_->waitIdle();
}
