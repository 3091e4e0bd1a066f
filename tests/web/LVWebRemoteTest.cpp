// The web remote's side of the remote control on a real controller and studio: the page and
// the WebSocket on one port, one-time access links, the studio requests a panel needs, and
// Program pictures from the frame the outputs read back.
#include "control/websocket/LVRemoteWebFront.h"
#include "tests/control/LVRemoteTestClient.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace {

struct HttpAnswer { int status = 0; QByteArray contentType, cacheControl, body; };

HttpAnswer httpGet(quint16 port, const QString& target, const QByteArray& method = "GET")
{
    QNetworkAccessManager network;
    QNetworkRequest request(QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(port).arg(target)));
    QNetworkReply* reply = network.sendCustomRequest(request, method);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    loop.exec();
    HttpAnswer answer{reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                      reply->rawHeader("Content-Type"), reply->rawHeader("Cache-Control"), reply->readAll()};
    delete reply;
    return answer;
}

QJsonObject vendorData(const QJsonObject& response)
{
    return response.value("responseData").toObject().value("responseData").toObject();
}

QJsonObject buttonNamed(const QJsonObject& state, const QString& name)
{
    for (const QJsonValue& button : state.value("buttons").toArray()) {
        if (button.toObject().value("name").toString() == name) return button.toObject();
    }
    return {};
}

QImage decodeDataUrl(const QString& url, const char* format)
{
    const qsizetype comma = url.indexOf(QLatin1Char(','));
    return QImage::fromData(QByteArray::fromBase64(url.mid(comma + 1).toLatin1()), format);
}

class LVWebRemoteTest : public LVRemoteServiceTest {
protected:
    void SetUp() override
    {
        LVRemoteServiceTest::SetUp();
        ASSERT_TRUE(pages.isValid());
        ASSERT_TRUE(lvWriteFiles(pages.path(), {{"index.html", "<!DOCTYPE html><title>remote</title>"},
                                                {"remote.js", "\"use strict\";"},
                                                {"big.js", QByteArray(LVRemoteWebFront::maxFileBytes + 1, ' ')},
                                                {".hidden", "secret"}}));
        ASSERT_TRUE(lvWriteFiles(pages.filePath("sub"), {{"inner.js", "1"}}));
        ASSERT_TRUE(QFile::link(pages.filePath("remote.js"), pages.filePath("link.js")));
        LVRemoteControlService::Options options;
        options.pagesFolder = pages.path();
        serve(options);
    }

    QJsonObject vendor(LVRemoteTestClient& client, const QString& type, const QJsonObject& data = {})
    {
        return client.request("CallVendorRequest", {{"vendorName", "lumaveil"}, {"requestType", type}, {"requestData", data}});
    }

    QTemporaryDir pages;
};

TEST_F(LVWebRemoteTest, ServesOnlyThePagesPlainFilesOnTheRemoteControlPort)
{
    EXPECT_EQ(service->server().address(), QHostAddress(QHostAddress::LocalHost));
    struct Case {
        const char* target;
        QByteArray method;
        int status;
        const char* contentType; // prefix; null: not checked
    };
    const Case cases[] = {
        {"/", "GET", 200, "text/html"},
        {"/remote.js", "GET", 200, "text/javascript"},
        {"/missing.js", "GET", 404, nullptr},
        {"/big.js", "GET", 404, nullptr},
        {"/link.js", "GET", 404, nullptr},
        {"/sub/inner.js", "GET", 404, nullptr},
        {"/.hidden", "GET", 404, nullptr},
        {"/..%2F..%2Fetc%2Fpasswd", "GET", 404, nullptr},
        {"/", "POST", 405, nullptr},
        {"/access", "GET", 403, nullptr},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(std::string(test.method.constData()) + " " + test.target);
        const HttpAnswer answer = httpGet(port(), QString::fromLatin1(test.target), test.method);
        EXPECT_EQ(answer.status, test.status);
        if (test.contentType) {
            EXPECT_TRUE(answer.contentType.startsWith(test.contentType)) << answer.contentType.constData();
        }
        if (answer.status == 200) {
            EXPECT_EQ(answer.cacheControl, "no-store");
        }
        EXPECT_FALSE(answer.body.contains("secret"));
    }
    // The same port upgrades to the remote control.
    EXPECT_TRUE(identified()->request("GetVersion").value("requestStatus").toObject().value("result").toBool());
}

TEST_F(LVWebRemoteTest, AnAccessLinkHandsThePasswordOverOnce)
{
    const QString link = service->accessLink();
    ASSERT_TRUE(link.startsWith(QStringLiteral("http://127.0.0.1:%1/?token=").arg(port()))) << link.toStdString();
    const QString token = link.mid(link.indexOf('=') + 1);
    const QString other = QUrl(service->accessLink()).query().mid(6);
    struct Case { const char* what; QString token; int status; };
    const Case cases[] = {
        {"first use", token, 200},
        {"second use", token, 403},
        {"unknown token", QStringLiteral("AAAA"), 403},
        {"another link stays good", other, 200},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const HttpAnswer answer = httpGet(port(), QStringLiteral("/access?token=") + test.token);
        EXPECT_EQ(answer.status, test.status);
        EXPECT_EQ(answer.body.contains("s3cret"), test.status == 200);
    }
}

