#include "sources/flickr/FlickrRequest.h"

#include "core/LVDefaults.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QUrl>

QString FlickrRequest::restAddress()
{
    const QString stored = LVDefaults::standardUserDefaults().stringForKey(QStringLiteral("flickrRESTAddress"));
    return stored.isEmpty() ? QString::fromLatin1(kRESTAddress) : stored;
}

QString FlickrRequest::apiKey()
{
    const QString stored = LVDefaults::standardUserDefaults().stringForKey(QStringLiteral("flickrAPIKey"));
    return stored.isEmpty() ? QString::fromLatin1(kAPIKey) : stored;
}

FlickrRequest::FlickrRequest(QNetworkAccessManager& network, const QString& query, Callback callback)
    : callback_(std::move(callback))
{
    docData_.reserve(1024);
    QString base = restAddress();
    while (base.endsWith(QLatin1Char('/'))) base.chop(1);
    const QUrl url(base + QStringLiteral("/services/rest/?api_key=") + apiKey() + QLatin1Char('&') + query);
    QNetworkRequest request(url);
    request.setTransferTimeout(30000);
    reply_ = network.get(request);
    connect(reply_, &QNetworkReply::readyRead, this, [this] {
        docData_ += reply_->readAll();
        if (docData_.size() > kReplyLimit) {
            error_ = QStringLiteral("the reply is larger than %1 bytes").arg(kReplyLimit);
            reply_->abort();
        }
    });
    connect(reply_, &QNetworkReply::finished, this, &FlickrRequest::finished);
}

FlickrRequest::~FlickrRequest()
{
    stop();
}

void FlickrRequest::stop()
{
    callback_ = nullptr;
    failureHandler_ = nullptr;
    if (reply_) {
        reply_->disconnect(this);
        reply_->abort();
        reply_->deleteLater();
    }
    reply_ = nullptr;
}

void FlickrRequest::finished()
{
    QNetworkReply* reply = reply_;
    if (!reply) return;
    docData_ += reply->readAll();
    const bool failed = reply->error() != QNetworkReply::NoError;
    if (failed && error_.isEmpty()) error_ = reply->errorString();
    reply_ = nullptr;
    reply->deleteLater();
    if (failed) {
        if (auto handler = std::move(failureHandler_)) handler(this);
        return;
    }
    QString parseError;
    response_ = LVXmlElement::parse(docData_, &parseError);
    if (!response_) {
        error_ = QStringLiteral("the reply is not XML: %1").arg(parseError);
    } else if (response_->attributes.value(QStringLiteral("stat")) == QStringLiteral("fail")) {
        const LVXmlElement* err = response_->firstElementForName(QStringLiteral("err"));
        error_ = QStringLiteral("the service answered: %1").arg(getAttributeValue(err, QStringLiteral("msg")).value_or(QStringLiteral("failure")));
    }
    if (Callback callback = std::move(callback_)) callback(this);
}
