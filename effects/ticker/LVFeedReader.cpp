#include "effects/ticker/LVFeedReader.h"

#include "core/util/LVBoundedRead.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QThreadPool>

#include <mutex>

struct LVFeedReader::Alive {
    std::mutex mutex;
    LVFeedReader* reader;
};

LVFeedReader::LVFeedReader(QObject* parent)
    : QObject(parent), network_(std::make_unique<QNetworkAccessManager>()), alive_(std::make_shared<Alive>())
{
    alive_->reader = this;
}

LVFeedReader::~LVFeedReader()
{
    // Quietly: the owner is going away and wants no answer.
    if (reply_) {
        reply_->disconnect(this);
        reply_->abort();
    }
    std::lock_guard lock(alive_->mutex);
    alive_->reader = nullptr;
}

void LVFeedReader::fetch(const QUrl& address)
{
    if (reply_) {
        reply_->disconnect(this);
        reply_->abort();
        reply_->deleteLater();
        reply_ = nullptr;
    }
    ++generation_;
    body_.clear();
    address_ = address;
    busy_ = true;
    const QString scheme = address.scheme();
    if (!address.isValid() || (scheme != QLatin1String("http") && scheme != QLatin1String("https"))) {
        // Reported from the event loop, like every other answer.
        QMetaObject::invokeMethod(this, [this, generation = generation_] {
            if (generation == generation_) fail(QStringLiteral("only http and https feeds are read"));
        }, Qt::QueuedConnection);
        return;
    }
    QNetworkRequest request(address);
    request.setTransferTimeout(kTransferTimeoutMs);
    request.setRawHeader("Accept", "application/rss+xml, application/atom+xml, application/xml, text/xml");
    reply_ = network_->get(request);
    connect(reply_, &QNetworkReply::readyRead, this, [this] {
        body_ += reply_->readAll();
        if (body_.size() > kReplyLimit) {
            reply_->disconnect(this);
            reply_->abort();
            reply_->deleteLater();
            reply_ = nullptr;
            fail(QStringLiteral("larger than the limit of %1; refused").arg(LVByteLimitText(kReplyLimit)));
        }
    });
    connect(reply_, &QNetworkReply::finished, this, &LVFeedReader::replyFinished);
}

void LVFeedReader::replyFinished()
{
    QNetworkReply* reply = reply_;
    reply->deleteLater();
    reply_ = nullptr;
    if (reply->error() != QNetworkReply::NoError) {
        fail(reply->errorString());
        return;
    }
    body_ += reply->readAll();
    if (body_.size() > kReplyLimit) {
        fail(QStringLiteral("larger than the limit of %1; refused").arg(LVByteLimitText(kReplyLimit)));
        return;
    }
    QThreadPool::globalInstance()->start([alive = alive_, body = std::move(body_), generation = generation_] {
        LVFeed feed;
        QString error;
        const bool parsed = LVParseFeed(body, &feed, &error);
        std::lock_guard lock(alive->mutex);
        if (!alive->reader) return;
        // Posted while the reader is known to be alive; a posted call dies with its receiver.
        LVFeedReader* reader = alive->reader;
        QMetaObject::invokeMethod(reader, [reader, generation, parsed, feed, error] {
            if (generation != reader->generation_) return;
            reader->busy_ = false;
            if (parsed) {
                emit reader->fetched(feed);
            } else {
                emit reader->failed(QStringLiteral("%1: %2").arg(reader->address_.toDisplayString(), error));
            }
        }, Qt::QueuedConnection);
    });
    body_.clear();
}

void LVFeedReader::fail(const QString& error)
{
    busy_ = false;
    emit failed(QStringLiteral("%1: %2").arg(address_.toDisplayString(), error));
}