TEST_F(LVWebRemoteTest, StudioRequestsActAndEveryClientHearsTheNewState)
{
    auto first = identified();
    auto second = identified();
    const QJsonObject initial = vendorData(vendor(*first, "GetStudioState"));
    EXPECT_EQ(initial.value("buttons").toArray().size(), 2);
    EXPECT_EQ(buttonNamed(initial, "Red").value("color").toString(), "#000000");

    struct Case {
        const char* what;
        const char* type;
        QJsonObject data;
        int status;
        const char* button;     // checked after the request, when set
        int state;
        const char* color;
    };
    const Case cases[] = {
        {"toggle into Preview", "ButtonAction", {{"sceneName", "Red"}, {"action", "toggle"}}, 100, "Red", 4, "#1aad08"},
        {"punch onto Program", "ButtonAction", {{"sceneName", "Blue"}, {"action", "punch"}}, 100, "Blue", 3, "#ad0a05"},
        {"clear marks it leaving", "Clear", {}, 100, "Blue", 2, "#ff8000"},
        {"cut", "Cut", {}, 100, "Red", 3, "#ad0a05"},
        {"swap mode", "SetSwapMode", {{"swapMode", true}}, 100, nullptr, 0, nullptr},
        {"unknown action", "ButtonAction", {{"sceneName", "Red"}, {"action", "wiggle"}}, 400, nullptr, 0, nullptr},
        {"unknown button", "ButtonAction", {{"sceneName", "Green"}, {"action", "toggle"}}, 600, nullptr, 0, nullptr},
        {"swap mode as text", "SetSwapMode", {{"swapMode", "yes"}}, 401, nullptr, 0, nullptr},
        {"unknown request", "Explode", {}, 204, nullptr, 0, nullptr},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        EXPECT_EQ(remoteCode(vendor(*first, test.type, test.data)), test.status);
        if (!test.button) continue;
        // Both clients hear it as the vendor event, without asking.
        for (LVRemoteTestClient* client : {first.get(), second.get()}) {
            QJsonObject state;
            for (;;) {
                const QJsonObject event = client->event("VendorEvent").value("eventData").toObject();
                ASSERT_EQ(event.value("eventType").toString(), "StudioStateChanged");
                state = event.value("eventData").toObject();
                if (buttonNamed(state, test.button).value("state").toInt() == test.state) break;
            }
            EXPECT_EQ(buttonNamed(state, test.button).value("color").toString(), test.color);
        }
    }
    EXPECT_TRUE(vendorData(vendor(*first, "GetStudioState")).value("swapMode").toBool());
    EXPECT_EQ(remoteCode(first->request("CallVendorRequest", {{"vendorName", "someone"}, {"requestType", "Cut"}})), 600);
}

TEST_F(LVWebRemoteTest, ProgramPicturesComeFromTheFramesAlreadyReadBack)
{
    auto client = identified();
    red->punchToAir();
    auto screenshot = [&](QJsonObject extra) {
        extra.insert("sourceName", "Red");
        if (!extra.contains("imageFormat")) extra.insert("imageFormat", "jpeg");
        return client->request("GetSourceScreenshot", extra);
    };
    EXPECT_EQ(remoteCode(client->request("GetSourceScreenshot", {{"sourceName", "Blue"}, {"imageFormat", "jpeg"}})), 604);
    EXPECT_EQ(remoteCode(screenshot({{"imageFormat", "gif"}})), 400);
    EXPECT_EQ(remoteCode(screenshot({{"imageWidth", 2}})), 402);

    // The first ask starts the pictures; frames then bring one.
    const uint64_t readBacksBefore = app->outputs().readBacks();
    int framesRendered = 0;
    QJsonObject answer;
    ASSERT_TRUE(LVRemoteTestClient::wait([&] {
        answer = screenshot({});
        if (remoteCode(answer) == 100) return true;
        frameAfter(0.05);
        ++framesRendered;
        return false;
    }));
    // Never a read-back of its own: one per frame, as the shared memory already needs.
    EXPECT_EQ(app->outputs().readBacks() - readBacksBefore, uint64_t(framesRendered));

    struct Case {
        const char* what;
        QJsonObject request;
        const char* format;
        int width; // 0: not checked
    };
    const Case cases[] = {
        {"the kept picture", {}, "JPEG", 0},
        {"narrower", {{"imageWidth", 32}}, "JPEG", 32},
        {"as PNG", {{"imageFormat", "png"}, {"imageWidth", 16}}, "PNG", 16},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const QJsonObject reply = screenshot(test.request);
        ASSERT_EQ(remoteCode(reply), 100);
        const QImage image = decodeDataUrl(reply.value("responseData").toObject().value("imageData").toString(), test.format);
        ASSERT_FALSE(image.isNull());
        if (test.width) {
            EXPECT_EQ(image.width(), test.width);
        }
        const QColor centre = image.pixelColor(image.width() / 2, image.height() / 2);
        EXPECT_GT(centre.red(), 200);
        EXPECT_LT(centre.blue(), 60);
    }
}

} // namespace
