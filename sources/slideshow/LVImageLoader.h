#pragma once
// Decodes image files on a thread of its own, scaled on load to fit a size, so a huge
// picture never reaches the render loop whole. The render loop asks and polls; it never waits.
#include <QByteArray>
#include <QImage>
#include <QSize>
#include <QString>

#include <condition_variable>
#include <deque>
#include <map>
#include <set>
#include <mutex>
#include <thread>

// Decodes bytes into an image no larger than fit (aspect kept; smaller images stay as they
// are). A null image, with error saying why, when the bytes are not an image.
QImage LVDecodeImageToFit(const QByteArray& bytes, QSize fit, QString* error);

class LVImageLoader {
public:
    explicit LVImageLoader(QSize fit);
    ~LVImageLoader();
    LVImageLoader(const LVImageLoader&) = delete;
    LVImageLoader& operator=(const LVImageLoader&) = delete;

    // Queues path unless it is decoded or queued already.
    void request(const QString& path);
    // The decoded image of path when it is done (null image when the file is not a readable
    // image); false while it is still pending or was never asked for.
    bool take(const QString& path, QImage* image);
    // Keeps only the results of these paths.
    void keepOnly(const QStringList& paths);
    // Waits until nothing is queued or being decoded (tests).
    void waitIdle();

private:
    void run();

    const QSize fit_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable idle_;
    std::deque<QString> queue_;
    QString busy_;
    std::map<QString, QImage> done_;
    std::set<QString> reported_; // bad files are logged once
    bool quit_ = false;
    std::thread thread_;
};
