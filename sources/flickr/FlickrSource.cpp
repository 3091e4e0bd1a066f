#include "sources/flickr/FlickrSource.h"

#include "core/LVDefaults.h"
#include "core/util/LVLog.h"
#include "core/util/LVUtil.h"
#include "render/LVContext.h"
#include "sources/flickr/FlickrRequest.h"
#include "sources/slideshow/LVImageLoader.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QThread>
#include <QUrl>

#include <algorithm>

namespace {

const QString kEmail = QStringLiteral("email");
const QString kSet = QStringLiteral("set");
const QString kDelay = QStringLiteral("delay");
const QString kPaused = QStringLiteral("paused");
const QString kSetChoice = QStringLiteral("setChoice");
const QString kTitle = QStringLiteral("title");
const QString kSetId = QStringLiteral("setId");
constexpr qint64 kPhotoLimit = 32 << 20;

QString escaped(const QString& text)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(text));
}

} // namespace

struct FlickrSource::Fetch {
    QThread* thread = nullptr;
    QEventLoop* loop = nullptr; // while the download runs; guarded by mtx
    bool aborted = false;
    bool done = false;
};

LVFlickrPhoto LVFlickrPhoto::PhotoWithElement(const LVXmlElement& element)
{
    const auto value = [&](const char* name) { return getAttributeValue(&element, QLatin1String(name)).value_or(QString()); };
    return {value("id"), value("secret"), value("server"), value("farm"), value("title")};
}

QString LVFlickrPhoto::url() const
{
    QString host = LVDefaults::standardUserDefaults().stringForKey(QStringLiteral("flickrPhotoAddress"));
    if (host.isEmpty()) host = QStringLiteral("http://farm%1.staticflickr.com");
    return host.arg(farm) + QStringLiteral("/%1/%2_%3.jpg").arg(server, eyeD, secret);
}

const LVEffectDescriptor& FlickrSource::classDescriptor()
{
    static const LVEffectDescriptor descriptor{
        QStringLiteral("FlickrSource"),
        QStringLiteral("Flickr Set"),
        LVEffectRole::Source,
        [] { return std::make_unique<FlickrSource>(); },
        {LVTextParameter(kEmail, QStringLiteral("User Name or E-mail"), QString()),
         LVTextParameter(kSet, QStringLiteral("Set Address or Number"), QString()),
         LVIntegerParameter(kDelay, QStringLiteral("Seconds per Photo"), 4, 1, 86400),
         LVBoolParameter(kPaused, QStringLiteral("Paused"), false)},
    };
    return descriptor;
}

void LVRegisterFlickrKinds()
{
    LVEffectClasses::registerClass(&FlickrSource::classDescriptor());
}

FlickrSource::FlickrSource() = default;

FlickrSource::~FlickrSource()
{
    destruct();
}

void FlickrSource::common()
{
    network_ = std::make_unique<QNetworkAccessManager>();
    requests_.reserve(1);
    photos_.reserve(10);
}

void FlickrSource::initWithContext(LVContext* context)
{
    LVEffect::initWithContext(context);
    common();
}

bool FlickrSource::initWithCoder(LVKeyedUnarchiver& coder)
{
    if (!LVEffect::initWithCoder(coder)) return false;
    common();
    delay_ = parameterValue(kDelay).toInt();
    // Written as 0 or 1; a boolean is read as well.
    const QJsonValue paused = coder.decodeValue(kPaused);
    if (!paused.isUndefined()) setPaused(paused.isBool() ? paused.toBool() : paused.toInt() != 0);
    // A loaded setup asks the service again, as if typed.
    if (!email().isEmpty()) emailChanged();
    if (!setURL().isEmpty()) urlChanged();
    return true;
}

