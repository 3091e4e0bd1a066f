#pragma once
// Fetches a feed over HTTP(S) with QtNetwork and parses it on a worker thread; the answer
// comes back on the thread that owns the reader. Replies are bounded in size and time.
#include "effects/ticker/LVFeedParser.h"

#include <QObject>
#include <QPointer>
#include <QUrl>

#include <memory>

class QNetworkAccessManager;
class QNetworkReply;

class LVFeedReader : public QObject {
    Q_OBJECT
public:
    // Feeds are small; anything larger is refused rather than read.
    static constexpr qint64 kReplyLimit = 2 << 20;
    static constexpr int kTransferTimeoutMs = 30000;

    explicit LVFeedReader(QObject* parent = nullptr);
    ~LVFeedReader() override;

    // Starts fetching address; a fetch still under way is dropped.
    void fetch(const QUrl& address);
    bool isBusy() const { return busy_; }

signals:
    void fetched(const LVFeed& feed);
    // error names the address and says what went wrong.
    void failed(const QString& error);

private:
    void replyFinished();
    void fail(const QString& error);

    std::unique_ptr<QNetworkAccessManager> network_;
    QPointer<QNetworkReply> reply_;
    QByteArray body_;
    QUrl address_;
    bool busy_ = false;
    quint64 generation_ = 0;
    // Lets a parse that ends after this reader is gone drop its answer.
    struct Alive;
    std::shared_ptr<Alive> alive_;
};
