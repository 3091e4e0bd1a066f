#pragma once
// One call of the photo service's REST interface, started at once and answered on the main
// thread with the parsed reply. A stopped request never calls back.
#include "sources/flickr/LVXmlElement.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;

class FlickrRequest : public QObject {
    Q_OBJECT
public:
    using Callback = std::function<void(FlickrRequest*)>;

    // The built-in key; the preference "flickrAPIKey" replaces it.
    static constexpr const char* kAPIKey = "0123456789abcdef0123456789abcdef";
    // Where the REST interface lives; the preference "flickrRESTAddress" replaces it.
    static constexpr const char* kRESTAddress = "https://api.flickr.com";
    // Replies larger than this are cut off and treated as failed.
    static constexpr qint64 kReplyLimit = 8 << 20;

    // query: the method's part, "method=...&...". A failed connection never calls back; its
    // error is in error().
    FlickrRequest(QNetworkAccessManager& network, const QString& query, Callback callback);
    ~FlickrRequest() override;

    void stop();
    // Called instead of the callback when the call fails; error() says why.
    void setFailureHandler(Callback handler) { failureHandler_ = std::move(handler); }
    // The reply's root element; none when it did not parse.
    const LVXmlElement* getResponse() const { return response_ ? &*response_ : nullptr; }
    // Why the call failed or its reply could not be read; empty when fine.
    const QString& error() const { return error_; }
    static QString restAddress();
    static QString apiKey();

private:
    void finished();

    QPointer<QNetworkReply> reply_;
    Callback callback_;
    Callback failureHandler_;
    QByteArray docData_;
    std::optional<LVXmlElement> response_;
    QString error_;
};
