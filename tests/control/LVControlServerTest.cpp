// The control socket: where it lives and who may open it, framing, and every way a client
// can misbehave (garbage, huge lines, silence, crowds, floods, unread replies).
#include "control/remote/LVControlServer.h"
#include "tests/control/LVControlTestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <sys/stat.h>
#include <sys/un.h>

namespace {

QJsonObject parse(const QByteArray& line)
{
    return QJsonDocument::fromJson(line).object();
}

QString errorOf(const QByteArray& line)
{
    return parse(line).value(QStringLiteral("error")).toString();
}

int modeOf(const QString& path)
{
    struct stat info {};
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0) return -1;
    return int(info.st_mode);
}

class LVControlServerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication(); }

    void SetUp() override
    {
        ASSERT_TRUE(runtime.isValid());
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
        path = LVControlSocket::socketPath();
    }

    // Echoes the command, or a long text for {"command": "big"}.
    std::unique_ptr<LVControlServer> serve(LVControlLimits limits = {})
    {
        auto server = std::make_unique<LVControlServer>(
            [](const QJsonObject& request) {
                const QString command = request.value(QStringLiteral("command")).toString();
                if (command == QLatin1String("big")) return LVControlResult(QString(8192, QLatin1Char('x')));
                return LVControlResult(command);
            },
            limits);
        QString error;
        EXPECT_TRUE(server->listen(path, &error)) << error.toStdString();
        return server;
    }

    QTemporaryDir runtime;
    QString path;
};

TEST_F(LVControlServerTest, SocketIsOwnerOnlyInsideAPrivateFolderAndGoesWithTheServer)
{
    auto server = serve();
    EXPECT_EQ(path, runtime.path() + QStringLiteral("/lumaveil/control.sock"));
    EXPECT_EQ(modeOf(runtime.path() + QStringLiteral("/lumaveil")), S_IFDIR | 0700);
    EXPECT_EQ(modeOf(path), S_IFSOCK | 0600);
    server.reset();
    EXPECT_EQ(modeOf(path), -1);
}

TEST_F(LVControlServerTest, RequestsThatAreNotJsonObjectsGetAClearError)
{
    LVControlServer server([](const QJsonObject&) { return LVControlResult(true); });
    struct Case { QByteArray line; const char* error; };
    const Case cases[] = {
        {"get studioButtons", "request is not JSON"},
        {"[\"cut\"]", "request must be a JSON object"},
        {"\xff\xfe{}", "request is not JSON"},
    };
    for (const Case& c : cases) {
        const QJsonObject reply = parse(server.replyToLine(c.line));
        EXPECT_EQ(reply.value(QStringLiteral("ok")), QJsonValue(false)) << c.line.constData();
        EXPECT_TRUE(reply.value(QStringLiteral("error")).toString().startsWith(QLatin1String(c.error)))
            << c.line.constData() << " -> " << qPrintable(reply.value(QStringLiteral("error")).toString());
    }
}

// Each line gets one reply, in order, carrying the request's id whatever its type.
TEST_F(LVControlServerTest, PipelinedRequestsAreAllAnsweredInOrder)
{
    auto server = serve();
    constexpr int count = 500;
    const auto [first, ids] = runWhileServing([&] {
        LVTestControlClient client(path);
        QByteArray lines = R"({"command": "ping", "id": [7, "x"]})" "\n";
        for (int i = 0; i < count; ++i) lines += QStringLiteral("{\"command\":\"c\",\"id\":%1}\r\n\n").arg(i).toUtf8();
        QList<int> seen;
        if (!client.send(lines)) return std::pair{QJsonObject(), seen};
        const QJsonObject ping = parse(client.readLine());
        for (int i = 0; i < count; ++i) seen.append(parse(client.readLine()).value(QStringLiteral("id")).toInt(-1));
        return std::pair{ping, seen};
    });
    EXPECT_EQ(first, QJsonObject({{"ok", true}, {"result", "ping"}, {"id", QJsonArray{7, "x"}}}));
    ASSERT_EQ(ids.size(), count);
    for (int i = 0; i < count; ++i) ASSERT_EQ(ids[i], i);
}

TEST_F(LVControlServerTest, ATenMegabyteLineIsRefusedAndTheConnectionClosed)
{
    auto server = serve();
    const auto [reply, closed] = runWhileServing([&] {
        LVTestControlClient client(path);
        const QByteArray chunk(1 << 20, 'a');
        // The server may hang up before all of it is sent.
        for (int i = 0; i < 10 && client.send(chunk); ++i) {
        }
        QByteArray line = client.readLine();
        return std::pair{line, client.isClosedByServer()};
    });
    EXPECT_EQ(errorOf(reply), QStringLiteral("request longer than 1048576 bytes; closing"));
    EXPECT_TRUE(closed);
    EXPECT_EQ(server->clientCount(), 0);
}