void FlickrSource::encodeWithCoder(LVKeyedArchiver& coder) const
{
    LVKeyedArchiver base;
    LVEffect::encodeWithCoder(base);
    // The common keys first, then the set's own in their order.
    const QStringList own{kSetChoice, kDelay, kPaused, kSet, kEmail};
    for (const QString& key : base.keys())
        if (!own.contains(key)) coder.encodeValue(key, base.object().value(key));
    coder.encodeInt(kDelay, delay());
    coder.encodeInt(kPaused, isPaused() ? 1 : 0);
    coder.encodeString(kSet, setURL());
    coder.encodeString(kEmail, email());
}

void FlickrSource::destruct()
{
    requests_.clear();
    reapFetches(true);
    network_.reset();
    if (currentImage_ && context()) {
        context()->makeCurrent();
        glDeleteTextures(1, &currentImage_);
    }
    currentImage_ = 0;
}

LVParameterList FlickrSource::effectProperties() const
{
    LVParameterList list = descriptor().parameters;
    QStringList titles;
    QList<int> values;
    for (size_t i = 0; i < sets_.size(); ++i) {
        titles << sets_[i].value(kTitle).toString();
        values << int(i);
    }
    if (!titles.isEmpty()) list.push_back(LVChoiceParameter(kSetChoice, QStringLiteral("Set"), 0, titles, values));
    return list;
}

QString FlickrSource::statusNote() const
{
    std::lock_guard lock(mtx);
    return fetchError_.isEmpty() ? error_ : fetchError_;
}

void FlickrSource::reportError(const QString& error)
{
    if (error.isEmpty() || error == error_) return;
    error_ = error;
    LVLog("Flickr Set: %s", qPrintable(error));
}

void FlickrSource::parameterChanged(const QString& key)
{
    if (syncing_) return;
    if (key == kEmail) {
        emailChanged();
    } else if (key == kSet) {
        urlChanged();
    } else if (key == kDelay) {
        const int old = delay_;
        delay_ = parameterValue(kDelay).toInt();
        delayChanged(old, delay_);
    } else if (key == kSetChoice) {
        setChanged(parameterValue(kSetChoice).toInt());
    }
}

void FlickrSource::request(const QString& query, Handler handler)
{
    auto made = std::make_unique<FlickrRequest>(*network_, query, [this, handler](FlickrRequest* r) { (this->*handler)(r); });
    // The message line stays as it was; the inspector says what went wrong.
    made->setFailureHandler([this](FlickrRequest* r) {
        reportError(r->error());
        cancelRequest(r);
    });
    requests_.push_back(std::move(made));
}

void FlickrSource::cancelRequest(FlickrRequest* request)
{
    const auto it = std::find_if(requests_.begin(), requests_.end(), [&](const auto& r) { return r.get() == request; });
    if (it == requests_.end()) return;
    (*it)->stop();
    // Called from the request's own callback: it is deleted once that returns.
    (*it).release()->deleteLater();
    requests_.erase(it);
}

void FlickrSource::emailChanged()
{
    const QString text = email();
    if (text.isEmpty()) return;
    setPopupMessage(QStringLiteral("Searching"), true);
    error_.clear();
    if (text.contains(QLatin1Char('@')))
        request(QStringLiteral("method=flickr.people.findByEmail&find_email=%1").arg(escaped(text)), &FlickrSource::doProcessPerson);
    else
        request(QStringLiteral("method=flickr.people.findByUsername&username=%1").arg(escaped(text)), &FlickrSource::doProcessPerson);
}

void FlickrSource::doProcessPerson(FlickrRequest* request)
{
    cancelRequest(request);
    reportError(request->error());
    const LVXmlElement* root = request->getResponse();
    const LVXmlElement* user = root ? root->firstElementForName(QStringLiteral("user")) : nullptr;
    const auto nsid = getAttributeValue(user, QStringLiteral("nsid"));
    if (nsid) {
        this->request(QStringLiteral("method=flickr.photosets.getList&user_id=%1").arg(escaped(*nsid)), &FlickrSource::doProcessSetList);
    } else {
        setPopupMessage(QStringLiteral("Not found"), true);
    }
}

