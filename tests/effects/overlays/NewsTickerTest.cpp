// The news ticker against a local HTTP server: fetching, the item count, failures that keep
// the last headlines and are said once, the band drawn into a real GL context, scrolling
// without a seam.
#include "LVOverlayTestSupport.h"
#include "LVTestHttpServer.h"

#include "effects/ticker/LVFeedReader.h"
#include "effects/ticker/NewsTicker.h"

#include <QColor>

#include <memory>

namespace {

QByteArray rss(const QStringList& titles)
{
    QByteArray document = "<?xml version=\"1.0\"?><rss version=\"2.0\"><channel><title>Test</title>";
    for (const QString& title : titles) document += "<item><title>" + title.toUtf8() + "</title></item>";
    return document + "</channel></rss>";
}

class NewsTickerTest : public LVOverlayTest<NewsTicker> {
protected:
    void SetUp() override
    {
        server = std::make_unique<LVTestHttpServer>();
        start(QSize(240, 100), QStringLiteral("NewsTicker"),
              {{"color", QColor(255, 255, 0)}, {"backgroundColor", QColor(0, 0, 255)}, {"fontSize", 16}});
    }

    void serve(const QByteArray& body, int status = 200)
    {
        server->answer(QStringLiteral("/feed.xml"), {status, body, "application/rss+xml"});
    }

    QString feedAddress() const { return server->address() + QStringLiteral("/feed.xml"); }

    // Fetches now and waits for the answer, good or bad.
    void fetch()
    {
        bool answered = false;
        const auto done = [&] { answered = true; };
        QMetaObject::Connection ok = QObject::connect(ticker->reader(), &LVFeedReader::fetched, done);
        QMetaObject::Connection bad = QObject::connect(ticker->reader(), &LVFeedReader::failed, done);
        ticker->refresh();
        EXPECT_TRUE(lvWaitFor([&] { return answered; }));
        QObject::disconnect(ok);
        QObject::disconnect(bad);
    }

    std::unique_ptr<LVTestHttpServer> server;
    std::shared_ptr<NewsTicker>& ticker = effect;
};

TEST_F(NewsTickerTest, TheFeedsHeadlinesAreShownUpToTheChosenCountAndReadAgainOnLoad)
{
    EXPECT_EQ(ticker->statusNote(), QStringLiteral("No feed address"));
    serve(rss({"One", "Two", "Three", "Four"}));
    ticker->setParameterValue(QStringLiteral("itemCount"), 3);
    ticker->setParameterValue(QStringLiteral("feedAddress"), feedAddress());
    ASSERT_TRUE(lvWaitFor([&] { return !ticker->items().isEmpty(); }));
    EXPECT_EQ(ticker->items(), QStringList({"One", "Two", "Three"}));
    EXPECT_TRUE(ticker->statusNote().isEmpty());

    ticker->setParameterValue(QStringLiteral("itemCount"), 10);
    EXPECT_EQ(ticker->items(), QStringList({"One", "Two", "Three", "Four"})) << "the fetched feed is kept whole";

    serve(rss({"Fresh"}));
    fetch();
    EXPECT_EQ(ticker->items(), QStringList({"Fresh"}));

    // Settings travel with the parameters; what is the ticker's own is reading the feed on load.
    const LVEffectRef loaded = LVEffect::effectFromData(LVEffect::dataFromEffect(*ticker), ctx.get());
    auto* restored = dynamic_cast<NewsTicker*>(loaded.get());
    ASSERT_TRUE(restored);
    EXPECT_TRUE(lvWaitFor([&] { return restored->items() == QStringList{"Fresh"}; }));
    restored->waitForOverlay();
}

TEST_F(NewsTickerTest, AFailingFeedKeepsTheLastHeadlinesAndSaysSoOnce)
{
    serve(rss({"Kept"}));
    ticker->setParameterValue(QStringLiteral("feedAddress"), feedAddress());
    ASSERT_TRUE(lvWaitFor([&] { return !ticker->items().isEmpty(); }));

    struct Case {
        const char* what;
        QByteArray body;
        int status;
        QString error;
    };
    const Case cases[] = {
        {"a server error", "down", 500, "server replied"},
        {"a web page", "<html><body>Moved</body></html>", 200, "not an RSS or Atom feed (root element html)"},
        {"a broken document", "<rss><channel>", 200, "Premature end of document"},
        {"too large", QByteArray(3 << 20, ' '), 200, "larger than the limit of 2 MB; refused"},
    };
    testing::internal::CaptureStderr();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        serve(c.body, c.status);
        fetch();
        EXPECT_EQ(ticker->items(), QStringList({"Kept"}));
        EXPECT_TRUE(ticker->lastError().contains(c.error)) << ticker->lastError().toStdString();
        EXPECT_TRUE(ticker->lastError().startsWith(feedAddress())) << "the error names the feed";
        EXPECT_TRUE(ticker->statusNote().startsWith(QStringLiteral("The feed cannot be read, the last headlines stay")));
    }
    serve(rss({"Back"}));
    fetch();
    const QString log = QString::fromStdString(testing::internal::GetCapturedStderr());
    EXPECT_EQ(log.count(QStringLiteral("the last headlines stay")), 1) << log.toStdString();
    EXPECT_EQ(ticker->items(), QStringList({"Back"}));
    EXPECT_TRUE(ticker->lastError().isEmpty());
    EXPECT_TRUE(ticker->statusNote().isEmpty());
}