TEST_F(LVControlServerTest, AClientThatNeverSendsIsToldAndClosed)
{
    LVControlLimits limits;
    limits.idleMs = 200;
    auto server = serve(limits);
    const auto [reply, closed] = runWhileServing([&] {
        LVTestControlClient client(path);
        QByteArray line = client.readLine();
        return std::pair{line, client.isClosedByServer()};
    });
    EXPECT_EQ(errorOf(reply), QStringLiteral("no request within 0.2 s; closing"));
    EXPECT_TRUE(closed);
}

TEST_F(LVControlServerTest, AHundredClientsAtOnceAreServedUpToTheLimitAndTheRestToldSo)
{
    auto server = serve();
    const QStringList replies = runWhileServing([&] {
        std::vector<std::unique_ptr<LVTestControlClient>> clients;
        for (int i = 0; i < 100; ++i) clients.push_back(std::make_unique<LVTestControlClient>(path));
        QStringList results;
        for (auto& client : clients) {
            const QJsonObject reply = parse(client->request(R"({"command": "hello"})"));
            results.append(reply.value(QStringLiteral("ok")).toBool() ? reply.value(QStringLiteral("result")).toString()
                                                                    : reply.value(QStringLiteral("error")).toString());
        }
        return results;
    });
    ASSERT_EQ(replies.size(), 100);
    EXPECT_EQ(replies.count(QStringLiteral("hello")), 64);
    EXPECT_EQ(replies.count(QStringLiteral("too many control clients (at most 64); try again")), 36);
}

TEST_F(LVControlServerTest, AClientThatNeverReadsItsRepliesIsCutOff)
{
    LVControlLimits limits;
    limits.maxUnreadReplyBytes = 64 * 1024;
    auto server = serve(limits);
    const int answered = runWhileServing([&] {
        LVTestControlClient client(path);
        QByteArray lines;
        for (int i = 0; i < 2000; ++i) lines += "{\"command\":\"big\"}\n";
        client.send(lines);
        if (!client.waitForHangUp()) return -1;
        int count = 0;
        while (!client.readLine().isEmpty()) ++count;
        return count;
    });
    EXPECT_GE(answered, 0) << "never cut off";
    EXPECT_LT(answered, 2000);
    EXPECT_EQ(server->clientCount(), 0);
}

TEST_F(LVControlServerTest, ASocketLeftByADeadProcessIsReplaced)
{
    QString error;
    ASSERT_TRUE(LVControlSocket::prepareFolder(QFileInfo(path).absolutePath(), &error));
    {
        // A socket bound and abandoned, as a killed process leaves it.
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, QFile::encodeName(path).constData());
        ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(fd);
    }
    auto server = serve();
    const QByteArray reply = runWhileServing([&] { return LVTestControlClient(path).request(R"({"command":"x"})"); });
    EXPECT_EQ(parse(reply).value(QStringLiteral("result")), QJsonValue("x"));
}

TEST_F(LVControlServerTest, PathsItMustNotTakeOverAreRefused)
{
    auto first = serve();
    LVControlServer second([](const QJsonObject&) { return LVControlResult(true); });
    QString error;
    EXPECT_FALSE(second.listen(path, &error));
    EXPECT_EQ(error, QStringLiteral("another Lumaveil already serves %1").arg(path));
    first.reset();

    QFile plain(path);
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.write("keep me");
    plain.close();
    EXPECT_FALSE(second.listen(path, &error));
    EXPECT_EQ(error, QStringLiteral("%1 exists and is not a socket; not replacing it").arg(path));
    EXPECT_EQ(QFile(path).size(), 7);
}

TEST_F(LVControlServerTest, FolderMustBeOurOwnPrivateFolder)
{
    struct Case {
        const char* what;
        std::function<void(const QString& folder)> make;
        bool accepted;
        int modeAfter;
    };
    const QString elsewhere = runtime.filePath(QStringLiteral("elsewhere"));
    QDir().mkpath(elsewhere);
    const Case cases[] = {
        {"missing", [](const QString&) {}, true, S_IFDIR | 0700},
        {"open to others", [](const QString& f) { QDir().mkpath(f); ::chmod(QFile::encodeName(f).constData(), 0777); },
         true, S_IFDIR | 0700},
        {"a link", [&](const QString& f) { QFile::link(elsewhere, f); }, false, S_IFLNK | 0777},
        {"a file", [](const QString& f) { QFile file(f); (void)file.open(QIODevice::WriteOnly); }, false, S_IFREG | 0644},
    };
    int index = 0;
    for (const Case& c : cases) {
        const QString folder = runtime.filePath(QStringLiteral("case%1").arg(index++));
        c.make(folder);
        QString error;
        EXPECT_EQ(LVControlSocket::prepareFolder(folder, &error), c.accepted) << c.what << ": " << qPrintable(error);
        EXPECT_EQ(modeOf(folder) & ~0022 , c.modeAfter & ~0022) << c.what;
    }
}

} // namespace