void FlickrSource::doProcessSetList(FlickrRequest* request)
{
    cancelRequest(request);
    reportError(request->error());
    const LVXmlElement* root = request->getResponse();
    const LVXmlElement* photosets = root ? root->firstElementForName(QStringLiteral("photosets")) : nullptr;
    const auto sets = photosets ? photosets->elementsForName(QStringLiteral("photoset")) : std::vector<const LVXmlElement*>();
    if (sets.empty()) {
        setPopupMessage(QStringLiteral("No sets found"), true);
        return;
    }
    for (const LVXmlElement* set : sets) {
        const LVXmlElement* title = set->firstElementForName(kTitle);
        sets_.push_back({{kSetId, getAttributeValue(set, QStringLiteral("id")).value_or(QString())},
                         {kTitle, title ? title->stringValue() : QString()}});
    }
    setPopupMessage(QStringLiteral("Select a set"), false);
    syncing_ = true;
    setParameterValue(kSetChoice, 0);
    syncing_ = false;
}

void FlickrSource::setPopupMessage(const QString& message, bool clear)
{
    if (clear)
        sets_.clear();
    else if (!sets_.empty())
        sets_.erase(sets_.begin());
    // A line with no set: it cannot be chosen.
    sets_.insert(sets_.begin(), {{kTitle, message}});
}

void FlickrSource::setChanged(int index)
{
    if (index < 0 || size_t(index) >= sets_.size() || !sets_[size_t(index)].contains(kSetId)) return;
    setSetURL(sets_[size_t(index)].value(kSetId).toString());
}

void FlickrSource::urlChanged()
{
    doClear();
    const QString text = setURL();
    if (text.isEmpty()) return;
    QString set = text;
    if (text.startsWith(QStringLiteral("http://")) || text.startsWith(QStringLiteral("https://"))) {
        // A pasted set address: its last path component is the set number.
        const QStringList parts = QUrl(text).path().split(QLatin1Char('/'), Qt::SkipEmptyParts);
        set = parts.isEmpty() ? QString() : parts.last();
    }
    request(QStringLiteral("method=flickr.photosets.getPhotos&photoset_id=%1").arg(escaped(set)), &FlickrSource::doProcessPhotoset);
}

void FlickrSource::doProcessPhotoset(FlickrRequest* request)
{
    cancelRequest(request);
    reportError(request->error());
    const LVXmlElement* root = request->getResponse();
    const LVXmlElement* photoset = root ? root->firstElementForName(QStringLiteral("photoset")) : nullptr;
    if (photoset)
        for (const LVXmlElement* photo : photoset->elementsForName(QStringLiteral("photo"))) photos_.push_back(LVFlickrPhoto::PhotoWithElement(*photo));
    selectedRow_ = photos_.empty() ? -1 : 0;
    ++photosGeneration_;
}

void FlickrSource::doClear()
{
    photos_.clear();
    ++photosGeneration_;
    selectedRow_ = -1;
    if (currentImage_ && context()) {
        context()->makeCurrent();
        glDeleteTextures(1, &currentImage_);
    }
    currentImage_ = 0;
    shownImage_ = QImage();
}

void FlickrSource::delayChanged(int oldDelay, int newDelay)
{
    nextImageTime_ += double(newDelay - oldDelay);
}

int32_t FlickrSource::nextImageNumber() const
{
    std::lock_guard lock(mtx);
    return nextImageNumber_;
}

void FlickrSource::tableViewSelectionDidChange(int row)
{
    if (row < 0) return;
    selectedRow_ = row;
    std::lock_guard lock(mtx);
    nextImageNumber_ = row;
    nextImageTime_ = -1.0;
}