TEST_F(NewsTickerTest, OnlyWebAddressesAreFetched)
{
    for (const QString& address : {QStringLiteral("file:///etc/passwd"), QStringLiteral("ftp://127.0.0.1/feed.xml")}) {
        SCOPED_TRACE(address.toStdString());
        ticker->setParameterValue(QStringLiteral("feedAddress"), address);
        ASSERT_TRUE(lvWaitFor([&] { return !ticker->lastError().isEmpty(); }));
        EXPECT_TRUE(ticker->lastError().endsWith(QStringLiteral("only http and https feeds are read")));
        EXPECT_TRUE(ticker->items().isEmpty());
        ticker->setParameterValue(QStringLiteral("feedAddress"), QString());
    }
    EXPECT_TRUE(server->requests().isEmpty());
}

TEST_F(NewsTickerTest, TheBandIsDrawnWherePlacedWithTheHeadlinesOnIt)
{
    EXPECT_EQ(render().count(lvIsBlue), 0) << "nothing without headlines";
    serve(rss({"Alpha", "Beta"}));
    ticker->setParameterValue(QStringLiteral("feedAddress"), feedAddress());
    ASSERT_TRUE(lvWaitFor([&] { return !ticker->items().isEmpty(); }));

    struct Case {
        int position;
        QRect band;  // where the band must lie
        QRect clear; // where nothing may be drawn
    };
    const Case cases[] = {
        {0, QRect(0, 0, 240, 20), QRect(0, 40, 240, 60)},
        {1, QRect(0, 80, 240, 20), QRect(0, 0, 240, 60)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.position);
        ticker->setParameterValue(QStringLiteral("position"), c.position);
        const Frame frame = render();
        EXPECT_GT(frame.count(c.band, lvIsBlue), 240 * 10);
        EXPECT_GT(frame.count(c.band, lvIsYellow), 30) << "headlines on the band";
        EXPECT_EQ(frame.count(c.clear, [](int r, int g, int b) { return r + g + b > 0; }), 0);
    }
}

TEST_F(NewsTickerTest, TheHeadlinesScrollAtTheChosenSpeed)
{
    serve(rss({"Scrolling headline"}));
    ticker->setParameterValue(QStringLiteral("scrollSpeed"), 40);
    ticker->setParameterValue(QStringLiteral("feedAddress"), feedAddress());
    ASSERT_TRUE(lvWaitFor([&] { return !ticker->items().isEmpty(); }));
    render(10.0);
    const double start = ticker->scrolled();
    render(10.25);
    EXPECT_DOUBLE_EQ(ticker->scrolled() - start, 10.0);
    render(100.0);
    EXPECT_DOUBLE_EQ(ticker->scrolled() - start, 10.0 + 40 * 0.5) << "a stall scrolls no further than half a second";
}

TEST(NewsTickerLayout, CopiesOfTheHeadlinesFollowWithoutASeam)
{
    struct Case {
        double scrolled;
        double total;
        int width;
        double x;
    };
    const Case cases[] = {
        {0, 100, 240, -60},   // 240 mod 100 = 40, one length back
        {10, 100, 240, -70},
        {40, 100, 240, 0},
        {41, 100, 240, -1},
        {140, 100, 240, 0},    // a whole length later, the same picture
        {0, 500, 240, -260},   // headlines longer than the frame
        {0, 0, 240, 0},
    };
    for (const Case& c : cases) EXPECT_DOUBLE_EQ(NewsTicker::firstCopyX(c.scrolled, c.total, c.width), c.x) << c.scrolled;
}

} // namespace
