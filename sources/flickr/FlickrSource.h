#pragma once
// The "Flickr Set" source: looks a user up on the photo service, lists the user's photo sets,
// and shows the chosen set's photos one after the other. REST calls run on the main thread
// without blocking it; each photo is fetched and decoded on a worker thread into a one-slot
// mailbox the render loop polls.
#include "core/LVEffect.h"
#include "render/LVGL.h"

#include <QImage>
#include <QRectF>
#include <QVariantMap>

#include <memory>
#include <mutex>
#include <vector>

class FlickrRequest;
class LVXmlElement;
class QNetworkAccessManager;
class QThread;

// One photo of a set.
struct LVFlickrPhoto {
    QString eyeD;
    QString secret;
    QString server;
    QString farm;
    QString title;

    static LVFlickrPhoto PhotoWithElement(const LVXmlElement& element);
    // On the farm's static host (the preference "flickrPhotoAddress", "%1" for the farm).
    QString url() const;
};

class FlickrSource : public LVEffect {
public:
    FlickrSource();
    ~FlickrSource() override;

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }

    static constexpr int kRetrySeconds = 60;

    void initWithContext(LVContext* context) override;
    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    void encodeWithCoder(LVKeyedArchiver& coder) const override;
    void destruct() override;
    void doit() override;
    LVParameterList effectProperties() const override;
    // The last failure of a call or a photo, said once.
    QString statusNote() const override;

    // The model.
    QString email() const { return parameterValue(QStringLiteral("email")).toString(); }
    void setEmail(const QString& text) { setParameterValue(QStringLiteral("email"), text); }
    QString setURL() const { return parameterValue(QStringLiteral("set")).toString(); }
    void setSetURL(const QString& text) { setParameterValue(QStringLiteral("set"), text); }
    int delay() const { return parameterValue(QStringLiteral("delay")).toInt(); }
    void setDelay(int seconds) { setParameterValue(QStringLiteral("delay"), seconds); }
    bool isPaused() const { return parameterValue(QStringLiteral("paused")).toBool(); }
    void setPaused(bool paused) { setParameterValue(QStringLiteral("paused"), paused); }
    // The pop-up's lines: a message line ("title" only) first, then "setId"/"title" sets.
    const std::vector<QVariantMap>& sets() const { return sets_; }
    const std::vector<LVFlickrPhoto>& photos() const { return photos_; }
    // Changes whenever the photo list is emptied or filled, so a table knows to re-read it.
    uint64_t photosGeneration() const { return photosGeneration_; }
    size_t requestsInFlight() const { return requests_.size(); }

    // The pop-up's action: index into sets().
    void setChanged(int index);
    // The user picked a photo: it is fetched at once.
    void tableViewSelectionDidChange(int row);
    int selectedRow() const { return selectedRow_; }
    int32_t nextImageNumber() const;
    double nextImageTime() const { return nextImageTime_; }
    // The photo on show (decoded, at most the video size), for tests.
    QImage currentImage() const { return shownImage_; }
    // Waits until no photo fetch is running (tests).
    void waitForFetches();

protected:
    void parameterChanged(const QString& key) override;

private:
    using Handler = void (FlickrSource::*)(FlickrRequest*);
    void request(const QString& query, Handler handler);
    void cancelRequest(FlickrRequest* request);
    void doProcessPerson(FlickrRequest* request);
    void doProcessSetList(FlickrRequest* request);
    void doProcessPhotoset(FlickrRequest* request);
    void emailChanged();
    void urlChanged();
    void delayChanged(int oldDelay, int newDelay);
    void setPopupMessage(const QString& message, bool clear);
    void doClear();
    void startFetch(const QString& url, int32_t imageNumber);
    void loadImage(const QString& url, int32_t imageNumber);
    void reapFetches(bool all);
    void reportError(const QString& error);
    void common();

    std::unique_ptr<QNetworkAccessManager> network_;
    std::vector<std::unique_ptr<FlickrRequest>> requests_;
    std::vector<QVariantMap> sets_;
    std::vector<LVFlickrPhoto> photos_;
    uint64_t photosGeneration_ = 0;
    int selectedRow_ = -1;
    int delay_ = 4;
    bool syncing_ = false;
    QString error_;

    double nextImageTime_ = 0;
    GLuint currentImage_ = 0;
    QRectF currentImageRect_;
    QImage shownImage_;

    // Guarded by mtx.
    mutable std::mutex mtx;
    int32_t nextImageNumber_ = 0;
    std::unique_ptr<QImage> pendingImage_;
    QString fetchError_;
    struct Fetch;
    std::vector<std::unique_ptr<Fetch>> fetches_;
};

// Registers the photo set source kind.
void LVRegisterFlickrKinds();