void FlickrSource::doit()
{
    reapFetches(false);
    if (photos_.empty()) return;
    const double t = context()->frameTime();
    std::unique_ptr<QImage> arrived;
    if (!isPaused()) {
        std::lock_guard lock(mtx);
        if (pendingImage_) {
            arrived = std::move(pendingImage_);
            // The table shows the photo that arrived; not a pick of the user's.
            selectedRow_ = nextImageNumber_;
            ++nextImageNumber_;
        }
    }
    if (arrived) {
        context()->makeCurrent();
        if (currentImage_) glDeleteTextures(1, &currentImage_);
        currentImage_ = context()->textureFromImage(*arrived);
        currentImageRect_ = QRectF(0, 0, arrived->width(), arrived->height());
        shownImage_ = *arrived;
        nextImageTime_ = t + delay();
    }
    if (nextImageTime_ < 0 || (!isPaused() && t > nextImageTime_)) {
        int32_t number;
        {
            std::lock_guard lock(mtx);
            if (nextImageNumber_ < 0 || size_t(nextImageNumber_) >= photos_.size()) nextImageNumber_ = 0;
            number = nextImageNumber_;
        }
        startFetch(photos_[size_t(number)].url(), number);
        // A fetch that never comes back is tried again.
        nextImageTime_ = t + kRetrySeconds;
    }
    if (!currentImage_) return;
    context()->drawPicture({currentImage_, int(currentImageRect_.width()), int(currentImageRect_.height())}, areaRead());
}

void FlickrSource::startFetch(const QString& url, int32_t imageNumber)
{
    std::lock_guard lock(mtx);
    auto fetch = std::make_unique<Fetch>();
    Fetch* slot = fetch.get();
    fetch->thread = QThread::create([this, url, imageNumber, slot] {
        QNetworkAccessManager network;
        QNetworkRequest request{QUrl(url)};
        request.setTransferTimeout(30000);
        QEventLoop loop;
        QNetworkReply* reply = network.get(request);
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        bool aborted;
        {
            std::lock_guard lock(mtx);
            aborted = slot->aborted;
            if (!aborted) slot->loop = &loop;
        }
        if (!aborted && !reply->isFinished()) loop.exec();
        {
            std::lock_guard lock(mtx);
            slot->loop = nullptr;
            aborted = slot->aborted;
        }
        QImage image;
        QString error;
        if (aborted) {
            reply->abort();
        } else if (reply->error() != QNetworkReply::NoError) {
            error = reply->errorString();
        } else {
            const QByteArray bytes = reply->read(kPhotoLimit + 1);
            if (bytes.size() > kPhotoLimit)
                error = QStringLiteral("larger than %1 bytes").arg(kPhotoLimit);
            else
                image = LVDecodeImageToFit(bytes, QSize(LVGetWidth(), LVGetHeight()), &error);
        }
        delete reply;
        std::lock_guard lock(mtx);
        slot->done = true;
        if (aborted) return;
        if (image.isNull()) {
            const QString text = QStringLiteral("photo %1 cannot be shown: %2").arg(url, error);
            if (text != fetchError_) LVLog("Flickr Set: %s", qPrintable(text));
            fetchError_ = text;
            return;
        }
        fetchError_.clear();
        // The user may have picked another photo meanwhile.
        if (nextImageNumber_ == imageNumber) pendingImage_ = std::make_unique<QImage>(std::move(image));
    });
    fetch->thread->start();
    fetches_.push_back(std::move(fetch));
}

void FlickrSource::reapFetches(bool all)
{
    std::vector<std::unique_ptr<Fetch>> finished;
    {
        std::lock_guard lock(mtx);
        for (auto it = fetches_.begin(); it != fetches_.end();) {
            Fetch& fetch = **it;
            if (all) {
                fetch.aborted = true;
                if (fetch.loop) QMetaObject::invokeMethod(fetch.loop, &QEventLoop::quit, Qt::QueuedConnection);
            }
            if (all || fetch.done) {
                finished.push_back(std::move(*it));
                it = fetches_.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (auto& fetch : finished) {
        fetch->thread->wait();
        delete fetch->thread;
    }
}

void FlickrSource::waitForFetches()
{
    std::vector<QThread*> running;
    {
        std::lock_guard lock(mtx);
        for (auto& fetch : fetches_) running.push_back(fetch->thread);
    }
    for (QThread* thread : running) thread->wait();
}
